#include <fmt/format.h>

#include <boost/numeric/conversion/cast.hpp>
#include <string>
#include <type_traits>
#include <variant>

#include "handles.h"
#include "kv/host/elementTypes.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/timeValues.h"

namespace kv {

namespace {

using runtime::ElementType;

/// The number as a `T`, exactly where `T` is a type of integers.
template <class T>
T converted(auto number, std::string_view type) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(number);
  } else {
    const auto refuse = [&] {
      raiseError("KALVEX:function:OutOfRange",
                 {"scalar", fmt::format("{}", number), std::string(type)});
    };
    try {
      const T result = boost::numeric_cast<T>(number);
      if (static_cast<decltype(number)>(result) != number) {
        refuse();
      }
      return result;
    } catch (const boost::numeric::bad_numeric_cast&) {
      refuse();
      throw;
    }
  }
}

template <class T>
host::Value scalarOf(const Operand& value, std::string_view type) {
  constexpr std::size_t kOneRow[] = {1, 1};
  host::Value scalar = matrix::from_kalvex(kxCreateNumericArray(kOneRow, host::kClassOf<T>));
  auto* element = static_cast<T*>(kxGetMutableData(scalar.get()));
  *element = std::visit(
      [&]<class Given>(const Given& given) -> T {
        if constexpr (std::is_arithmetic_v<Given>) {
          return converted<T>(given, type);
        } else {
          raiseError("KALVEX:array:NotANumber", {"string"});
        }
      },
      value.value());
  return scalar;
}

host::Value scalarOf(const Operand& value, ElementType type, std::string_view name) {
  switch (type) {
    case ElementType::Logical:
      return scalarOf<bool>(value, name);
    case ElementType::Double:
      return scalarOf<double>(value, name);
    case ElementType::Single:
      return scalarOf<float>(value, name);
    case ElementType::Int8:
      return scalarOf<std::int8_t>(value, name);
    case ElementType::UInt8:
      return scalarOf<std::uint8_t>(value, name);
    case ElementType::Int16:
      return scalarOf<std::int16_t>(value, name);
    case ElementType::UInt16:
      return scalarOf<std::uint16_t>(value, name);
    case ElementType::Int32:
      return scalarOf<std::int32_t>(value, name);
    case ElementType::UInt32:
      return scalarOf<std::uint32_t>(value, name);
    case ElementType::Int64:
      return scalarOf<std::int64_t>(value, name);
    case ElementType::UInt64:
      return scalarOf<std::uint64_t>(value, name);
    case ElementType::DateTime:
    case ElementType::Duration:
      return runtime::makeTimes(type, scalarOf<std::int64_t>(value, name));
    default:
      raiseError("KALVEX:array:NotANumber", {std::string(name)});
  }
}

}  // namespace

Array Session::scalar(const Operand& value, std::string_view type, Where where) {
  const ElementType element = requireType(type);
  return publicCall(*impl_, where, [&] {
    const host::Value number = scalarOf(value, element, type);
    return makeArray(impl_, host::call("createFromConstantBuiltin", {number.get()}), element,
                     RowTraits{.isScalar = true, .made = uniqueKey()});
  });
}

}  // namespace kv

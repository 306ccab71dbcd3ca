#include "kv/runtime/constants.h"

#include <fmt/core.h>
#include <cassert>

#include <array>
#include <cstring>
#include <type_traits>

#include "column/allocate.h"
#include "kernel/constants.h"
#include "kv/host/errors.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

ElementType typeOf(bool) { return ElementType::Logical; }
ElementType typeOf(std::int64_t) { return ElementType::Int64; }
ElementType typeOf(std::uint64_t) { return ElementType::UInt64; }
ElementType typeOf(double) { return ElementType::Double; }

struct ColumnOf {
  Column operator()(auto value) const { return scalarColumn(typeOf(value), value); }
  Column operator()(const std::string& value) const {
    return toColumn(host::makeString(value).get());
  }
};

bool isWritable(ElementType type) {
  return type == ElementType::Logical || type == ElementType::Int64 ||
         type == ElementType::UInt64 || type == ElementType::Double || type == ElementType::String;
}

}  // namespace

ColumnOperand writtenOperand(const WrittenConstant& constant) {
  return {std::visit(ColumnOf(), constant), true, true};
}

ColumnOperand writtenOperand(const kxArray* saved) {
  Column column = toColumn(saved);
  if (column.rows() != 1 || !isWritable(column.type())) {
    host::raise("KALVEX:array:NotAColumn",
                {fmt::format("{}x{}", kxGetM(saved), kxGetN(saved)), kxGetClassName(saved)});
  }
  return {std::move(column), true, true};
}

host::Value recordedValue(const ColumnOperand& scalar) { return toValue(scalar.column); }

RecordedOperand recordedOperand(const WrittenConstant& constant) {
  return std::visit(
      []<class T>(const T& value) {
        if constexpr (std::is_same_v<T, std::string>) {
          return RecordedOperand{ElementType::String, true};
        } else {
          return numberOf(typeOf(value), value, true);
        }
      },
      constant);
}

RecordedOperand recordedOperand(const ColumnOperand& constant) {
  return constant.column.type() == ElementType::String ? RecordedOperand{ElementType::String, true}
                                                       : numberOf(constant);
}

host::Value recordedValue(const RecordedOperand& number) {
  assert(number.type != ElementType::String);
  constexpr std::array<std::size_t, 2> kOne{1, 1};
  host::Value value = matrix::from_kalvex(kxCreateNumericArray(kOne, classOf(number.type)));
  std::memcpy(kxGetMutableData(value.get()), &number.bits, elementSize(number.type));
  return value;
}

}  // namespace kv::runtime

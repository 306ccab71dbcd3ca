#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "elementValues.h"
#include "handles.h"
#include "kv/host/errors.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

using runtime::ElementType;

using Trailing = std::vector<std::int64_t>;

/// What of the inputs is known when a function is recorded.
struct InputType {
  std::string type;
  Trailing trailing;
};

std::vector<Elements> inputsOf(const host::Call& call, const std::vector<InputType>& types) {
  std::vector<Elements> inputs;
  for (std::size_t i = 0; i < types.size(); ++i) {
    const kxArray* input = call.in(static_cast<int>(i));
    inputs.push_back(
        toElements(matrix::sharedCopy(input), types[i].type, types[i].trailing, false));
  }
  return inputs;
}

/// The dimensions of a row, as Python shows them: `(3, 2)`.
std::string shapeOf(std::span<const std::int64_t> trailing) {
  return fmt::format("({}{})", fmt::join(trailing, ", "), trailing.size() == 1 ? "," : "");
}

std::size_t rowsOf(const std::vector<Elements>& inputs) {
  std::size_t rows = 1;
  for (const Elements& input : inputs) {
    const std::size_t own = input.dimensions.front();
    rows = own == 1 ? rows : own;
  }
  return rows;
}

/// A user's function with what is known of it when it is recorded.
class Body {
 public:
  Body(MappedFunction function, std::span<const Array> inputs) : mapped_(std::move(function)) {
    for (const Array& input : inputs) {
      inputTypes_.push_back({std::string(input.type()), input.trailing()});
    }
  }

  void operator()(const host::Call& call) const {
    try {
      call.out(0, toValue(checkedResult(inputsOf(call, inputTypes_))));
    } catch (const Error& error) {
      host::raiseWithMessage(error.identifier(), error.what(), error.arguments());
    } catch (const Interrupted&) {
      throw runtime::Interrupted();
    }
  }

 private:
  Elements checkedResult(std::vector<Elements> inputs) const {
    const std::size_t rows = rowsOf(inputs);
    Elements result = mapped_.function(std::move(inputs));
    if (result.dimensions.front() != rows) {
      raiseError("KALVEX:array:WrongRowCount",
                 {mapped_.name, std::to_string(rows), std::to_string(result.dimensions.front())});
    }
    if (result.type != mapped_.type) {
      raiseError("KALVEX:array:WrongType", {mapped_.name, std::string(result.type), mapped_.type});
    }
    const Trailing returned(result.dimensions.begin() + 1, result.dimensions.end());
    if (returned != mapped_.trailing) {
      raiseError("KALVEX:array:WrongShape",
                 {mapped_.name, shapeOf(mapped_.trailing), shapeOf(returned)});
    }
    return result;
  }

  MappedFunction mapped_;
  std::vector<InputType> inputTypes_;
};

}  // namespace

Array mapElements(MappedFunction function, std::span<const Array> inputs, Where where) {
  const auto session = sessionOf(inputs);
  const ElementType element = requireType(function.type);
  return publicCall(*session, where, [&] {
    const std::string name = function.name;
    const host::CallMode mode = hostMode(function.mode);
    RowTraits traits = traitsOfUnique(inputs, where);
    traits.trailing = function.trailing;
    CallInputs call;
    call.give(host::makeFunctionHandle(name, Body(std::move(function), inputs), mode));
    for (const Array& input : inputs) {
      call.lend(input.handle().value);
    }
    return makeArray(session, host::call("elementfun", call.list()), element, std::move(traits));
  });
}

Array withDimension(const Array& array) {
  RowTraits traits = array.handle().traits;
  traits.trailing.push_back(1);
  return withTraits(array, std::move(traits));
}

void requireSameDimensions(std::string_view function, std::span<const Operand> inputs,
                           Where where) {
  const Array* first = nullptr;
  for (const Operand& input : inputs) {
    const auto* array = std::get_if<Array>(&input.value());
    if (array == nullptr || (array->isScalar() && array->trailing().empty())) {
      continue;
    }
    if (first != nullptr && first->trailing().size() != array->trailing().size()) {
      const auto dimensions = [](const Array& each) {
        return std::to_string(each.trailing().size() + (each.isScalar() ? 0 : 1));
      };
      const StackFrame line{where.file_name(), where.function_name(),
                            static_cast<int>(where.line())};
      raiseError("KALVEX:array:NotBroadcast",
                 {std::string(function), dimensions(*first), dimensions(*array)}, {line});
    }
    first = array;
  }
}

}  // namespace kv

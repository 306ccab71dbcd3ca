#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "elementValues.h"
#include "handles.h"
#include "kv/host/errors.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

using runtime::ElementType;

std::vector<Elements> inputsOf(const host::Call& call, const std::vector<std::string>& types) {
  std::vector<Elements> inputs;
  for (std::size_t i = 0; i < types.size(); ++i) {
    const kxArray* input = call.in(static_cast<int>(i));
    inputs.push_back(toElements(matrix::sharedCopy(input), types[i], false));
  }
  return inputs;
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
  Body(std::string name, ElementsFunction function, std::span<const Array> inputs,
       std::string_view type)
      : name_(std::move(name)), function_(std::move(function)), type_(type) {
    for (const Array& input : inputs) {
      inputTypes_.emplace_back(input.type());
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
    Elements result = function_(std::move(inputs));
    if (result.dimensions.front() != rows) {
      raiseError("KALVEX:array:WrongRowCount",
                 {name_, std::to_string(rows), std::to_string(result.dimensions.front())});
    }
    if (result.type != type_) {
      raiseError("KALVEX:array:WrongType", {name_, std::string(result.type), type_});
    }
    return result;
  }

  std::string name_;
  ElementsFunction function_;
  std::string type_;
  std::vector<std::string> inputTypes_;
};

}  // namespace

Array mapElements(std::string name, ElementsFunction function, std::span<const Array> inputs,
                  std::string_view type, Where where) {
  const auto session = sessionOf(inputs);
  const ElementType element = requireType(type);
  return publicCall(*session, where, [&] {
    Body body(name, std::move(function), inputs, type);
    CallInputs call;
    call.give(host::makeFunctionHandle(std::move(name), std::move(body)));
    for (const Array& input : inputs) {
      call.lend(input.handle().value);
    }
    return makeArray(session, host::call("elementfun", call.list()), element,
                     traitsOfUnique(inputs, where));
  });
}

}  // namespace kv

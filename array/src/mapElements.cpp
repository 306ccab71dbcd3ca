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
  Body(MappedFunction function, std::span<const Array> inputs) : mapped_(std::move(function)) {
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
    Elements result = mapped_.function(std::move(inputs));
    if (result.dimensions.front() != rows) {
      raiseError("KALVEX:array:WrongRowCount",
                 {mapped_.name, std::to_string(rows), std::to_string(result.dimensions.front())});
    }
    if (result.type != mapped_.type) {
      raiseError("KALVEX:array:WrongType", {mapped_.name, std::string(result.type), mapped_.type});
    }
    return result;
  }

  MappedFunction mapped_;
  std::vector<std::string> inputTypes_;
};

}  // namespace

Array mapElements(MappedFunction function, std::span<const Array> inputs, Where where) {
  const auto session = sessionOf(inputs);
  const ElementType element = requireType(function.type);
  return publicCall(*session, where, [&] {
    const std::string name = function.name;
    const host::CallMode mode = hostMode(function.mode);
    CallInputs call;
    call.give(host::makeFunctionHandle(name, Body(std::move(function), inputs), mode));
    for (const Array& input : inputs) {
      call.lend(input.handle().value);
    }
    return makeArray(session, host::call("elementfun", call.list()), element,
                     traitsOfUnique(inputs, where));
  });
}

}  // namespace kv

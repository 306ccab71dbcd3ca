// The constructor of an operation class follows from the inputs that its row names, which are a
// small language: some are counts or flags of the base class, all others are properties.

#include "classes/operationConstructor.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "classes/definitionHelpers.h"
#include "classes/recordedOperation.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

void checkArity(const OperationClass& row, const kxArray* operation) {
  requireArity(row.name, row.arity, countOf(operation, "NumInputs"),
               countOf(operation, "NumOutputs"));
}

/// What the constructor of Operation is given.
struct Counts {
  Value numInputs;
  Value numOutputs;
  Value supportsPreview = host::makeLogical(false);
  Value dependsOnOnlyHead = host::makeLogical(false);

  /// Takes an input by its name; false for one that isn't a count or flag.
  bool take(std::string_view name, const kxArray* input) {
    if (name == "NumInputs") {
      numInputs = matrix::sharedCopy(input);
    } else if (name == "NumOutputs") {
      numOutputs = matrix::sharedCopy(input);
    } else if (name == "NumKept") {
      takeKept(host::toCount(input, kMaxCount));
    } else if (name == "NumArrays") {
      numInputs = matrix::sharedCopy(input);
      numOutputs = matrix::sharedCopy(input);
    } else if (name == "DependsOnOnlyHead") {
      dependsOnOnlyHead = host::makeLogical(input != nullptr && host::toLogical(input));
    } else {
      return false;
    }
    return true;
  }

 private:
  void takeKept(std::size_t kept) {
    if (kept == 0) {
      host::raise("KALVEX:NotEnoughInputs");
    }
    numInputs = host::makeDouble(static_cast<double>(kept + 1));
    numOutputs = host::makeDouble(static_cast<double>(kept));
  }
};

Value cellOfInputs(const Call& call, int first) {
  std::vector<Value> values;
  for (int i = first; i < call.nrhs; ++i) {
    values.push_back(matrix::sharedCopy(call.in(i)));
  }
  return host::makeCell(std::move(values));
}

void construct(const OperationClass& row, const Call& call) {
  Counts counts{host::makeDouble(static_cast<double>(row.arity.minInputs)), host::makeDouble(1),
                host::makeLogical(row.supportsPreview)};
  std::vector<std::pair<std::string_view, Value>> properties;
  for (std::size_t i = 0; i < row.inputs.size(); ++i) {
    const int position = static_cast<int>(i) + 1;  // after the object
    const std::string_view name = row.inputs[i];
    if (name == "Parameters") {
      properties.emplace_back(name, cellOfInputs(call, position));
    } else if (name == "PartitionStrategy" && call.nrhs <= position) {
      properties.emplace_back(name, host::makeEmptyDouble());
    } else if (!counts.take(name, call.in(position))) {
      properties.emplace_back(name, matrix::sharedCopy(call.in(position)));
    }
  }
  host::constructSuperclass(call.in(0), kOperation,
                            {counts.numInputs.get(), counts.numOutputs.get(),
                             counts.supportsPreview.get(), counts.dependsOnOnlyHead.get()});
  checkArity(row, call.in(0));
  checkInputs(row, call);
  if (row.hasCacheKey) {
    host::setSlot(call.in(0), "CacheEntryKey", host::call(kCacheEntryKey));
  }
  for (auto& [name, value] : properties) {
    host::setSlot(call.in(0), kcos::NameRef::of(name), std::move(value));
  }
}

bool isProperty(std::string_view input) {
  static constexpr std::string_view kOthers[] = {"NumInputs", "NumOutputs",        "NumKept",
                                                 "NumArrays", "DependsOnOnlyHead", "Options"};
  return std::ranges::find(kOthers, input) == std::end(kOthers);
}

host::MethodDefinition constructorOf(const OperationClass& row) {
  const int count = static_cast<int>(row.inputs.size()) + 1;  // the object too
  const std::string_view last = row.inputs.empty() ? std::string_view() : row.inputs.back();
  const bool isOpen = last == "Parameters";
  const bool isOptional = last == "DependsOnOnlyHead" || last == "PartitionStrategy";
  return constructor([&row](const Call& call) { construct(row, call); },
                     isOpen || isOptional ? count - 1 : count, isOpen ? -1 : count);
}

}  // namespace

std::size_t countOf(const kxArray* operation, kcos::NameRef property) {
  return static_cast<std::size_t>(kxGetScalar(host::getProperty(operation, property).get()));
}

host::ClassDefinition definitionOf(const OperationClass& row) {
  host::ClassDefinition definition{.name = std::string(row.name), .superclasses = {kOperation}};
  for (const std::string_view input : row.inputs) {
    if (isProperty(input)) {
      definition.properties.push_back(readOnly(std::string(input)));
    }
  }
  if (row.hasCacheKey) {
    definition.properties.push_back(readOnly("CacheEntryKey"));
  }
  definition.constructor = constructorOf(row);
  definition.savedForm = host::SavedForm{
      nullptr, [&row](const kxArray* operation, const kxArray*) { checkArity(row, operation); }};
  return definition;
}

}  // namespace kv::runtime

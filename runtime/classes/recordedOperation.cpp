// The same code of an operator's file reads the properties of an operation and, before there is
// one, the inputs of its constructor: both are values by name.

#include "classes/recordedOperation.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "classes/DatastoreValue.h"
#include "driver/builtInFunctions.h"
#include "driver/partitionSource.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

bool isRowOfText(const kxArray* value) {
  return kxGetClassID(value) == kxCHAR_CLASS
             ? kxGetM(value) == 1
             : Torvane::String::isString(value) && kxIsScalar(value);
}

RecordedValue recorded(const kxArray* value) {
  RecordedValue recorded{kxGetClassName(value)};
  if (isRowOfText(value)) {
    recorded.text = host::toText(value);
  } else if (kxIsNumeric(value) && kxIsScalar(value)) {
    recorded.number = kxGetScalar(value);
  }
  return recorded;
}

/// A parameter, or what a LocalArray holds.
RecordedValue recordedParameter(const kxArray* given) {
  return kxIsA(given, kLocalArray) ? recorded(host::getProperty(given, "Value").get())
                                   : recorded(given);
}

/// What operations and the inputs of constructors have in common.
class NamedValues : public RecordedOperation {
 public:
  double number(std::string_view property) const final { return kxGetScalar(at(property).get()); }
  bool flag(std::string_view property) const final { return host::toLogical(at(property).get()); }
  std::string text(std::string_view property) const final {
    return host::toText(at(property).get());
  }
  std::vector<std::string> texts(std::string_view property) const final {
    return host::toTexts(at(property).get());
  }
  RecordedValue value(std::string_view property) const final {
    return recorded(at(property).get());
  }

  RecordedFunction function(std::string_view property) const final {
    const Value function = at(property);
    const Value handle = host::getProperty(function.get(), "Handle");
    return {builtInFunction(handle.get()), functionLabel(handle.get()), functionName(handle.get()),
            host::isTrusted(function.get()) && host::isTrusted(handle.get()),
            isFreeFunction(handle.get())};
  }

  RecordedSource source() const final {
    const Value datastore = at("Datastore");
    const Value strategy = at("PartitionStrategy");
    return {partitionSource(datastoreOf(datastore.get()), strategy.get()),
            host::isTrusted(datastore.get())};
  }

  std::int64_t partitionsOf(std::string_view property, std::int64_t most) const final {
    const Value strategy = at(property);
    const Value one = host::makeDouble(1);
    const Value limit = host::makeDouble(static_cast<double>(most));
    const Value resolved = host::call(
        "resolve", {strategy.get(), one.get(), limit.get(), host::makeLogical(false).get()});
    const Value partitions = host::getProperty(resolved.get(), "MinNumPartitions");
    return static_cast<std::int64_t>(
        host::toCount(partitions.get(), static_cast<std::size_t>(most)));
  }

 protected:
  virtual Value at(std::string_view property) const = 0;
};

class OperationProperties final : public NamedValues {
 public:
  explicit OperationProperties(const kxArray* operation) : operation_(operation) {}

  std::size_t numInputs() const override {
    return static_cast<std::size_t>(kxGetScalar(at("NumInputs").get()));
  }
  std::vector<RecordedValue> parameters() const override {
    const Value cell = at("Parameters");
    std::vector<RecordedValue> values;
    for (std::size_t i = 0; i < kxGetNumberOfElements(cell.get()); ++i) {
      values.push_back(recordedParameter(kxGetCell(cell.get(), i)));
    }
    return values;
  }
  bool passesTagged() const override { return runtime::passesTagged(operation_); }

 private:
  Value at(std::string_view property) const override {
    return host::getProperty(operation_, kcos::NameRef::of(property));
  }

  const kxArray* operation_;
};

class ConstructorInputs final : public NamedValues {
 public:
  ConstructorInputs(const OperationClass& row, const host::Call& call) : row_(row), call_(call) {}

  std::size_t numInputs() const override { return host::toCount(at("NumInputs").get(), kMaxCount); }
  std::vector<RecordedValue> parameters() const override {
    std::vector<RecordedValue> values;
    for (int i = indexOf("Parameters"); i < call_.nrhs; ++i) {
      values.push_back(recordedParameter(call_.in(i)));
    }
    return values;
  }
  bool passesTagged() const override { return false; }

 private:
  /// The object comes first.
  int indexOf(std::string_view input) const {
    const auto found = std::ranges::find(row_.inputs, input);
    assert(found != row_.inputs.end());
    return static_cast<int>(found - row_.inputs.begin()) + 1;
  }
  Value at(std::string_view property) const override {
    return matrix::sharedCopy(call_.in(indexOf(property)));
  }

  const OperationClass& row_;
  const host::Call& call_;
};

}  // namespace

void describeOperation(const OperationClass& row, const kxArray* operation, OpSpec& spec) {
  row.describe(OperationProperties(operation), spec);
}

void checkInputs(const OperationClass& row, const host::Call& call) {
  if (row.check != nullptr) {
    row.check(ConstructorInputs(row, call));
  }
}

bool passesTagged(const kxArray* operation) {
  const Value options = host::getSlot(operation, "Options");
  return kcos::omIsKCOS(options.get()) && !kxIsEmpty(options.get()) &&
         host::toLogical(host::getProperty(options.get(), "PassTaggedInputs").get());
}

}  // namespace kv::runtime

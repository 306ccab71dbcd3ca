// A loaded file may hold what no program can record. Two such forms would hurt: a closure with
// other inputs than its operation, since operators index them without a check, and a long text that
// many closures share, since a plan repeats it for each and a small file could become gigabytes.

#include "classes/loadedOperations.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "classes/DatastoreValue.h"
#include "classes/operationConstructor.h"
#include "operator/operations.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::LoadRefusal;
using host::Value;

/// The maximum of repeated text, in bytes, that plans may show for what closures share.
constexpr std::size_t kMaxRepeated = 1'000'000;
/// Bytes of a table column in a plan, in addition to its name.
constexpr std::size_t kColumnBytes = 32;

/// Whether classes of operations belong to the runtime; determined once per class.
class OwnClasses {
 public:
  bool contains(const kxArray* operation) {
    const auto id = kcos::omGetArrayElement(operation, 0)->getClassObject()->getClassId();
    const auto [found, isNew] = known_.try_emplace(id);
    if (isNew) {
      found->second = std::ranges::any_of(operationClasses(), [&](const OperationClass* row) {
        return kxIsA(operation, kcos::NameRef::of(row->name));
      });
    }
    return found->second;
  }

 private:
  std::unordered_map<kcos::COSInternedBase, bool> known_;
};

/// Checks that closures of the runtime's operations have as many inputs as the operations.
std::optional<LoadRefusal> validateInputs(std::span<const kxArray* const> objects) {
  OwnClasses own;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    if (!kxIsA(objects[i], kClosure)) {
      continue;
    }
    const Value operation = host::getProperty(objects[i], "Operation");
    const Value inputs = host::getProperty(objects[i], "InputFutures");
    const std::size_t count = kxGetNumberOfElements(inputs.get());
    if (own.contains(operation.get()) && count != countOf(operation.get(), "NumInputs")) {
      return LoadRefusal{
          i, fmt::format("a Closure has {} inputs and its {} {}", count,
                         kxGetClassName(operation.get()), countOf(operation.get(), "NumInputs"))};
    }
  }
  return std::nullopt;
}

/// The length of a plan's text about a source.
std::size_t describedBytes(const kxArray* object) {
  const auto* value = dynamic_cast<const DatastoreValue*>(host::getNativeValue(object));
  if (value == nullptr || value->datastore == nullptr) {
    return 0;
  }
  const Datastore& source = *value->datastore;
  std::size_t bytes = source.displayName().size() + source.fingerprint().size();
  for (const ColumnInfo& column : source.schema()) {
    bytes += column.name.size() + kColumnBytes;
  }
  return bytes;
}

std::size_t textBytes(const kxArray* texts) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; Torvane::String::isString(texts) && i < kxGetNumberOfElements(texts);
       ++i) {
    bytes += Torvane::String::getString(texts, i).value_or(std::u16string_view()).size();
  }
  return kxGetClassID(texts) == kxCHAR_CLASS ? kxGetNumberOfElements(texts) : bytes;
}

/// What is shown of an operation, and the object that contains it: a datastore or the operation.
struct Subject {
  Value object;
  Value shown;

  static Subject of(Value operation) {
    for (const OperationClass* row : operationClasses()) {
      if (!row->shownProperty.empty() && kxIsA(operation.get(), kcos::NameRef::of(row->name))) {
        Value shown = host::getProperty(operation.get(), kcos::NameRef::of(row->shownProperty));
        const bool isObject = kcos::omIsKCOS(shown.get()) && kxIsScalar(shown.get());
        return {matrix::sharedCopy(isObject ? shown.get() : operation.get()), std::move(shown)};
      }
    }
    return {};
  }

  std::size_t bytes() const {
    return kcos::omIsKCOS(shown.get()) ? describedBytes(object.get()) : textBytes(shown.get());
  }
};

std::optional<LoadRefusal> validateShown(std::span<const kxArray* const> objects) {
  std::unordered_map<const kcos::COSInterface*, std::size_t> known;
  std::size_t left = kMaxRepeated;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    if (!kxIsA(objects[i], kClosure)) {
      continue;
    }
    const Subject subject = Subject::of(host::getProperty(objects[i], "Operation"));
    if (subject.object == nullptr) {
      continue;
    }
    const auto [found, isNew] =
        known.try_emplace(kcos::omGetArrayElement(subject.object.get(), 0).get());
    if (isNew) {
      found->second = subject.bytes();
    } else if (found->second > left) {
      return LoadRefusal{i, "plans would show one long name, or list of columns, many times"};
    } else {
      left -= found->second;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<LoadRefusal> validateOperations(std::span<const kxArray* const> objects) {
  std::optional<LoadRefusal> refusal = validateInputs(objects);
  return refusal ? refusal : validateShown(objects);
}

}  // namespace kv::runtime

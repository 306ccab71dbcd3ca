#pragma once

#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "kv/host/session.h"
#include "name/NameMap.h"

namespace kv::host {

class ClassRecord;

/// What a name means when it is called, in order of precedence.
struct Binding {
  std::shared_ptr<const NativeBody> function;
  ClassRecord* classRecord = nullptr;
  ClassRecord* staticOwner = nullptr;  ///< with `staticName`: a static method "Class.name"
  kcos::COSInternedBase staticName;
  RawBuiltin rawBuiltin = nullptr;
  OwningBuiltin owningBuiltin = nullptr;
  bool isLibrary = false;  ///< the function was defined by a library, not by the program
};

/// What the names of a session mean: one probe finds every meaning of a name.
///
/// 1. A binding keeps its address for the whole session; a redefinition changes its contents.
/// 2. A body that is replaced while calls run is kept until the last of them has returned.
class CallTable {
 public:
  CallTable();

  /// Null if the name means nothing.
  Binding* find(kcos::COSInternedBase name) const noexcept {
    Binding* const* found = names_.find(name);
    return found != nullptr ? *found : nullptr;
  }
  /// The binding of the name, an empty one if it is new.
  Binding& binding(kcos::COSInternedBase name);

  void defineFunction(kcos::COSInternedBase name, NativeBody body);

  /// Whether functions that are defined from here on are a library's. Result: what was set before.
  bool setLoadingLibrary(bool isLoading) noexcept {
    return std::exchange(isLoadingLibrary_, isLoading);
  }

  /// Keeps what is replaced until no call runs.
  void retire(std::shared_ptr<const void> replaced);
  void enterCall() noexcept { ++running_; }
  bool hasRunningCalls() const noexcept { return running_ != 0; }
  void leaveCall() noexcept {
    if (--running_ == 0 && !retired_.empty()) {
      dropRetired();
    }
  }

  /// Drops every function.
  void clear() noexcept;

  /// "feval", which is dispatched on its first input alone.
  kcos::COSInternedBase fevalName() const noexcept { return fevalName_; }

 private:
  void dropRetired() noexcept;

  std::deque<Binding> bindings_;
  NameMap<Binding*> names_;
  std::vector<std::shared_ptr<const void>> retired_;
  int running_ = 0;
  bool isLoadingLibrary_ = false;
  kcos::COSInternedBase fevalName_;
};

}  // namespace kv::host

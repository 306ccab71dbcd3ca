#include "session/CallTable.h"

#include "session/hostFunctions.h"

namespace kv::host {

CallTable::CallTable() : fevalName_(kcos::internal::makeInterned("feval")) {
  binding(fevalName_).rawBuiltin = fevalBuiltin;
  binding(kcos::internal::makeInterned("str2func")).rawBuiltin = str2funcBuiltin;
}

Binding& CallTable::binding(kcos::COSInternedBase name) {
  Binding*& found = names_[name];
  if (found == nullptr) {
    found = &bindings_.emplace_back();
  }
  return *found;
}

void CallTable::defineFunction(kcos::COSInternedBase name, NativeBody body) {
  Binding& found = binding(name);
  auto function = std::make_shared<const NativeBody>(std::move(body));
  retire(std::exchange(found.function, std::move(function)));
  found.isLibrary = isLoadingLibrary_;
}

void CallTable::retire(std::shared_ptr<const void> replaced) {
  if (running_ > 0 && replaced != nullptr) {
    retired_.push_back(std::move(replaced));
  }
}

void CallTable::dropRetired() noexcept {
  // What is dropped may run code that retires more.
  const std::vector<std::shared_ptr<const void>> dropped = std::move(retired_);
  retired_.clear();
}

void CallTable::clear() noexcept {
  dropRetired();
  for (Binding& binding : bindings_) {
    binding.function = nullptr;
  }
}

}  // namespace kv::host

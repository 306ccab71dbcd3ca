#include <memory>

#include "heap/Array.h"
#include "heap/FunctionValue.h"
#include "heap/Heap.h"

namespace kv::host {

Value makeFunctionHandle(FunctionValue handle) {
  auto payload = std::make_unique<FunctionPayload>(std::move(handle));
  const bool isCallable = payload->isCallable();
  Value array = matrix::from_kalvex(new kxArray(kxFUNCTION_CLASS, 1, 1));
  array->putPayload(payload.release());
  if (Heap* heap = Heap::current(); heap != nullptr && isCallable) {
    array->settleIn(heap->queue());  // what it captured is dropped in the session that made it
  }
  return array;
}

const FunctionValue* functionValue(const kxArray* handle) noexcept {
  return kxGetClassID(handle) == kxFUNCTION_CLASS
             ? &static_cast<const FunctionPayload*>(handle->payload)->value
             : nullptr;
}

Value makeFunctionHandle(std::string_view name) {
  return makeFunctionHandle(
      FunctionValue{.name = kcos::internal::makeInterned(kcos::NameRef::of(name))});
}

Value makeFunctionHandle(std::string_view name, NativeBody body) {
  return makeFunctionHandle(FunctionValue{
      .name = kcos::internal::makeInterned(kcos::NameRef::of(name)), .body = std::move(body)});
}

std::string functionName(const kxArray* handle) {
  const FunctionValue* function = functionValue(handle);
  const bool isNamed = function != nullptr && function->body == nullptr && !function->isPlaceholder;
  return isNamed ? std::string(function->name.text()) : std::string();
}

std::string callableName(const kxArray* handle) {
  const FunctionValue* function = functionValue(handle);
  return function != nullptr ? std::string(function->name.text()) : std::string();
}

const NativeBody* callableBody(const kxArray* handle) noexcept {
  const FunctionValue* function = functionValue(handle);
  return function != nullptr && function->body != nullptr ? &function->body : nullptr;
}

}  // namespace kv::host

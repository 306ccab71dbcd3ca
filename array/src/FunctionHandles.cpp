#include "FunctionHandles.h"

#include "kv/host/freeFunctions.h"
#include "kv/runtime/functionNames.h"

namespace kv {

const kxArray* FunctionHandles::of(const runtime::ElementFunction& function) {
  host::Value& handle = made_[{&function, 0}];
  if (handle == nullptr) {
    handle = host::makeFunctionHandle(runtime::elementFunctionName(function.name));
  }
  return handle.get();
}

const kxArray* FunctionHandles::of(const runtime::AggregateFunction& function,
                                   const runtime::AggregateForm& form) {
  const bool propagates = form.missing == runtime::MissingRule::Propagate;
  const unsigned number =
      (propagates ? 4U : 0U) | (form.isWhole ? 2U : 0U) | (form.needsRows ? 1U : 0U);
  host::Value& handle = made_[{&function, number}];
  if (handle == nullptr) {
    handle = host::makeFunctionHandle(runtime::aggregateFunctionName(function.name, form));
  }
  return handle.get();
}

}  // namespace kv

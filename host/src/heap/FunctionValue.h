#pragma once

#include "kcos/interned.h"
#include "kv/host/values.h"

namespace kv::host {

/// What a function handle refers to: a function by its name, or a callable.
struct FunctionValue {
  kcos::COSInternedBase name;  ///< of a callable: what stacks and messages call it
  NativeBody body;             ///< none for a handle of a named function
};

/// Lives: as long as the array. Null if `handle` isn't a function handle.
const FunctionValue* functionValue(const kxArray* handle) noexcept;

}  // namespace kv::host

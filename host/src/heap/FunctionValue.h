#pragma once

#include "kcos/interned.h"
#include "kv/host/values.h"

namespace kv::host {

/// What a function handle refers to: a function by its name, or a callable.
struct FunctionValue {
  kcos::COSInternedBase name{};  ///< of a callable: its name in stacks and messages
  NativeBody body{};             ///< none for a handle of a named function
  bool isUntrusted = false;      ///< came from a file that wasn't trusted
  bool isPlaceholder = false;    ///< the name is that of a callable, which wasn't saved
};

/// A 1-by-1 function handle.
Value makeFunctionHandle(FunctionValue handle);

/// Lives: as long as the array. Null if `handle` isn't a function handle.
const FunctionValue* functionValue(const kxArray* handle) noexcept;

}  // namespace kv::host

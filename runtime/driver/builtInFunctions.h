#pragma once

#include <string>

#include "kv/host/values.h"
#include "operator/operations.h"

/// Which functions of users' operations are the runtime's own.
namespace kv::runtime {

/// The built-in function that a function_handle names: see functionNames.h.
BuiltInFunction builtInFunction(const kxArray* handle);

/// True if a FunctionHandle holds a built-in function.
bool isBuiltInHandle(const kxArray* functionHandle);

/// True if the function of a function_handle may run in any session, on any thread.
bool isFreeFunction(const kxArray* handle);

/// The name of the function of a function_handle, by which it may be found elsewhere; empty for one
/// without a name, or anything else.
std::string functionName(const kxArray* handle);

/// How plans call the function of a function_handle.
std::string functionLabel(const kxArray* handle);

}  // namespace kv::runtime

#pragma once

#include <string>

#include "exchange/GroupFold.h"
#include "kv/host/values.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"

/// Which functions of users' operations are the runtime's own.
namespace kv::runtime {

/// A built-in function; neither for a user-defined one.
struct BuiltInFunction {
  const ElementFunction* element = nullptr;
  const AggregateFunction* aggregate = nullptr;
  const GroupFunction* group = nullptr;  ///< of all aggregates, and of some that are none
  AggregateForm form{};

  bool operator==(const BuiltInFunction&) const = default;
};

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

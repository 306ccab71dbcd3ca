#pragma once

#include <boost/container_hash/hash.hpp>
#include <unordered_map>
#include <utility>

#include "kv/host/values.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv {

/// Handles of the built-in functions of a session, each made when it is first used. A handle is
/// immutable, so that all calls can have the same one.
class FunctionHandles {
 public:
  /// Lives: as long as this.
  const kxArray* of(const runtime::ElementFunction& function);
  const kxArray* of(const runtime::AggregateFunction& function, const runtime::AggregateForm& form);

 private:
  using Key = std::pair<const void*, unsigned>;  ///< a row of a table, and its form

  std::unordered_map<Key, host::Value, boost::hash<Key>> made_;
};

}  // namespace kv

#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "kv/runtime/Aggregates.h"

namespace kv::runtime {

class GroupFold;

/// One row of the table of functions of groups.
struct GroupFunction {
  std::string_view name;
  std::string_view summary;

  /// The type of the result; empty if the function isn't defined for the type.
  std::optional<ElementType> (*type)(ElementType input);

  /// Requires: it is defined for the type.
  std::unique_ptr<GroupFold> (*fold)(MissingRule rule, ElementType type);

  bool countsRows = false;  ///< whatever their values, so it needs none
};

/// All functions of groups: the aggregates, and those that need the order of rows.
std::span<const GroupFunction> groupFunctions();

/// The function of that name, or null.
const GroupFunction* findGroupFunction(std::string_view name);

/// Errors: "KALVEX:function:BadTypes" with function and type if it isn't defined for the type.
ElementType groupFunctionType(const GroupFunction& function, ElementType input);

}  // namespace kv::runtime

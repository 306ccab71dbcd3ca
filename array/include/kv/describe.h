#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kv/array.h"

/// The host's classes, as they were registered.
namespace kv {

struct MemberDescription {
  std::string kind;  ///< "constructor", "property" or "method"
  std::string name;  ///< empty for a constructor
  int access = 0;    ///< of constructors and methods: 0 public, 1 protected, 2 private
  int getAccess = 0;
  int setAccess = 0;
  unsigned flags = 0;
  std::string form;  ///< of methods: "fixed", "variadic", "abstract" or "declared"
  bool isStatic = false;
  int inputs = -1;  ///< a count that includes the object; -1 means variadic
  int outputs = -1;
};

struct ClassDescription {
  std::string name;
  std::vector<std::string> superclasses;
  bool isSealed = false;
  bool isNative = false;
  std::vector<MemberDescription> members;  ///< in the order of registration
};

/// Full names of the classes that the native core registered, in that order.
std::vector<std::string> classNames(Session& session);

/// A class as it was registered, by its full name.
/// Errors: Error "KALVEX:UndefinedFunction" with the name.
ClassDescription describe(Session& session, std::string_view name);

/// Release of the product, such as "0.1.0".
std::string_view release();

}  // namespace kv

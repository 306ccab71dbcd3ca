#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kcos/class.h"
#include "kv/host/values.h"

/// Definitions of language classes: classes whose bodies are given in C++ or by a front end.
/// A definition record is immutable once it is handed to a session, and may be shared by sessions.
namespace kv::host {

using kcos::MemberAccess;

/// Makes the default of a property for a new object; null function means `[]`.
using PropertyDefault = std::function<Value()>;

struct PropertyDefinition {
  std::string name{};
  PropertyDefault makeDefault{};
  MemberAccess getAccess = MemberAccess::Public;
  MemberAccess setAccess = MemberAccess::Public;
  /// Computes the value on each read instead of storing one: called as a method with one output.
  NativeBody compute{};
};

/// Number of inputs, the object included, that a body takes; -1 as maximum means any number.
struct Arity {
  int minInputs = 0;
  int maxInputs = -1;
};

struct MethodDefinition {
  std::string name{};
  NativeBody body{};  ///< none for an abstract method
  MemberAccess access = MemberAccess::Public;
  Arity arity{};
  bool isStatic = false;
  bool isAbstract = false;
};

/// What of an object is saved besides its stored properties, for classes whose objects own a C++
/// value; without one such objects can't be saved.
struct SavedForm {
  /// The value to save with the object; null for none.
  std::function<Value(const kxArray* object)> save{};
  /// Gives a loaded object, whose properties are set, its C++ value from what `save` returned; null
  /// where the file has nothing. Must not trust it, open anything or run a user's code.
  /// Errors: any; the file is then refused with its text.
  std::function<void(const kxArray* object, const kxArray* saved)> restore{};
};

struct ClassDefinition {
  std::string name{};  ///< full, with packages
  std::vector<std::string> superclasses{};
  std::vector<PropertyDefinition> properties{};
  /// Called with the new object first. A superclass constructor that it doesn't run by
  /// `constructSuperclass` is run by the host, without inputs, before the body's first use of it.
  std::optional<MethodDefinition> constructor{};
  std::vector<MethodDefinition> methods{};
  bool isSealed = false;
  std::optional<SavedForm> savedForm{};
};

/// Bodies for methods that a native class only declares.
struct ClassCompletion {
  std::string name{};
  std::vector<MethodDefinition> methods{};
};

/// Runs the constructor of a superclass on an object under construction; for constructor bodies.
/// Errors: "KALVEX:class:NoSuchMember" if `superclass` isn't a direct one of the class whose
/// constructor runs.
KV_HOST_API void constructSuperclass(const kxArray* object, kcos::NameRef superclass,
                                     std::span<const kxArray* const> inputs);
inline void constructSuperclass(const kxArray* object, kcos::NameRef superclass,
                                std::initializer_list<const kxArray*> inputs) {
  constructSuperclass(object, superclass, std::span(inputs.begin(), inputs.size()));
}

}  // namespace kv::host

#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kv/host/definitions.h"
#include "kv/host/session.h"

/// Helpers with which the runtime writes its class definitions as tables.
namespace kv::runtime {

inline host::MethodDefinition method(std::string name, host::NativeBody body, int minInputs,
                                     int maxInputs) {
  return {.name = std::move(name), .body = std::move(body), .arity = {minInputs, maxInputs}};
}

inline host::MethodDefinition protectedMethod(std::string name, host::NativeBody body,
                                              int minInputs, int maxInputs) {
  host::MethodDefinition definition =
      method(std::move(name), std::move(body), minInputs, maxInputs);
  definition.access = host::MemberAccess::Protected;
  return definition;
}

inline host::MethodDefinition staticMethod(std::string name, host::NativeBody body, int minInputs,
                                           int maxInputs) {
  return {.name = std::move(name),
          .body = std::move(body),
          .arity = {minInputs, maxInputs},
          .isStatic = true};
}

inline host::MethodDefinition abstractMethod(std::string name) {
  return {.name = std::move(name), .isAbstract = true};
}

/// A constructor whose body receives the object first; the counts include it.
inline host::MethodDefinition constructor(host::NativeBody body, int minInputs, int maxInputs) {
  return {.body = std::move(body), .arity = {minInputs, maxInputs}};
}

/// A property that everyone can read and only the class can write.
inline host::PropertyDefinition readOnly(std::string name) {
  return {.name = std::move(name), .setAccess = host::MemberAccess::Private};
}

/// A property that is computed on each read.
inline host::PropertyDefinition computed(std::string name, host::NativeBody body) {
  return {.name = std::move(name),
          .setAccess = host::MemberAccess::Immutable,
          .compute = std::move(body)};
}

/// For a class whose objects consist only of their properties: checks a loaded object and raises an
/// error if its methods couldn't rely on the properties.
inline host::SavedForm checkedOnLoad(void (*check)(const kxArray* object)) {
  return {.save = [](const kxArray*) { return host::Value(); },
          .restore = [check](const kxArray* object, const kxArray*) { check(object); }};
}

inline void define(host::Session& session, host::ClassDefinition definition) {
  session.defineClass(std::make_shared<const host::ClassDefinition>(std::move(definition)));
}

inline void complete(host::Session& session, std::string name,
                     std::vector<host::MethodDefinition> methods) {
  session.completeClass(std::make_shared<const host::ClassCompletion>(
      host::ClassCompletion{std::move(name), std::move(methods)}));
}

}  // namespace kv::runtime

#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kv/host/definitions.h"
#include "kv/host/session.h"

/// Short forms in which the runtime writes its class definitions as tables.
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

/// A constructor whose body gets the object first; counts include it.
inline host::MethodDefinition constructor(host::NativeBody body, int minInputs, int maxInputs) {
  return {.body = std::move(body), .arity = {minInputs, maxInputs}};
}

/// A property that everybody reads and only the class writes.
inline host::PropertyDefinition readOnly(std::string name) {
  return {.name = std::move(name), .setAccess = host::MemberAccess::Private};
}

/// A property that is computed on each read.
inline host::PropertyDefinition computed(std::string name, host::NativeBody body) {
  return {.name = std::move(name),
          .setAccess = host::MemberAccess::Immutable,
          .compute = std::move(body)};
}

/// Of a class whose objects are no more than their properties: looks at a loaded one, and raises
/// where its methods couldn't rely on what stands there.
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

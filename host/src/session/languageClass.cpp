#include "session/languageClass.h"

#include <algorithm>

#include "name/names.h"
#include "session/access.h"

namespace kv::host {

namespace {

Method methodOf(const ClassRecord& record, const MethodDefinition& definition) {
  return {.name = interned(definition.name),
          .owner = &record,
          .access = definition.access,
          .counts = {.minInputs = std::max(definition.arity.minInputs, definition.isStatic ? 0 : 1),
                     .maxInputs = definition.arity.maxInputs},
          .isStatic = definition.isStatic,
          .isAbstract = definition.isAbstract,
          .body = definition.body != nullptr ? &definition.body : nullptr};
}

Property propertyOf(const ClassRecord& record, const PropertyDefinition& definition) {
  const bool isComputed = definition.compute != nullptr;
  return {.name = requireName(definition.name),
          .owner = &record,
          .getAccess = definition.getAccess,
          .setAccess = isComputed ? MemberAccess::None : definition.setAccess,
          .flags = isComputed ? kcos::COSPropT::kDerived : kcos::COSPropT::kStored,
          .definition = &definition};
}

/// The class's own declaration of a method that a definition may give a body to.
const Method* declarationOf(const ClassRecord& record, const MethodDefinition& definition) {
  const kcos::COSInternedBase name = interned(definition.name);
  const auto& methods = record.contents().methods;
  const auto found = std::find_if(methods.begin(), methods.end(), [&](const Method& method) {
    return record.isNative() && method.name == name && method.native == nullptr &&
           method.isStatic == definition.isStatic;
  });
  return found != methods.end() ? &*found : nullptr;
}

bool defines(const ClassCompletion& completion, kcos::COSInternedBase name) {
  return std::any_of(completion.methods.begin(), completion.methods.end(),
                     [&](const MethodDefinition& method) { return method.name == name.text(); });
}

void addMethod(CompletedMethods& completed, Method method) {
  completed.methods.push_back(method);
  completed.sets[completed.methods.back().name].push_back(&completed.methods.back());
}

}  // namespace

std::shared_ptr<ClassContents> languageContents(const ClassRecord& record,
                                                std::shared_ptr<const ClassDefinition> definition) {
  auto contents = std::make_shared<ClassContents>();
  for (const std::string& name : definition->superclasses) {
    contents->superclasses.push_back(requireName(name));
  }
  if (definition->constructor) {
    Method constructor = methodOf(record, *definition->constructor);
    constructor.name = record.shortName();
    contents->constructors.push_back(constructor);
    contents->order.emplace_back(&contents->constructors.back());
  }
  for (const PropertyDefinition& property : definition->properties) {
    contents->properties.push_back(propertyOf(record, property));
    contents->order.emplace_back(&contents->properties.back());
  }
  for (const MethodDefinition& method : definition->methods) {
    requireName(method.name);
    contents->methods.push_back(methodOf(record, method));
    contents->order.emplace_back(&contents->methods.back());
  }
  contents->definition = std::move(definition);
  return contents;
}

std::shared_ptr<CompletedMethods> completedMethods(
    const ClassRecord& record, const CompletedMethods* before,
    std::shared_ptr<const ClassCompletion> completion) {
  auto completed = std::make_shared<CompletedMethods>();
  for (const MethodDefinition& definition : completion->methods) {
    const Method* declaration = declarationOf(record, definition);
    if (declaration == nullptr) {
      raiseNoSuchMember(record, interned(definition.name));
    }
    Method method = methodOf(record, definition);
    method.access = declaration->access;
    addMethod(*completed, method);
  }
  if (before != nullptr) {
    completed->sources = before->sources;
    for (const Method& method : before->methods) {
      if (!defines(*completion, method.name)) {
        addMethod(*completed, method);
      }
    }
  }
  completed->sources.push_back(std::move(completion));
  return completed;
}

}  // namespace kv::host

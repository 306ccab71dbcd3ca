#pragma once

#include <memory>

#include "session/ClassRecord.h"

namespace kv::host {

/// The members of a class of a language, from its definition.
/// Errors: "KALVEX:validateattributes:invalidType" for an empty name.
std::shared_ptr<ClassContents> languageContents(const ClassRecord& record,
                                                std::shared_ptr<const ClassDefinition> definition);

/// What completes `record` once `completion` is added to `before` (null: nothing): the bodies of
/// a name that comes again are replaced.
/// Errors: "KALVEX:class:NoSuchMember" for a method that the class doesn't declare.
std::shared_ptr<CompletedMethods> completedMethods(
    const ClassRecord& record, const CompletedMethods* before,
    std::shared_ptr<const ClassCompletion> completion);

}  // namespace kv::host

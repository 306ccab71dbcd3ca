#pragma once

#include <memory>
#include <vector>

#include "kcos/interned.h"
#include "kv/host/definitions.h"

namespace kv::host {

struct SessionState;

/// What the program, as opposed to libraries, has defined in a session, in the order of definition;
/// each function and class once. In the session's store.
struct ProgramJournal {
  std::vector<kcos::COSInternedBase> functions{};
  std::vector<std::shared_ptr<const ClassDefinition>> classes{};
  std::vector<std::shared_ptr<const ClassCompletion>> completions{};
  int librariesLoading = 0;  ///< nothing is noted while a library loads

  static ProgramJournal& of(SessionState& session);

  void note(kcos::COSInternedBase function);
  void note(std::shared_ptr<const ClassDefinition> definition);
  void note(std::shared_ptr<const ClassCompletion> completion);
};

}  // namespace kv::host

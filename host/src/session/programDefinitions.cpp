#include "session/programDefinitions.h"

#include <algorithm>
#include <typeinfo>
#include <utility>

#include "foundation/usm.h"
#include "session/SessionState.h"

namespace kv::host {

ProgramJournal& ProgramJournal::of(SessionState& session) {
  using Store = foundation::usm::Detail<foundation::usm::scope::Kvm>;
  static const std::size_t id = Store::getNextID(typeid(ProgramJournal));
  if (foundation::usm::Slot* slot = session.store.find(id)) {
    return *static_cast<ProgramJournal*>(slot->get());
  }
  auto journal = std::make_unique<ProgramJournal>();
  foundation::usm::Slot slot(journal.release(),
                             [](void* stored) { delete static_cast<ProgramJournal*>(stored); });
  return *static_cast<ProgramJournal*>(session.store.findOrInsert(id, std::move(slot)).get());
}

void ProgramJournal::note(kcos::COSInternedBase function) {
  if (librariesLoading == 0 && std::ranges::find(functions, function) == functions.end()) {
    functions.push_back(function);
  }
}

void ProgramJournal::note(std::shared_ptr<const ClassDefinition> definition) {
  if (librariesLoading > 0) {
    return;
  }
  const auto known = std::ranges::find_if(
      classes, [&](const auto& each) { return each->name == definition->name; });
  if (known != classes.end()) {
    *known = std::move(definition);
  } else {
    classes.push_back(std::move(definition));
  }
}

void ProgramJournal::note(std::shared_ptr<const ClassCompletion> completion) {
  if (librariesLoading == 0) {
    completions.push_back(std::move(completion));
  }
}

}  // namespace kv::host

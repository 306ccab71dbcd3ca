#include "class/instances.h"

#include <vector>

#include "class/construction.h"
#include "class/objects.h"
#include "class/properties.h"
#include "session/SessionState.h"

namespace kv::host {
namespace {

using Stored = std::pair<std::string, Value>;

/// The properties that a copy takes over: those that are stored and can be set.
std::vector<Stored> storedProperties(const kxArray* object, const ClassRecord& record) {
  std::vector<Stored> stored;
  for (const ClassRecord* part : record.linked().lineage) {
    for (const Property& property : part->contents().properties) {
      const PropertyPlace* place = record.linked().properties.find(property.name);
      if (property.flags == kcos::COSPropT::kStored && place->property == &property) {
        const std::string name(property.name.text());
        stored.emplace_back(name, getSlot(object, kcos::NameRef::of(name)));
      }
    }
  }
  return stored;
}

}  // namespace

Value loadInstance(SessionState& session, ClassRecord& record,
                   std::span<const std::pair<std::string, const kxArray*>> properties) {
  const kcos::COSInterfacePtr object = newInstance(session, record);
  constructShell(session, *Object::of(object.get()));
  Value loaded = arrayOf(*Object::of(object.get()));
  for (const auto& [name, value] : properties) {
    setSlot(loaded.get(), kcos::NameRef::of(name), matrix::sharedCopy(value));
  }
  if (const ClassRecord* native = record.linked().native) {
    native->info()->instanceLoaded(object);
  }
  return loaded;
}

Value copyInstance(SessionState& session, Object& object) {
  const Value original = arrayOf(object);
  auto& record = static_cast<ClassRecord&>(object.objectClass());
  const kcos::COSInterfacePtr made = newInstance(session, record);
  constructShell(session, *Object::of(made.get()));
  Value copy = arrayOf(*Object::of(made.get()));
  for (auto& [name, value] : storedProperties(original.get(), record)) {
    setSlot(copy.get(), kcos::NameRef::of(name), std::move(value));
  }
  return copy;
}

}  // namespace kv::host

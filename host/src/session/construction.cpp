// Construction is the one operation in which user code, the host and native code alternate on a
// half-made object: the constructor of a language class decides when to construct its superclasses,
// may use the object in between, and may do it never. The chain of `Construction` records notes
// which parts are made, and everything that uses a member first asks for the part of its class. A
// failure at any point deletes the object, and with it the native part if there is one.

#include "session/construction.h"

#include <algorithm>
#include <string>
#include <vector>

#include "kv/host/construction.h"
#include "kv/host/errors.h"
#include "session/access.h"
#include "session/edge.h"
#include "session/invoke.h"
#include "session/objects.h"
#include "session/overloads.h"
#include "session/running.h"

namespace kv::host {

namespace {

using Parts = boost::container::small_vector<const ClassRecord*, 8>;

void refuseMissingSuperclass(const LinkedClass& linked) {
  if (!linked.missing.empty()) {
    raise("KALVEX:UndefinedFunction", {std::string(linked.missing.text())});
  }
}

[[noreturn]] void refuseAbstract(const ClassRecord& record, const LinkedClass& linked) {
  std::vector<std::string> awaited;
  linked.methods.forEach([&](kcos::COSInternedBase name, const MethodSet& set) {
    const auto isAbstract = [](const Method* method) { return method->isAbstract; };
    if (std::any_of(set.begin(), set.end(), isAbstract)) {
      awaited.emplace_back(name.text());
    }
  });
  linked.properties.forEach([&](kcos::COSInternedBase name, const PropertyPlace& place) {
    if (place.property->isAbstract()) {
      awaited.emplace_back(name.text());
    }
  });
  std::sort(awaited.begin(), awaited.end());
  std::string list;
  for (const std::string& name : awaited) {
    list += (list.empty() ? "" : ", ") + name;
  }
  raise("KALVEX:class:AbstractClass", {std::string(record.getName()), list});
}

/// Defaults run code, so the layout is looked up again at each step.
void fillDefaults(SessionState& session, const ClassRecord& record, Object& object) {
  for (std::size_t i = 0; i < record.linked().slots.size(); ++i) {
    const PropertyDefinition& definition = *record.linked().slots[i]->definition;
    if (definition.makeDefault != nullptr) {
      session.heap.setSlot(object, i, definition.makeDefault());
    }
  }
}

/// The constructor of a native class for no inputs: one that takes exactly none is preferred to one
/// that takes any number; null if there is neither.
const Method* emptyConstructor(const ClassRecord& native) {
  const Method* found = nullptr;
  for (const Method* constructor : native.linked().constructors) {
    if (constructor->counts.takes(0) && (found == nullptr || constructor->counts.isExact())) {
      found = constructor;
    }
  }
  return found;
}

/// Marks that the native part of an object is being made outside of a construction.
class UnfinishedPart {
 public:
  UnfinishedPart(Heap& heap, Object& object) noexcept : heap_(heap), object_(object) {
    heap_.setPartUnfinished(object_, true);
  }
  ~UnfinishedPart() { heap_.setPartUnfinished(object_, false); }
  UnfinishedPart(const UnfinishedPart&) = delete;
  UnfinishedPart& operator=(const UnfinishedPart&) = delete;

 private:
  Heap& heap_;
  Object& object_;
};

bool createInstanceData(SessionState& session, Object& object, const ClassRecord& native) {
  const RunningScope running(session, nullptr);
  void* data = native.info()->createInstanceData(&object);
  if (data != nullptr) {
    object.setInstanceData(native.name(), data);
  }
  return data != nullptr;
}

bool runEmptyConstructor(SessionState& session, const kxArray* self, const ClassRecord& native,
                         bool withPrivate) {
  const Method* constructor = emptyConstructor(native);
  if (constructor == nullptr || (constructor->access == MemberAccess::Private && !withPrivate)) {
    return false;
  }
  invokeConstructor(session, *constructor, self, {0, nullptr, 0, nullptr});
  return true;
}

/// The native part of an object whose constructors didn't make one.
void makeNativePart(SessionState& session, const Construction& construction,
                    const ClassRecord& native) {
  Object& object = construction.object();
  if (object.instanceData() == nullptr && !object.isDeleted() &&
      !createInstanceData(session, object, native)) {
    runEmptyConstructor(session, construction.self(), native, false);
  }
}

/// Calls a constructor's body with the object before the inputs.
void runLanguageConstructor(SessionState& session, const Construction& construction,
                            const ClassRecord& record, const Call& inputs,
                            const ClassRecord* caller) {
  boost::container::small_vector<const kxArray*, 8> all{construction.self()};
  all.insert(all.end(), inputs.prhs, inputs.prhs + inputs.nrhs);
  const int count = inputs.nrhs + 1;
  const Method* constructor =
      chooseOverload(record.linked().constructors, MethodKind::Any, 0, count, caller);
  const OptionalMemberScope member(session.heap, &construction.object());
  kxArray* dropped = nullptr;
  runBody(session, *constructor->body, &record, {0, &dropped, count, all.data()});
  matrix::from_kalvex(dropped);
}

/// Makes the parts of a class and its superclasses that aren't made yet, superclasses first.
void makeParts(SessionState& session, Construction& construction, const ClassRecord& record) {
  const auto& lineage = record.linked().lineage;
  const Parts parts(lineage.begin(), lineage.end());
  for (const ClassRecord* part : parts) {
    if (construction.hasMade(*part)) {
      continue;
    }
    construction.markMade(*part);
    if (part->isNative()) {
      if (part == classOf(construction.object()).linked().native) {
        makeNativePart(session, construction, *part);
      }
    } else if (!part->linked().constructors.empty()) {
      runLanguageConstructor(session, construction, *part, {0, nullptr, 0, nullptr}, part);
    }
  }
}

void runNativeConstructor(SessionState& session, Construction& construction,
                          const ClassRecord& record, const Call& inputs,
                          const ClassRecord* caller) {
  const Method* constructor =
      chooseOverload(record.linked().constructors, MethodKind::Any, 0, inputs.nrhs, caller);
  if (constructor == nullptr && inputs.nrhs > 0) {
    matrix::detail::error_maxrhs();
  }
  makeParts(session, construction, record);
  if (construction.object().isDeleted()) {
    raise("KALVEX:class:InvalidHandle");  // no code would destroy a native part made from here on
  }
  if (constructor != nullptr) {
    invokeConstructor(session, *constructor, construction.self(), inputs);
  } else {
    makeNativePart(session, construction, record);
  }
}

/// Runs the constructor of `record` with the rights of `caller`, then the parts that it left to the
/// host. A class without a constructor passes its inputs on to its only superclass.
void runConstructor(SessionState& session, Construction& construction, const ClassRecord& asked,
                    const Call& inputs, const ClassRecord* caller) {
  const ClassRecord* record = &asked;
  construction.markMade(*record);
  while (!record->isNative() && record->linked().constructors.empty() && inputs.nrhs > 0) {
    const auto& superclasses = record->linked().superclasses;
    if (superclasses.size() != 1) {
      matrix::detail::error_maxrhs();
    }
    caller = record;
    record = superclasses.front();
    construction.markMade(*record);
  }
  if (record->isNative()) {
    runNativeConstructor(session, construction, *record, inputs, caller);
  } else if (!record->linked().constructors.empty()) {
    runLanguageConstructor(session, construction, *record, inputs, caller);
  }
  makeParts(session, construction, asked);
}

const ClassRecord* directSuperclass(const ClassRecord& record, kcos::COSInternedBase name) {
  for (const ClassRecord* super : record.linked().superclasses) {
    if (super->name() == name) {
      return super;
    }
  }
  return nullptr;
}

}  // namespace

Construction::Construction(SessionState& session, Object& object)
    : session_(session),
      object_(object),
      self_(arrayOf(object)),
      outer_(std::exchange(session.construction, this)) {}

Construction::~Construction() { session_.construction = outer_; }

Construction* Construction::of(const SessionState& session, const Object& object) noexcept {
  Construction* at = session.construction;
  while (at != nullptr && &at->object_ != &object) {
    at = at->outer_;
  }
  return at;
}

bool Construction::hasMade(const ClassRecord& part) const noexcept {
  return std::find(made_.begin(), made_.end(), &part) != made_.end();
}

Value objectUnderConstruction() {
  const Construction* innermost = requireSession().construction;
  return innermost != nullptr ? matrix::sharedCopy(innermost->self()) : nullptr;
}

void constructObject(SessionState& session, ClassRecord& record, const Call& call) {
  const LinkedClass& linked = record.linked();
  refuseMissingSuperclass(linked);
  if (linked.isAbstract) {
    refuseAbstract(record, linked);
  }
  if (call.nlhs > 1) {
    matrix::detail::error_maxlhs();
  }
  Object& object = *session.heap.allocate(record);
  const kcos::COSInterfacePtr holder(&object, kcos::COSReferenceType::Strong);
  Value made;
  try {
    Construction construction(session, object);
    fillDefaults(session, record, object);
    runConstructor(session, construction, record, call, session.caller);
    if (const ClassRecord* native = record.linked().native) {
      makeNativePart(session, construction, *native);
    }
    made = construction.takeSelf();
  } catch (...) {
    session.heap.abandonConstruction(object);
    throw;
  }
  session.heap.finishConstruction(object);
  call.out(0, std::move(made));
}

kcos::COSInterfacePtr newInstance(SessionState& session, ClassRecord& record) {
  refuseMissingSuperclass(record.linked());
  Object& object = *session.heap.allocate(record);
  kcos::COSInterfacePtr holder(&object, kcos::COSReferenceType::Strong);
  if (record.linked().hasDefaults) {
    try {
      fillDefaults(session, record, object);
    } catch (...) {
      session.heap.abandonConstruction(object);
      throw;
    }
  }
  session.heap.finishConstruction(object);
  return holder;
}

void constructLanguageParts(SessionState& session, const ClassRecord& record, Object& object) {
  if (record.linked().inheritsConstructors) {
    Construction construction(session, object);
    construction.markMade(record);
    makeParts(session, construction, record);
  }
}

void constructPart(SessionState& session, Object& object, const ClassRecord& part) {
  Construction* construction = Construction::of(session, object);
  if (construction != nullptr && !construction->hasMade(part)) {
    makeParts(session, *construction, part);
  }
}

void constructShell(SessionState& session, Object& object) {
  const ClassRecord& record = classOf(object);
  const ClassRecord* native = record.linked().native;
  if (native == nullptr) {
    return;
  }
  const Value self = arrayOf(object);
  const UnfinishedPart part(session.heap, object);
  if (record.isNative()) {
    if (!runEmptyConstructor(session, self.get(), *native, true)) {
      createInstanceData(session, object, *native);
    }
  } else if (!createInstanceData(session, object, *native)) {
    runEmptyConstructor(session, self.get(), *native, true);
  }
}

void constructSuperclass(const kxArray* object, kcos::NameRef superclass,
                         std::span<const kxArray* const> inputs) {
  SessionState& session = requireSession();
  atEdge([&] {
    Object& target = requireObject(object);
    Construction* construction = Construction::of(session, target);
    const kcos::COSInternedBase name = kcos::internal::makeInterned(superclass);
    const ClassRecord* running = session.caller;
    const ClassRecord* super =
        construction != nullptr && running != nullptr ? directSuperclass(*running, name) : nullptr;
    if (super == nullptr) {
      raiseNoSuchMember(classOf(target), name);
    }
    runConstructor(session, *construction, *super,
                   {0, nullptr, static_cast<int>(inputs.size()), inputs.data()}, running);
  });
}

}  // namespace kv::host

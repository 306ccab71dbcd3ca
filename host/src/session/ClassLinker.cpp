// Linking makes one flat table per class, of everything it has and inherits, so that a call or a
// property access is one look-up however deep the hierarchy is. The tables are derived data: they
// are made again when a superclass changes, and members refer to the contents of their class, which
// stay where they are.

#include "session/ClassLinker.h"

#include <algorithm>
#include <string>

#include "kv/host/errors.h"
#include "session/ClassTable.h"

namespace kv::host {

namespace {

[[noreturn]] void refuse(const ClassRecord& record, kcos::COSInternedBase superclass,
                         const char* reason) {
  raise("KALVEX:class:InvalidSuperclass",
        {std::string(record.getName()), std::string(superclass.text()), reason});
}

bool isAbstract(const MethodSet& set) {
  return std::any_of(set.begin(), set.end(),
                     [](const Method* method) { return method->isAbstract; });
}

/// Inherited overloads of a name: those of the first superclass, unless they are abstract.
void inheritMethods(LinkedClass& linked, const LinkedClass& super) {
  super.methods.forEach([&](kcos::COSInternedBase name, const MethodSet& set) {
    MethodSet& mine = linked.methods[name];
    if (mine.empty() || (isAbstract(mine) && !isAbstract(set))) {
      mine = set;
    }
  });
}

std::uint32_t placeSlot(LinkedClass& linked, const Property* property) {
  auto found = std::find(linked.slots.begin(), linked.slots.end(), property);
  if (found == linked.slots.end()) {
    found = linked.slots.insert(found, property);
  }
  return static_cast<std::uint32_t>(found - linked.slots.begin());
}

void inheritProperties(LinkedClass& linked, const LinkedClass& super) {
  for (const Property* property : super.slots) {
    placeSlot(linked, property);
  }
  super.properties.forEach([&](kcos::COSInternedBase name, const PropertyPlace& place) {
    PropertyPlace& mine = linked.properties[name];
    if (mine.property == nullptr ||
        (mine.property->isAbstract() && !place.property->isAbstract())) {
      mine.property = place.property;
      mine.slot = place.property->hasSlot() ? placeSlot(linked, place.property) : 0;
    }
  });
}

}  // namespace

void ClassLinker::link(ClassRecord& record) {
  for (ClassRecord* next : superclassesFirst(record)) {
    if (!next->linked_.isCurrent) {
      linkOne(*next);
    }
  }
}

std::vector<ClassRecord*> ClassLinker::superclassesFirst(ClassRecord& record) {
  std::vector<ClassRecord*> order;
  NameMap<Mark> marks;
  std::vector<ClassRecord*> walk{&record};
  while (!walk.empty()) {
    ClassRecord& at = *walk.back();
    if (const Mark* mark = marks.find(at.name())) {
      walk.pop_back();
      if (*mark == Mark::Open) {
        marks[at.name()] = Mark::Done;
        order.push_back(&at);
      }
      continue;
    }
    at.initialize();
    marks[at.name()] = Mark::Open;
    const auto& names = at.contents_->superclasses;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
      ClassRecord* super = table_.find(*name);
      const Mark* mark = marks.find(*name);
      if (mark != nullptr && *mark == Mark::Open) {
        refuse(at, *name, "it derives from the class itself");
      }
      if (super != nullptr && mark == nullptr) {
        walk.push_back(super);
      }
    }
  }
  return order;
}

void ClassLinker::linkOne(ClassRecord& record) {
  LinkedClass linked;
  linked.isCurrent = true;
  linked.ancestors[record.name()] = true;
  if (record.isNative()) {
    linked.native = &record;
  }
  for (const kcos::COSInternedBase name : record.contents_->superclasses) {
    linked.ancestors[name] = true;
    if (const ClassRecord* super = table_.find(name)) {
      inherit(linked, record, *super);
    } else if (linked.missing.empty()) {
      linked.missing = name;
    }
  }
  linked.lineage.push_back(&record);
  addOwnMembers(linked, record);
  summarize(linked, record);
  record.nativeChain_.clear();
  for (auto at = linked.lineage.rbegin(); at != linked.lineage.rend(); ++at) {
    if ((*at)->isNative()) {
      record.nativeChain_.push_back((*at)->name());
    }
  }
  record.slotCount_ = linked.slots.size();
  record.linked_ = std::move(linked);
}

void ClassLinker::inherit(LinkedClass& linked, const ClassRecord& record,
                          const ClassRecord& super) {
  if (super.isSealed()) {
    raise("KALVEX:class:SealedClass", {std::string(super.getName())});
  }
  const LinkedClass& base = super.linked_;
  chooseNative(linked, record, super);
  linked.superclasses.push_back(&super);
  for (const ClassRecord* ancestor : base.lineage) {
    if (std::find(linked.lineage.begin(), linked.lineage.end(), ancestor) == linked.lineage.end()) {
      linked.lineage.push_back(ancestor);
    }
  }
  if (linked.missing.empty()) {
    linked.missing = base.missing;
  }
  base.ancestors.forEach([&](kcos::COSInternedBase name, bool) { linked.ancestors[name] = true; });
  inheritMethods(linked, base);
  inheritProperties(linked, base);
}

void ClassLinker::chooseNative(LinkedClass& linked, const ClassRecord& record,
                               const ClassRecord& super) {
  const ClassRecord* native = super.linked_.native;
  if (native == nullptr) {
    return;
  }
  if (record.isNative() && !super.isNative()) {
    refuse(record, super.name(),
           "a native class can't derive from a native class by way of another");
  }
  const bool isSecond = record.isNative()
                            ? std::any_of(linked.superclasses.begin(), linked.superclasses.end(),
                                          [](const ClassRecord* s) { return s->isNative(); })
                            : linked.native != nullptr && linked.native != native;
  if (isSecond) {
    refuse(record, super.name(), "a class can't derive from two native classes");
  }
  if (!record.isNative()) {
    linked.native = native;
  }
}

void ClassLinker::addOwnMembers(LinkedClass& linked, const ClassRecord& record) {
  const ClassContents& contents = *record.contents_;
  for (const Method& constructor : contents.constructors) {
    linked.constructors.push_back(&constructor);
  }
  for (const Method& method : contents.methods) {
    linked.methods[method.name].clear();
  }
  for (const Method& method : contents.methods) {
    const bool isDeclared =
        method.native == nullptr && method.body == nullptr && !method.isAbstract;
    const MethodSet* bodies =
        isDeclared && record.completed_ ? record.completed_->sets.find(method.name) : nullptr;
    if (bodies != nullptr) {
      linked.methods[method.name] = *bodies;
    } else {
      linked.methods[method.name].push_back(&method);
    }
  }
  placeOwnProperties(linked, contents);
}

void ClassLinker::placeOwnProperties(LinkedClass& linked, const ClassContents& contents) {
  for (const Property& property : contents.properties) {
    PropertyPlace& place = linked.properties[property.name];
    place.property = &property;
    place.slot = property.hasSlot() ? placeSlot(linked, &property) : 0;
  }
}

void ClassLinker::summarize(LinkedClass& linked, const ClassRecord& record) {
  linked.methods.forEach([&](kcos::COSInternedBase, const MethodSet& set) {
    linked.isAbstract = linked.isAbstract || isAbstract(set);
  });
  linked.properties.forEach([&](kcos::COSInternedBase, const PropertyPlace& place) {
    linked.isAbstract = linked.isAbstract || place.property->isAbstract();
  });
  linked.hasDefaults = std::any_of(
      linked.slots.begin(), linked.slots.end(),
      [](const Property* property) { return property->definition->makeDefault != nullptr; });
  linked.inheritsConstructors =
      std::any_of(linked.lineage.begin(), linked.lineage.end(), [&](const ClassRecord* ancestor) {
        return ancestor != &record && !ancestor->isNative() &&
               !ancestor->contents_->constructors.empty();
      });
}

}  // namespace kv::host

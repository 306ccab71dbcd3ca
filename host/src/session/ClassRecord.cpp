// A class of the session, as native class infos see it. It is filled late: members of a native
// class are registered when it is first used, and links with superclasses are made, or made again,
// when they are asked for. So classes may be entered in any order, and a class that is never used
// costs nothing.

#include "session/ClassRecord.h"

#include "kv/host/errors.h"
#include "session/ClassLinker.h"
#include "session/ClassTable.h"
#include "session/SessionState.h"
#include "session/construction.h"
#include "session/edge.h"
#include "session/properties.h"

namespace kv::host {

namespace {

kcos::COSInternedBase shortNameOf(kcos::COSInternedBase name) {
  const std::string_view text = name.text();
  return kcos::internal::makeInterned(kcos::NameRef::of(text.substr(text.rfind('.') + 1)));
}

Counts countsOf(const kcos::COSMethodBase& method) {
  kcos::COSMethodSignature signature;
  method.getMethodSignature(signature);
  Counts counts;
  const int leading = method.takesObjectFirst() ? 1 : 0;
  counts.minInputs = signature.variableInputs() ? leading : signature.inputs();
  counts.maxInputs = signature.variableInputs() ? -1 : signature.inputs();
  counts.maxOutputs = signature.variableOutputs() ? -1 : signature.outputs();
  return counts;
}

}  // namespace

ClassRecord::ClassRecord(ClassTable& table, kcos::COSInternedBase name)
    : table_(table),
      name_(name),
      shortName_(shortNameOf(name)),
      client_(*this),
      contents_(std::make_shared<ClassContents>()) {}

ClassRecord::~ClassRecord() = default;

bool ClassRecord::isSealed() const {
  return isNative() ? info_->isSealed()
                    : contents_->definition != nullptr && contents_->definition->isSealed;
}

void ClassRecord::initialize() {
  if (!isNative() || isInitialized_) {
    return;
  }
  isInitialized_ = true;
  try {
    info_->initializeClass(this, &client_);
  } catch (...) {
    contents_->clear();
    isInitialized_ = false;
    throw;
  }
}

const LinkedClass& ClassRecord::linked() const {
  if (!linked_.isCurrent) {
    ClassLinker(table_).link(const_cast<ClassRecord&>(*this));
  }
  return linked_;
}

const ClassContents& ClassRecord::contents() const {
  const_cast<ClassRecord&>(*this).initialize();
  return *contents_;
}

std::vector<const kcos::COSPropT*> ClassRecord::nativeProperties() const {
  std::vector<const kcos::COSPropT*> properties;
  linked().properties.forEach([&](kcos::COSInternedBase, const PropertyPlace& place) {
    if (place.property->native != nullptr) {
      properties.push_back(place.property->native);
    }
  });
  return properties;
}

bool ClassRecord::isA(kcos::COSInternedBase className) const noexcept {
  if (!linked_.isCurrent) {
    try {
      linked();
    } catch (...) {
      // A superclass can't be linked any more: the last state is still valid.
    }
  }
  return className == name_ || linked_.ancestors.contains(className);
}

void ClassRecord::destroyInstanceData(void* data) const noexcept {
  const ClassRecord& native = *linked_.native;
  native.info_->destroyInstanceData(native.client(), data);
}

kxArray* ClassRecord::readProperty(Object& object, kcos::COSInternedBase name) const {
  return atEdge(
      [&] { return kv::host::readProperty(table_.session(), object, name, nullptr).release(); });
}

std::vector<const kcos::COSMethodBase*> ClassRecord::getMethods(kcos::COSInternedBase name) const {
  std::vector<const kcos::COSMethodBase*> natives;
  if (const MethodSet* set = linked().methods.find(name)) {
    for (const Method* method : *set) {
      if (method->native != nullptr) {
        natives.push_back(method->native);
      }
    }
  }
  return natives;
}

bool ClassRecord::hasMethod(kcos::COSInternedBase name) const {
  return linked().methods.contains(name);
}

void ClassRecord::addSuperclass(kcos::COSInternedBase classKey, int /*inherit*/, int /*flags*/,
                                int /*visible*/) {
  contents_->superclasses.push_back(classKey);
}

void ClassRecord::addProperty(kcos::COSPropT* property) {
  std::unique_ptr<const kcos::COSPropT> owned(property);
  contents_->nativeProperties.push_back(std::move(owned));
  contents_->properties.push_back({.name = property->getName(),
                                   .owner = this,
                                   .getAccess = property->getMemberGetAccess(),
                                   .setAccess = property->getMemberSetAccess(),
                                   .flags = property->flags(),
                                   .native = property});
  contents_->order.emplace_back(&contents_->properties.back());
}

void ClassRecord::addMethod(kcos::COSMethodBase* method) {
  std::unique_ptr<const kcos::COSMethodBase> owned(method);
  contents_->nativeMethods.push_back(std::move(owned));
  auto& members = method->getName() == shortName_ ? contents_->constructors : contents_->methods;
  members.push_back({.name = method->getName(),
                     .owner = this,
                     .access = method->getMemberAccess(),
                     .counts = countsOf(*method),
                     .isStatic = method->isStatic(),
                     .isAbstract = method->isAbstract(),
                     .native = method});
  contents_->order.emplace_back(&members.back());
}

void ClassRecord::declareMethod(kcos::COSInternedBase name, MemberAccess access) {
  declare(name, access, false);
}

void ClassRecord::declareStaticMethod(kcos::COSInternedBase name, MemberAccess access) {
  declare(name, access, true);
}

void ClassRecord::declare(kcos::COSInternedBase name, MemberAccess access, bool isStatic) {
  Method& method = contents_->methods.emplace_back();
  method.name = name;
  method.owner = this;
  method.access = access;
  method.isStatic = isStatic;
  contents_->order.emplace_back(&method);
}

void ClassRecord::createInstance(kcos::COSInterfacePtr& object) {
  object = newInstance(table_.session(), *this).get();
}

void ClassRecord::beginConstruction(kcos::COSInterfacePtr object) {
  table_.session().heap.setPartUnfinished(*Object::of(object.get()), true);
}

void ClassRecord::endConstruction(kcos::COSInterfacePtr object) {
  table_.session().heap.setPartUnfinished(*Object::of(object.get()), false);
  constructLanguageParts(table_.session(), *this, *Object::of(object.get()));
}

}  // namespace kv::host

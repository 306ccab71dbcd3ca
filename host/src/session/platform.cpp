// What the class interface of the platform requires of the host: memory, look-ups, packages.

#include <cstdlib>
#include <new>

#include "kcos/class.h"
#include "session/ClassTable.h"
#include "session/SessionState.h"

namespace kcos {

COSMethodBase::~COSMethodBase() = default;
COSPropT::~COSPropT() = default;
COSClassInfo::~COSClassInfo() = default;

void COSPropT::releaseValue(kxArray* value) const { matrix::destroyArray(value); }

void* COSClassInfo::operator new(std::size_t bytes) { return ::operator new(bytes); }
void COSClassInfo::operator delete(void* memory) noexcept { ::operator delete(memory); }

void* utCalloc(std::size_t bytes) {
  if (void* memory = std::calloc(1, bytes)) {
    return memory;
  }
  throw std::bad_alloc();
}

void utFree(void* memory) noexcept { std::free(memory); }

COSClass* COSClass::getClass(COSInternedBase classKey) {
  kv::host::ClassRecord& record = kv::host::requireSession().classes.require(classKey);
  record.contents();
  return &record;
}

COSPackage* omGetNamespace(std::string_view name) {
  return &kv::host::requireSession().classes.package(std::string(name));
}

COSPackage* omGetInnerNamespace(COSPackage* outer, std::string_view name) {
  const auto& package = static_cast<const kv::host::Package&>(*outer);
  std::string fullName = package.name();
  fullName += '.';
  fullName += name;
  return &kv::host::requireSession().classes.package(fullName);
}

bool omGetKcosUsingUSM() noexcept {
  const kv::host::SessionState* session = kv::host::currentSession();
  return session == nullptr || session->options.classesPerSession;
}

}  // namespace kcos

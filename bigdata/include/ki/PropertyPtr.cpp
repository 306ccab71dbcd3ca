#include "ki/PropertyPtr.h"

namespace bigdata::ki::detail {

namespace {

bool isLinked(const kcos::COSInterface* child) { return child != nullptr && !child->isDeleted(); }

}  // namespace

void linkChild(kcos::COSInterface* owner, kcos::COSInterface* child) {
  if (isLinked(child)) {
    const kcos::RootRecordPtr ownerRoot = kcos::omGetRootRecord(owner);
    kxAddParentRoot(kcos::omGetRootRecord(child), ownerRoot);
  }
}

void unlinkChild(kcos::COSInterface* owner, kcos::COSInterface* child) noexcept {
  if (isLinked(child)) {
    const kcos::RootRecordPtr ownerRoot = kcos::omGetRootRecord(owner);
    kxRemoveParentRoot(kcos::omGetRootRecord(child), ownerRoot);
  }
}

}  // namespace bigdata::ki::detail

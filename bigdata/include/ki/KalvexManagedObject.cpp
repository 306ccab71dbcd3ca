#include "ki/KalvexManagedObject.h"

#include "util/ErrorIds.h"

namespace bigdata::ki {

KalvexManagedConstructInfo::~KalvexManagedConstructInfo() = default;

namespace detail {

void raiseInvalidHandle() {
  foundation::core::except::raise<component_Kalvex::catalog_class::key_InvalidHandle>();
}

void* requireInstanceData(const kcos::COSInterface* object, kcos::COSInternedBase classKey) {
  void* data =
      object == nullptr || object->isDeleted() ? nullptr : object->getInstanceData(classKey);
  if (data == nullptr) {
    raiseInvalidHandle();
  }
  return data;
}

}  // namespace detail
}  // namespace bigdata::ki

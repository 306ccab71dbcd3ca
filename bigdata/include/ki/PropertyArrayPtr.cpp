#include "ki/PropertyArrayPtr.h"

#include <utility>

namespace bigdata::ki {

PropertyArrayPtr adoptPropertyArray(kcos::COSInterface* owner, ArrayPtr value) {
  if (value == nullptr) {
    return nullptr;
  }
  if (kxGetReferenceCount(value.get()) != 0) {
    value = matrix::sharedCopy(value.get());
  }
  kcos::kcosConvertArrayToInternalInPlace(value.get(), false);
  kxSetArrayScope(value.get(), kxPropertyScope);
  if (kxHasRootRecord(value.get())) {
    const kcos::RootRecordPtr ownerRoot = kcos::omGetRootRecord(owner);
    kxSetParentRoot(kxGetRootRecordForArray(value.get()), ownerRoot);
  }
  return PropertyArrayPtr(value.release());
}

}  // namespace bigdata::ki

#include "ki/detail/convertManaged.h"

#include <string>

namespace bigdata::ki::detail {

ManagedElement scalarElement(const kxArray* array, kcos::COSInternedBase className) {
  if (array == nullptr || (kxIsEmpty(array) && kxGetClassID(array) == kxDOUBLE_CLASS)) {
    return {};
  }
  if (!kxIsScalar(array) || !kxIsA(array, className)) {
    raiseInvalidInput("scalar " + std::string(className.text()), kxGetClassName(array));
  }
  return elementAt(array, 0, className);
}

std::size_t countElements(const kxArray* array, kcos::COSInternedBase className) {
  if (array == nullptr) {
    return 0;
  }
  if (!kcos::omIsKCOS(array) || !kxIsA(array, className)) {
    raiseInvalidInput(className.text(), kxGetClassName(array));
  }
  return kxGetNumberOfElements(array);
}

ManagedElement elementAt(const kxArray* array, std::size_t index, kcos::COSInternedBase className) {
  ManagedElement element{kcos::omGetArrayElement(array, index), nullptr};
  if (element.object != nullptr && !element.object->isDeleted()) {
    element.raw = element.object->getInstanceData(className);
  }
  return element;
}

ArrayPtr scalarOf(const kcos::COSInterfacePtr& object) {
  return object == nullptr ? nullptr : matrix::from_kalvex(kcos::omCreateKCOSScalar(object));
}

ObjectColumn::ObjectColumn(std::size_t rows, kcos::COSInternedBase className)
    : array_(matrix::from_kalvex(kcos::omCreateKCOSMatrix(rows, 1, className))) {}

void ObjectColumn::set(std::size_t row, kcos::COSInterface* object) {
  kcos::omSetArrayElement(array_.get(), row, object);
}

}  // namespace bigdata::ki::detail

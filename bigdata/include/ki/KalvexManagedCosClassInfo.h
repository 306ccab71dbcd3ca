#pragma once

#include <string>
#include <string_view>

#include "kcos/class.h"
#include "ki/TypeAwareKalvexManagedConstructInfo.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

namespace detail {

/// The text behind the last "." of a full class name.
constexpr std::string_view shortClassName(std::string_view fullName) {
  return fullName.substr(fullName.rfind('.') + 1);
}

}  // namespace detail

/// Describes the native class `T` to the host. Derive one class per class, which fills
/// `initializeClass` by a `CosClassBuilder`.
template <class T>
class KalvexManagedCosClassInfo : public kcos::COSClassInfo {
 public:
  using Managed = T;

  const char* getClassName() const override { return hostClassName_.c_str(); }

  void* createInstanceData(kcos::COSInterface* object) override {
    const TypeAwareKalvexManagedConstructInfo<T> info(object);
    return createHostImplemented(info);
  }

  void destroyInstanceData(const kcos::COSClient* /*client*/, void* data) override {
    delete static_cast<T*>(data);
  }

 protected:
  /// The native part of an object of a subclass that is written in the language and whose
  /// construction made none; null where there is no such thing.
  virtual T* createHostImplemented(const KalvexManagedConstructInfo& /*info*/) { return nullptr; }

 private:
  std::string hostClassName_{detail::shortClassName(hostClassName<T>().text())};
};

}  // namespace bigdata::ki

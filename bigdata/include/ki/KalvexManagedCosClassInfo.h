#pragma once

#include <string>
#include <string_view>

#include "kcos/class.h"
#include "ki/TypeAwareKalvexManagedConstructInfo.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

namespace detail {

/// The part of a full class name after the last ".".
constexpr std::string_view shortClassName(std::string_view fullName) {
  return fullName.substr(fullName.rfind('.') + 1);
}

}  // namespace detail

/// Describes the native class `T` to the host. Derive one such class per native class and fill in
/// `initializeClass` with a `CosClassBuilder`.
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
  /// The native part for an object of a subclass written in the language, if its construction made
  /// none; null if the class supports no such subclasses.
  virtual T* createHostImplemented(const KalvexManagedConstructInfo& /*info*/) { return nullptr; }

 private:
  std::string hostClassName_{detail::shortClassName(hostClassName<T>().text())};
};

}  // namespace bigdata::ki

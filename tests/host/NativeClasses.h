#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "kcos/class.h"
#include "kv/host/values.h"

/// Native classes as a library would bring them, put together from lambdas.
namespace kv::test {

using kcos::COSClass;
using kcos::COSClient;
using kcos::COSInterface;
using kcos::COSValue;
using kcos::MemberAccess;

inline kcos::COSInternedBase id(std::string_view text) {
  return kcos::internal::makeInterned(kcos::NameRef::of(text));
}

/// The native part of every object here. Counts how many there are.
struct Part {
  explicit Part(double initial) : value(initial) { ++count; }
  ~Part() { --count; }
  double value;
  static inline int count = 0;
};

/// The part of the object in an array, as the native class of that name has it.
inline Part& partOf(const kxArray* object, std::string_view className) {
  return *static_cast<Part*>(kcos::omGetArrayElement(object, 0)->getInstanceData(id(className)));
}

using NativeFunction = std::function<void(int nlhs, COSValue* lhs, int nrhs, const COSValue* rhs)>;

/// A method with a fixed count of inputs (the object included), or with any number (-1).
class NativeMethod final : public kcos::COSMethodBase {
 public:
  enum Kind { kOfObject, kFree, kAbstract };

  NativeMethod(std::string_view name, MemberAccess access, int inputs, NativeFunction body,
               Kind kind = kOfObject)
      : COSMethodBase(id(name), access), inputs_(inputs), body_(std::move(body)), kind_(kind) {}

  void getMethodSignature(kcos::COSMethodSignature& signature) const override {
    signature.addOutput("any");
    for (int i = 0; i < inputs_; ++i) {
      signature.addInput("any");
    }
    if (inputs_ < 0) {
      signature.setVariableInputs();
      signature.setVariableOutputs();
    }
  }
  void invoke(const COSClient*, int& nlhs, COSValue* lhs, int nrhs,
              const COSValue* rhs) const override {
    if (inputs_ >= 0 && nrhs != inputs_) {
      std::abort();  // as generated bindings do
    }
    body_(nlhs, lhs, nrhs, rhs);
  }
  bool takesObjectFirst() const override { return kind_ == kOfObject; }
  bool isAbstract() const override { return kind_ == kAbstract; }
  bool hasBody() const override { return kind_ != kAbstract; }

 private:
  int inputs_;
  NativeFunction body_;
  Kind kind_;
};

/// The number in the part, as a property. Without a setter assignment does nothing.
class ValueProperty final : public kcos::COSPropT {
 public:
  ValueProperty(std::string_view name, std::string_view className, MemberAccess setAccess,
                bool hasSetter = true)
      : COSPropT(id(name), MemberAccess::Public, setAccess, hasSetter ? kStored : kDerived),
        className_(className),
        hasSetter_(hasSetter) {}

  kxArray* get(COSInterface* object) const override {
    return kxCreateDoubleScalar(part(object).value);
  }
  void set(COSInterface* object, const kxArray* value) const override {
    if (hasSetter_) {
      part(object).value = host::toDouble(value);
    }
  }
  kcos::Enumeration<COSInterface*> getReferencedObjects(COSInterface*) const override {
    return kcos::Enumeration<COSInterface*>(nothing<COSInterface*>());
  }
  kcos::Enumeration<const kxArray*> getReferencedArrays(COSInterface*) const override {
    return kcos::Enumeration<const kxArray*>(nothing<const kxArray*>());
  }

 private:
  template <class E>
  struct Nothing final : kcos::EnumerationUtil<E> {
    bool hasMore() const override { return false; }
    E next() override { throw kcos::ENoElements(); }
  };
  template <class E>
  static kcos::EnumerationUtil<E>* nothing() {
    return new (kcos::utCalloc(sizeof(Nothing<E>))) Nothing<E>();
  }
  Part& part(COSInterface* object) const {
    return *static_cast<Part*>(object->getInstanceData(id(className_)));
  }

  std::string className_;
  bool hasSetter_;
};

/// Describes a class by a function that fills it.
class NativeClass final : public kcos::COSClassInfo {
 public:
  using Fill = std::function<void(COSClass* cls, const COSClient* client)>;

  NativeClass(std::string shortName, Fill fill)
      : shortName_(std::move(shortName)), fill_(std::move(fill)) {}

  NativeClass* sealed() {
    isSealed_ = true;
    return this;
  }
  /// Objects of subclasses get a part with this value where their construction left none.
  NativeClass* implementedByHost(double value) {
    hostValue_ = std::make_unique<double>(value);
    return this;
  }
  NativeClass* onLoaded(std::function<void(COSInterface*)> loaded) {
    loaded_ = std::move(loaded);
    return this;
  }

  const char* getClassName() const override { return shortName_.c_str(); }
  void initializeClass(COSClass* cls, const COSClient* client) override { fill_(cls, client); }
  void* createInstanceData(COSInterface*) override {
    return hostValue_ ? new Part(*hostValue_) : nullptr;
  }
  void destroyInstanceData(const COSClient*, void* data) override {
    delete static_cast<Part*>(data);
  }
  bool isSealed() const override { return isSealed_; }
  void instanceLoaded(COSInterface* object) override {
    if (loaded_) {
      loaded_(object);
    }
  }

 private:
  std::string shortName_;
  Fill fill_;
  bool isSealed_ = false;
  std::unique_ptr<double> hostValue_;
  std::function<void(COSInterface*)> loaded_;
};

/// Enters a class in the package "lab" of the current session.
inline void enter(NativeClass* info) { kcos::omGetNamespace("lab")->addClass(info, 0, 2); }

/// A constructor that makes a part with its one input, or 0 without inputs, under the class's key.
inline NativeMethod* partConstructor(std::string_view className, MemberAccess access, int inputs) {
  const auto body = [key = std::string(className)](int, COSValue* lhs, int nrhs,
                                                   const COSValue* rhs) {
    const kcos::COSInterfacePtr object = kcos::omGetArrayElement(lhs[0].array, 0);
    const double value = nrhs > 0 ? host::toDouble(rhs[0].array) : 0.0;
    delete static_cast<Part*>(object->getInstanceData(id(key)));
    object->setInstanceData(id(key), new Part(value));
  };
  return new NativeMethod(className.substr(className.rfind('.') + 1), access, inputs, body,
                          NativeMethod::kFree);
}

/// A method that returns a text.
inline NativeFunction answers(std::string text) {
  return [text = std::move(text)](int, COSValue* lhs, int, const COSValue*) {
    lhs[0].array = host::makeChars(text).release();
  };
}

}  // namespace kv::test

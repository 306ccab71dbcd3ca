#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kcos/interface.h"
#include "kcos/interned.h"
#include "kx/array.h"

/// The host's class system, as a native library sees it: class infos that describe classes, method
/// and property infos that are called, and the class objects that are filled with them.
namespace kcos {

class COSClass;
class COSMethodBase;
class COSPropT;

/// The caller: represents the rights of a class's own code. Given to a class info when its class is
/// initialised. Owner: the session.
class COSClient;

enum class MemberAccess : int {
  Public = 0,
  Protected = 1,
  Private = 2,
  Immutable = 3,  ///< as set access: only a constructor's own code
  None = 5,       ///< as set access: no one
};

/// What the host passes in and out of `invoke`: one array, possibly null.
struct COSValue {
  kxArray* array = nullptr;
};

/// The shape of a method, as its info states it.
class COSMethodSignature {
 public:
  void addInput(std::string_view /*dataType*/) { ++inputs_; }
  void addOutput(std::string_view /*dataType*/) { ++outputs_; }
  void setVariableInputs() { variableInputs_ = true; }
  void setVariableOutputs() { variableOutputs_ = true; }

  int inputs() const { return inputs_; }
  int outputs() const { return outputs_; }
  bool variableInputs() const { return variableInputs_; }
  bool variableOutputs() const { return variableOutputs_; }

 private:
  int inputs_ = 0;
  int outputs_ = 0;
  bool variableInputs_ = false;
  bool variableOutputs_ = false;
};

/// One method or constructor of a class.
///
/// Threads: immutable once its class is initialised; `invoke` on the session's thread.
class KV_HOST_API COSMethodBase {
 public:
  COSMethodBase(COSInternedBase name, MemberAccess access) : name_(name), access_(access) {}
  virtual ~COSMethodBase();

  virtual COSInternedBase getName() const { return name_; }
  virtual MemberAccess getMemberAccess() const { return access_; }
  virtual void getMethodSignature(COSMethodSignature& signature) const = 0;

  /// Runs the method. A method that returns something sets `nlhs` to the number of values that it
  /// wrote to `lhs`, which has room for max(nlhs, 1) values; they belong to the host from then on.
  /// A constructor finds the new object in `lhs[0]`.
  ///
  /// Requires: for a fixed method, as many inputs as its signature has.
  virtual void invoke(const COSClient* client, int& nlhs, COSValue* lhs, int nrhs,
                      const COSValue* rhs) const = 0;

  /// True if the object that the method is called on is its first input.
  virtual bool takesObjectFirst() const = 0;
  virtual bool isStatic() const { return false; }
  virtual bool isAbstract() const { return false; }
  /// False for a method that only claims its name.
  virtual bool hasBody() const { return true; }

 private:
  COSInternedBase name_;
  MemberAccess access_;
};

struct ENoElements {};

/// A source of elements, one at a time; `next` throws ENoElements after the last one.
///
/// The host frees it with `utFree`, so it is made in memory from `utCalloc`. Its count begins at 1.
template <class E>
class EnumerationUtil {
 public:
  virtual ~EnumerationUtil() = default;
  virtual bool hasMore() const = 0;
  virtual E next() = 0;

  int referenceCount = 1;
};

KV_HOST_API void* utCalloc(std::size_t bytes);
KV_HOST_API void utFree(void* memory) noexcept;

/// Holds one reference to a counted source of elements.
template <class E>
class Enumeration {
 public:
  explicit Enumeration(EnumerationUtil<E>* util) : util_(util) {}
  Enumeration(Enumeration&& other) noexcept : util_(std::exchange(other.util_, nullptr)) {}
  Enumeration& operator=(Enumeration&& other) noexcept {
    std::swap(util_, other.util_);
    return *this;
  }
  ~Enumeration() {
    if (util_ && --util_->referenceCount == 0) {
      util_->~EnumerationUtil<E>();
      utFree(util_);
    }
  }

  bool hasMore() const { return util_->hasMore(); }
  E next() { return util_->next(); }

 private:
  EnumerationUtil<E>* util_;
};

/// One property of a class.
class KV_HOST_API COSPropT {
 public:
  static constexpr unsigned kStored = 2560;          ///< read and write
  static constexpr unsigned kDerived = 10784;        ///< computed, no setter
  static constexpr unsigned kStoredReadOnly = 2592;  ///< stored, getter only
  static constexpr unsigned kAbstract = 2049;

  COSPropT(COSInternedBase name, MemberAccess getAccess, MemberAccess setAccess, unsigned flags)
      : name_(name), getAccess_(getAccess), setAccess_(setAccess), flags_(flags) {}
  virtual ~COSPropT();

  virtual COSInternedBase getName() const { return name_; }
  virtual MemberAccess getMemberGetAccess() const { return getAccess_; }
  virtual MemberAccess getMemberSetAccess() const { return setAccess_; }
  virtual bool isAbstract() const { return flags_ == kAbstract; }
  unsigned flags() const { return flags_; }

  /// The value, owned by the caller until `releaseValue`; null for a property without a getter.
  virtual kxArray* get(COSInterface* object) const = 0;
  virtual void set(COSInterface* object, const kxArray* value) const = 0;
  /// Frees an array that `get` produced.
  virtual void releaseValue(kxArray* value) const;
  /// The host objects, and the arrays, that the property refers to.
  virtual Enumeration<COSInterface*> getReferencedObjects(COSInterface* object) const = 0;
  virtual Enumeration<const kxArray*> getReferencedArrays(COSInterface* object) const = 0;

 private:
  COSInternedBase name_;
  MemberAccess getAccess_;
  MemberAccess setAccess_;
  unsigned flags_;
};

/// Describes a class to the host. Owner: the package that it was added to.
class KV_HOST_API COSClassInfo {
 public:
  virtual ~COSClassInfo();

  /// The short class name. Lives: as long as the info.
  virtual const char* getClassName() const = 0;

  /// Fills the class; called once per session, when the class is first used.
  virtual void initializeClass(COSClass* cls, const COSClient* client) = 0;

  /// Called when the construction of an object of a subclass ends without a native part: makes one,
  /// or returns null. The host stores the result under the key of this class.
  virtual void* createInstanceData(COSInterface* object) = 0;

  /// Deletes a native part that this class made. Null does nothing.
  virtual void destroyInstanceData(const COSClient* client, void* data) = 0;

  virtual bool isSealed() const { return false; }

  /// Called after an object has been made by load construction and filled.
  virtual void instanceLoaded(COSInterface* /*object*/) {}

  /// Returns an object that is being saved in the class's own form: `record`, a 1-by-1 structure
  /// that the host takes over, and its data type. False: the host saves the stored properties.
  virtual bool customSave(COSInterfacePtr /*object*/, kxArray*& /*record*/,
                          COSInternedBase& /*type*/) {
    return false;
  }

  /// Makes the object that `record`, as `customSave` returned it, represents. An object in the
  /// record may not be filled yet: keep references to it, but don't call it. False, and nothing
  /// made: the class has no such form.
  virtual bool customLoad(COSInterfacePtr& /*object*/, const kxArray* /*record*/,
                          COSInternedBase /*type*/) {
    return false;
  }

  /// The host frees class infos with this pair, so they are made with it too.
  static void* operator new(std::size_t bytes);
  static void operator delete(void* memory) noexcept;
};

/// A class of the host's class system.
class KV_HOST_API COSClass {
 public:
  /// The class of that name in the current session, initialised.
  /// Errors: "KALVEX:UndefinedFunction" with the name.
  static COSClass* getClass(COSInternedBase classKey);

  /// Identifies the class: its full name. Ids compare by value.
  virtual COSInternedBase getClassId() const noexcept = 0;
  std::string_view getName() const noexcept { return getClassId().text(); }

  /// Methods of that name that objects of the class answer to, inherited ones included.
  virtual std::vector<const COSMethodBase*> getMethods(COSInternedBase name) const = 0;
  /// True if the class or a superclass has or declares a method of that name.
  virtual bool hasMethod(COSInternedBase name) const = 0;

  // For class infos, while the class is initialised. The class takes ownership of what is added.
  virtual void addSuperclass(COSInternedBase classKey, int inherit, int flags, int visible) = 0;
  virtual void addProperty(COSPropT* property) = 0;
  virtual void addMethod(COSMethodBase* method) = 0;
  /// The body of the method comes from the class's definition in a language.
  virtual void declareMethod(COSInternedBase name, MemberAccess access) = 0;
  virtual void declareStaticMethod(COSInternedBase name, MemberAccess access) = 0;

  // For native code that makes an object without a call by name, in this order.
  /// Makes an object under construction.
  virtual void createInstance(COSInterfacePtr& object) = 0;
  virtual void beginConstruction(COSInterfacePtr object) = 0;
  virtual void endConstruction(COSInterfacePtr object) = 0;

 protected:
  ~COSClass() = default;
};

/// A package of the session.
class KV_HOST_API COSPackage {
 public:
  /// Enters a class and takes the info over. A class that is there already is left as it is.
  virtual void addClass(COSClassInfo* info, int flags, int kind) = 0;

 protected:
  ~COSPackage() = default;
};

/// A package at the top; made if there is none.
KV_HOST_API COSPackage* omGetNamespace(std::string_view name);
/// A package inside another; made if there is none.
KV_HOST_API COSPackage* omGetInnerNamespace(COSPackage* outer, std::string_view name);

/// True if classes are kept per session, false if per process.
KV_HOST_API bool omGetKcosUsingUSM() noexcept;

}  // namespace kcos

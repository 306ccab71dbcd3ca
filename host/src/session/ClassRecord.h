#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "heap/ObjectClass.h"
#include "session/ClassContents.h"

namespace kv::host {
class ClassRecord;
class ClassTable;
}  // namespace kv::host

/// The rights of one class.
class kcos::COSClient {
 public:
  explicit COSClient(const kv::host::ClassRecord& record) : record_(record) {}
  const kv::host::ClassRecord& record() const { return record_; }

 private:
  const kv::host::ClassRecord& record_;
};

namespace kv::host {

/// A class of a session: native, described by a class info, or of a language, made from a
/// definition. The record of a name stays the same for the whole session.
class ClassRecord final : public ObjectClass {
 public:
  ClassRecord(ClassTable& table, kcos::COSInternedBase name);
  ~ClassRecord();

  bool isNative() const noexcept { return info_ != nullptr; }
  bool isSealed() const;
  kcos::COSInternedBase name() const noexcept { return name_; }
  /// The text after the last ".": the name of the constructors.
  kcos::COSInternedBase shortName() const noexcept { return shortName_; }
  const kcos::COSClient* client() const noexcept { return &client_; }

  /// The class with all that it inherits, up to date.
  /// Errors: what the class info of a native class raises; "KALVEX:class:SealedClass" and
  /// "KALVEX:class:InvalidSuperclass" for superclasses that don't fit.
  const LinkedClass& linked() const;

  /// The class's own members; those of a native class are registered now if they weren't yet.
  const ClassContents& contents() const;

  /// Properties of native classes that objects of the class have.
  std::vector<const kcos::COSPropT*> nativeProperties() const override;

  // ObjectClass
  bool isA(kcos::COSInternedBase className) const noexcept override;
  void destroyInstanceData(void* data) const noexcept override;
  [[nodiscard]] kxArray* readProperty(Object& object, kcos::COSInternedBase name) const override;

  // kcos::COSClass
  kcos::COSInternedBase getClassId() const noexcept override { return name_; }
  std::vector<const kcos::COSMethodBase*> getMethods(kcos::COSInternedBase name) const override;
  bool hasMethod(kcos::COSInternedBase name) const override;
  void addSuperclass(kcos::COSInternedBase classKey, int inherit, int flags, int visible) override;
  void addProperty(kcos::COSPropT* property) override;
  void addMethod(kcos::COSMethodBase* method) override;
  void declareMethod(kcos::COSInternedBase name, MemberAccess access) override;
  void declareStaticMethod(kcos::COSInternedBase name, MemberAccess access) override;
  void createInstance(kcos::COSInterfacePtr& object) override;
  void beginConstruction(kcos::COSInterfacePtr object) override;
  void endConstruction(kcos::COSInterfacePtr object) override;

  /// Class info of a native class; null for a class of a language.
  kcos::COSClassInfo* info() const noexcept { return info_.get(); }

 private:
  friend class ClassTable;
  friend class ClassLinker;

  void initialize();
  void declare(kcos::COSInternedBase name, MemberAccess access, bool isStatic);

  ClassTable& table_;
  kcos::COSInternedBase name_;
  kcos::COSInternedBase shortName_;
  kcos::COSClient client_;
  std::unique_ptr<kcos::COSClassInfo> info_;
  bool isInitialized_ = false;
  std::shared_ptr<ClassContents> contents_;
  std::shared_ptr<CompletedMethods> completed_;
  LinkedClass linked_;
};

}  // namespace kv::host

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "session/ClassRecord.h"

namespace kv::host {

class CallTable;
struct SessionState;

/// A package of the session: its name, and the table that classes are entered in.
class Package final : public kcos::COSPackage {
 public:
  Package(ClassTable& table, std::string name) : table_(table), name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  void addClass(kcos::COSClassInfo* info, int flags, int kind) override;

 private:
  ClassTable& table_;
  std::string name_;
};

/// The classes of a session, by full name.
///
/// A change of a class makes the links of its subclasses stale; they are linked again at their next
/// use. Nothing is linked before it is used, so classes may be entered in any order.
class ClassTable {
 public:
  ClassTable(SessionState& session, CallTable& calls);
  ~ClassTable();
  ClassTable(const ClassTable&) = delete;
  ClassTable& operator=(const ClassTable&) = delete;

  /// The class of that name, or null.
  ClassRecord* find(kcos::COSInternedBase name) const noexcept;
  /// Errors: "KALVEX:UndefinedFunction" with the name.
  ClassRecord& require(kcos::COSInternedBase name) const;

  /// Takes ownership of the info. A class that is there already is left as it is.
  void enter(const std::string& fullName, std::unique_ptr<kcos::COSClassInfo> info);
  /// Defines or redefines a class of a language.
  /// Errors: "KALVEX:class:SealedClass", "KALVEX:class:HasInstances",
  /// "KALVEX:class:InvalidSuperclass"; what was defined before stays then.
  void define(std::shared_ptr<const ClassDefinition> definition);
  /// Errors: "KALVEX:class:NoSuchMember", "KALVEX:UndefinedFunction".
  void complete(std::shared_ptr<const ClassCompletion> completion);

  Package& package(const std::string& fullName);

  /// Native classes, in the order in which they were entered.
  const std::vector<ClassRecord*>& entered() const noexcept { return entered_; }

  SessionState& session() const noexcept { return session_; }

  /// Drops what definitions hold of values and callables. The classes are of no use afterwards.
  void clear() noexcept;

 private:
  ClassRecord& makeRecord(kcos::COSInternedBase name);
  /// The class of that name, present or still missing, has changed.
  void makeStale(kcos::COSInternedBase name) noexcept;
  void refuseInstances(const ClassRecord& record) const;

  SessionState& session_;
  CallTable& calls_;
  std::vector<std::unique_ptr<ClassRecord>> records_;
  std::vector<ClassRecord*> entered_;
  NameMap<std::unique_ptr<Package>> packages_;
};

}  // namespace kv::host

#pragma once

#include <map>
#include <string>

#include "kcos/class.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

/// An entry in the table of classes.
class ClassKcosRegistrationBase {
 public:
  virtual ~ClassKcosRegistrationBase();

  /// A new class info; the host takes ownership.
  virtual kcos::COSClassInfo* createClassInfo() const = 0;

 protected:
  /// Registers this entry under a full class name. If the name is taken, the first entry stays.
  explicit ClassKcosRegistrationBase(kcos::NameRef className);
};

/// Registers the class that `Info` describes. There is one static object per class, in the
/// translation unit of its description.
template <class Info>
class ClassKcosRegistration final : public ClassKcosRegistrationBase {
 public:
  ClassKcosRegistration() : ClassKcosRegistrationBase(hostClassName<typename Info::Managed>()) {}
  kcos::COSClassInfo* createClassInfo() const override { return new Info; }
};

/// All classes by full name, in byte order. It is constructed before the first static registration
/// object, whatever the order of the translation units.
std::map<std::string, const ClassKcosRegistrationBase*>& classRegistry();

/// Adds all classes in the table to the host's packages, in the order of their names.
///
/// Errors: those of the host; classes added before the error stay.
void registerAllClasses();

}  // namespace bigdata::ki

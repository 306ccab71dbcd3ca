#pragma once

#include <map>
#include <string>

#include "kcos/class.h"
#include "ki/hostClassName.h"

namespace bigdata::ki {

/// An entry of the table of classes.
class ClassKcosRegistrationBase {
 public:
  virtual ~ClassKcosRegistrationBase();

  /// A new class info; the host takes it over.
  virtual kcos::COSClassInfo* createClassInfo() const = 0;

 protected:
  /// Enters this under a full class name; a name that is there already keeps its first entry.
  explicit ClassKcosRegistrationBase(kcos::NameRef className);
};

/// Enters the class that `Info` describes in the table. One static object per class, in the
/// translation unit of its description.
template <class Info>
class ClassKcosRegistration final : public ClassKcosRegistrationBase {
 public:
  ClassKcosRegistration() : ClassKcosRegistrationBase(hostClassName<typename Info::Managed>()) {}
  kcos::COSClassInfo* createClassInfo() const override { return new Info; }
};

/// All classes by full name, in byte order. It exists before the first static registration object,
/// whatever the order of the translation units.
std::map<std::string, const ClassKcosRegistrationBase*>& classRegistry();

/// Enters all classes of the table in the host's packages, in the order of their names.
///
/// Errors: those of the host; classes entered before stay entered.
void registerAllClasses();

}  // namespace bigdata::ki

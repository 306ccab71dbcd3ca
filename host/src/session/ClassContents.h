#pragma once

#include <deque>
#include <memory>
#include <variant>
#include <vector>

#include "session/Members.h"

namespace kv::host {

/// What a class defines itself, apart from what it inherits. Addresses of members are stable.
///
/// Native: filled once by the class info. Of a language: made from a definition, and replaced as a
/// whole by a redefinition; the old contents are then kept until no call runs that could use them.
struct ClassContents {
  using Member = std::variant<const Method*, const Property*>;

  std::vector<kcos::COSInternedBase> superclasses;
  std::deque<Method> constructors;
  std::deque<Method> methods;
  std::deque<Property> properties;
  std::vector<Member> order;  ///< of registration

  std::vector<std::unique_ptr<const kcos::COSMethodBase>> nativeMethods;
  std::vector<std::unique_ptr<const kcos::COSPropT>> nativeProperties;
  std::shared_ptr<const ClassDefinition> definition;

  /// Forgets what a native class registered before it failed. Allocates nothing.
  void clear() noexcept {
    superclasses.clear();
    constructors.clear();
    methods.clear();
    properties.clear();
    order.clear();
    nativeMethods.clear();
    nativeProperties.clear();
  }
};

/// Bodies given to methods that a native class declares; replaced as a whole, too.
struct CompletedMethods {
  std::vector<std::shared_ptr<const ClassCompletion>> sources;
  std::deque<Method> methods;
  NameMap<MethodSet> sets;
};

class ClassRecord;

/// A class together with all that it inherits, as look-ups need it. Made from the contents of the
/// class and its superclasses, and made again when one of them has changed.
struct LinkedClass {
  bool isCurrent = false;                        ///< if not, so are those of all subclasses
  std::vector<const ClassRecord*> superclasses;  ///< direct ones that are defined
  std::vector<const ClassRecord*> lineage;  ///< all defined ones and the class, superclasses first
  kcos::COSInternedBase missing;            ///< a superclass that isn't defined, if there is one
  NameMap<bool> ancestors;                  ///< the class and all superclasses, defined or not
  const ClassRecord* native = nullptr;      ///< nearest native class, the class itself included
  MethodSet constructors;
  NameMap<MethodSet> methods;
  NameMap<PropertyPlace> properties;
  std::vector<const Property*> slots;
  bool isAbstract = false;
  bool hasDefaults = false;           ///< a slot has a default other than `[]`
  bool inheritsConstructors = false;  ///< a superclass written in a language has a constructor
};

}  // namespace kv::host

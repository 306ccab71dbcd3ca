#include "ki/ClassKcosRegistration.h"

#include <string_view>

namespace bigdata::ki {

namespace {

/// The package that holds the class with this full name.
kcos::COSPackage* packageOf(std::string_view className) {
  kcos::COSPackage* package = nullptr;
  for (std::size_t dot = className.find('.'); dot != std::string_view::npos;
       dot = className.find('.')) {
    const std::string_view part = className.substr(0, dot);
    package =
        package == nullptr ? kcos::omGetNamespace(part) : kcos::omGetInnerNamespace(package, part);
    className.remove_prefix(dot + 1);
  }
  return package;
}

}  // namespace

ClassKcosRegistrationBase::ClassKcosRegistrationBase(kcos::NameRef className) {
  classRegistry().emplace(className.text(), this);
}

ClassKcosRegistrationBase::~ClassKcosRegistrationBase() = default;

std::map<std::string, const ClassKcosRegistrationBase*>& classRegistry() {
  static std::map<std::string, const ClassKcosRegistrationBase*> registry;
  return registry;
}

void registerAllClasses() {
  for (const auto& [className, registration] : classRegistry()) {
    packageOf(className)->addClass(registration->createClassInfo(), 0, 2);
  }
}

}  // namespace bigdata::ki

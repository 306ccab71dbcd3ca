#include "persistence/validateNesting.h"

#include <fmt/core.h>

#include <limits>
#include <vector>

#include "plan/Dependencies.h"
#include "values/hostNames.h"
#include "values/objects.h"

namespace kv::runtime {

namespace {

using host::LoadRefusal;
using host::Value;

struct NestedClass {
  kcos::NameRef className;
  kcos::NameRef property;  ///< an object array, or a cell with an object in each element
  std::size_t maxDepth;
};

constexpr NestedClass kNestedClasses[] = {
    {kProcessorBuilder, "InputBuilders", std::numeric_limits<std::size_t>::max()},
    {kConcatenatedStrategy, "Strategies", 1000},
};

/// The objects of one class, and the objects of that class that they hold.
class NestedObjects {
 public:
  NestedObjects(std::span<const kxArray* const> objects, const NestedClass& nested) {
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (kxIsA(objects[i], nested.className)) {
        numbers_.add(kcos::omGetArrayElement(objects[i], 0).get(), objectAt_.size());
        objectAt_.push_back(i);
      }
    }
    for (const std::size_t object : objectAt_) {
      dependencies_.addNode();
      addHeld(host::getProperty(objects[object], nested.property).get());
    }
  }

  const Dependencies& dependencies() const { return dependencies_; }
  std::size_t objectAt(std::size_t node) const { return objectAt_[node]; }

 private:
  void addHeld(const kxArray* held) {
    const bool isCell = kxGetClassID(held) == kxCELL_CLASS;
    if (!isCell && !kcos::omIsKCOS(held)) {
      return;
    }
    for (std::size_t i = 0; i < kxGetNumberOfElements(held); ++i) {
      if (!isCell) {
        addNeed(held, i);
      } else if (kcos::omIsKCOS(kxGetCell(held, i)) && kxIsScalar(kxGetCell(held, i))) {
        addNeed(kxGetCell(held, i), 0);
      }
    }
  }

  void addNeed(const kxArray* objects, std::size_t index) {
    if (const auto number = numbers_.of(kcos::omGetArrayElement(objects, index).get())) {
      dependencies_.addNeed(*number);
    }
  }

  Dependencies dependencies_;
  std::vector<std::size_t> objectAt_;
  ObjectNumbers numbers_;
};

}  // namespace

std::optional<LoadRefusal> validateNesting(std::span<const kxArray* const> objects) {
  for (const NestedClass& nested : kNestedClasses) {
    const NestedObjects found(objects, nested);
    const Nesting nesting = measureNesting(found.dependencies());
    if (nesting.onCycle) {
      return LoadRefusal{found.objectAt(*nesting.onCycle),
                         fmt::format("a {} holds itself", nested.className.text())};
    }
    if (nesting.depth > nested.maxDepth) {
      return LoadRefusal{found.objectAt(0), fmt::format("objects of class {} are nested {} deep",
                                                        nested.className.text(), nesting.depth)};
    }
  }
  return std::nullopt;
}

}  // namespace kv::runtime

// The setters that loading uses check nothing, so a loaded graph may have any shape. This file
// reads it once into plain numbers, so that the rules that follow need neither host calls nor
// recursion and take linear time for any graph.

#include "persistence/LoadedGraph.h"

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <unordered_map>

#include "kcos/class.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::LoadRefusal;
using host::Value;

/// An object without which objects of a class aren't valid.
struct Needed {
  kcos::NameRef className;
  kcos::NameRef property;
  kcos::NameRef target;
};

constexpr Needed kNeeded[] = {
    {kClosure, "Operation", kOperation},
    {kClosurePromise, "Future", kClosureFuture},
    {kClosureFuture, "Promise", kClosurePromise},
    {kLazyArray, "ValueFuture", kClosureFuture},
    {kLazyArray, "PartitionMetadata", kPartitionMetadata},
    {kElementwiseOperation, "FunctionHandle", kFunctionHandle},
    {kSlicewiseOperation, "FunctionHandle", kFunctionHandle},
};

/// The properties of a class that matter here.
struct ClassFacts {
  bool isClosure = false;
  bool isPromise = false;
  bool isFuture = false;
  std::vector<const Needed*> needed{};
};

std::string_view shortName(std::string_view className) {
  return className.substr(className.rfind('.') + 1);
}

/// Tables of a graph name both ends of each edge by id. The core's own ids have about 50
/// characters.
constexpr std::size_t kMaxIdBytes = 256;

bool hasLongId(const kxArray* object) {
  return host::toText(host::getProperty(object, "Id").get()).size() > kMaxIdBytes;
}

bool isObject(const kxArray* value) {
  return value != nullptr && kcos::omIsKCOS(value) && kxIsScalar(value);
}

double numberIn(const kxArray* object, kcos::NameRef property) {
  return host::toDouble(host::getProperty(object, property).get());
}

}  // namespace

/// Reads a graph object by object.
class LoadedGraph::Reader {
 public:
  Reader(LoadedGraph& graph, std::span<const kxArray* const> objects)
      : graph_(graph), objects_(objects) {
    numbers_.reserve(objects.size());
    for (std::size_t i = 0; i < objects.size(); ++i) {
      numbers_.emplace(kcos::omGetArrayElement(objects[i], 0).get(), i);
    }
    graph_.positions_.assign(objects.size(), kNothing);
  }

  std::optional<LoadRefusal> read() {
    for (std::size_t i = 0; i < objects_.size(); ++i) {
      const ClassFacts& facts = factsOf(objects_[i]);
      for (const Needed* needed : facts.needed) {
        if (auto reason = whyUnfit(objects_[i], *needed)) {
          return LoadRefusal{i, *std::move(reason)};
        }
      }
      if ((facts.isClosure || facts.isPromise) && hasLongId(objects_[i])) {
        return LoadRefusal{i, fmt::format("an id is longer than {} bytes", kMaxIdBytes)};
      }
      if (facts.isClosure) {
        addClosure(i);
      } else if (facts.isPromise) {
        addPromise(i);
      } else if (facts.isFuture) {
        graph_.positions_[i] = graph_.futures_.size();
        graph_.futures_.push_back({i, linkOf(objects_[i], "Promise")});
      }
    }
    return std::nullopt;
  }

 private:
  /// Looked up once per class, because a class may have many objects.
  const ClassFacts& factsOf(const kxArray* object) {
    const auto classId = kcos::omGetArrayElement(object, 0)->getClassObject()->getClassId();
    const auto [found, isNew] = classes_.try_emplace(classId);
    if (isNew) {
      ClassFacts& facts = found->second;
      facts = {kxIsA(object, kClosure), kxIsA(object, kClosurePromise),
               kxIsA(object, kClosureFuture)};
      for (const Needed& needed : kNeeded) {
        if (kxIsA(object, needed.className)) {
          facts.needed.push_back(&needed);
        }
      }
    }
    return found->second;
  }

  static std::optional<std::string> whyUnfit(const kxArray* object, const Needed& needed) {
    const Value target = host::getProperty(object, needed.property);
    if (isObject(target.get()) && kxIsA(target.get(), needed.target)) {
      return std::nullopt;
    }
    const std::string_view className = shortName(needed.className.text());
    if (!isObject(target.get())) {
      return fmt::format("a {} has no {}", className, needed.property.text());
    }
    return fmt::format("the {} of a {} is a {}", needed.property.text(), className,
                       kxGetClassName(target.get()));
  }

  std::size_t numberOf(const kcos::COSInterface* object) const {
    if (object == nullptr) {
      return kNothing;
    }
    const auto found = numbers_.find(object);
    return found == numbers_.end() ? kElsewhere : found->second;
  }

  std::size_t linkOf(const kxArray* object, kcos::NameRef property) const {
    const Value target = host::getProperty(object, property);
    return isObject(target.get()) ? numberOf(kcos::omGetArrayElement(target.get(), 0)) : kNothing;
  }

  std::size_t addLinks(const kxArray* closure, kcos::NameRef property) {
    const Value targets = host::getProperty(closure, property);
    const std::size_t count =
        kcos::omIsKCOS(targets.get()) ? kxGetNumberOfElements(targets.get()) : 0;
    for (std::size_t i = 0; i < count; ++i) {
      graph_.links_.push_back(numberOf(kcos::omGetArrayElement(targets.get(), i)));
    }
    return count;
  }

  void addClosure(std::size_t number) {
    const kxArray* object = objects_[number];
    Closure closure{.object = number, .firstLink = graph_.links_.size()};
    closure.numInputs = addLinks(object, "InputFutures");
    closure.numOutputs = addLinks(object, "OutputPromises");
    closure.numOperationOutputs =
        numberIn(host::getProperty(object, "Operation").get(), "NumOutputs");
    graph_.positions_[number] = graph_.closures_.size();
    graph_.closures_.push_back(closure);
  }

  void addPromise(std::size_t number) {
    const kxArray* object = objects_[number];
    graph_.positions_[number] = graph_.promises_.size();
    graph_.promises_.push_back(
        {.object = number,
         .closure = linkOf(object, "Closure"),
         .future = linkOf(object, "Future"),
         .outputIndex = numberIn(object, "ArgoutIndex"),
         .isDone = host::toLogical(host::getProperty(object, "IsDone").get())});
  }

  LoadedGraph& graph_;
  std::span<const kxArray* const> objects_;
  std::unordered_map<const kcos::COSInterface*, std::size_t> numbers_;
  std::unordered_map<kcos::COSInternedBase, ClassFacts> classes_;
};

std::optional<LoadRefusal> LoadedGraph::read(std::span<const kxArray* const> objects) {
  return Reader(*this, objects).read();
}

}  // namespace kv::runtime

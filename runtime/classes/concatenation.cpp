// The strategy of arrays that are joined vertically: the partitions of the first part, then those
// of the second, and so on. Parts may themselves be concatenated, to any depth and with sharing, so
// each query visits every distinct strategy once and uses no native recursion.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "plan/Dependencies.h"
#include "values/hostNames.h"
#include "values/objects.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

constexpr std::size_t kMaxPartitions = std::numeric_limits<std::uint32_t>::max();

void requireStrategy(const kxArray* part) {
  if (!kxIsA(part, kPartitionStrategy)) {
    host::raiseInvalidType("Input", std::string("scalar ") + kPartitionStrategy, part);
  }
}

/// ConcatenatedPartitionStrategy(strategy, ...): the partitions of the first, then of the second,
/// and so on.
void constructConcatenated(const Call& call) {
  host::constructSuperclass(call.in(0), kPartitionStrategy, {});
  std::vector<Value> parts;
  for (int i = 1; i < call.nrhs; ++i) {
    requireStrategy(call.in(i));
    parts.push_back(matrix::sharedCopy(call.in(i)));
  }
  host::setSlot(call.in(0), "Strategies", host::makeCell(std::move(parts)));
}

void checkLoadedStrategy(const kxArray* strategy) {
  const Value parts = host::getSlot(strategy, "Strategies");
  if (kxGetClassID(parts.get()) != kxCELL_CLASS) {
    host::raiseInvalidType("Input", "cell", parts.get());
  }
  for (std::size_t i = 0; i < kxGetNumberOfElements(parts.get()); ++i) {
    requireStrategy(kxGetCell(parts.get(), i));
  }
}

/// The parts of a concatenated strategy.
class Parts {
 public:
  explicit Parts(const kxArray* strategy) : cell_(host::getSlot(strategy, "Strategies")) {}

  std::size_t size() const { return kxGetNumberOfElements(cell_.get()); }
  const kxArray* operator[](std::size_t index) const { return kxGetCell(cell_.get(), index); }

 private:
  Value cell_;
};

using Strategy = const kcos::COSInterface*;

Strategy objectOf(const kxArray* strategy) { return kcos::omGetArrayElement(strategy, 0).get(); }

bool isConcatenated(const kxArray* strategy) { return kxIsA(strategy, kConcatenatedStrategy); }

/// A concatenated strategy and its parts.
struct Whole {
  const kxArray* strategy;
  Parts parts;
};

/// A concatenated strategy and those inside it: each once, after those that it is made of.
///
/// A strategy may be part of many others, and those of others again, so there may be far more
/// places where it occurs than strategies; and they may be nested deeper than the native stack.
///
/// Errors: "KALVEX:RecursionLimit" with the number of strategies if one is part of itself.
std::vector<Whole> partsFirst(const kxArray* strategy) {
  std::vector<Whole> found;
  ObjectNumbers numbers;
  const auto numberOf = [&](const kxArray* whole) {
    numbers.add(objectOf(whole), found.size());
    const std::size_t number = *numbers.of(whole);
    if (number == found.size()) {
      found.push_back({whole, Parts(whole)});
    }
    return number;
  };
  numberOf(strategy);
  Dependencies dependencies;
  for (std::size_t i = 0; i < found.size(); ++i) {
    dependencies.addNode();
    for (std::size_t k = 0; k < found[i].parts.size(); ++k) {
      if (const kxArray* part = found[i].parts[k]; isConcatenated(part)) {
        dependencies.addNeed(numberOf(part));
      }
    }
  }
  const DependencyOrder order = orderFrom(dependencies, 0);
  if (order.onCycle) {
    host::raise("KALVEX:RecursionLimit", {std::to_string(found.size())});
  }
  std::vector<Whole> ordered;
  for (const std::size_t node : order.nodes) {
    ordered.push_back(std::move(found[node]));
  }
  return ordered;
}

/// The sum of a property over all parts; infinite where one has no maximum.
double sumOf(const kxArray* strategy, kcos::NameRef property) {
  std::unordered_map<Strategy, double> totals;
  for (const auto& [whole, parts] : partsFirst(strategy)) {
    double total = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      total += isConcatenated(parts[i]) ? totals.at(objectOf(parts[i]))
                                        : kxGetScalar(host::getProperty(parts[i], property).get());
    }
    totals.emplace(objectOf(whole), total);
  }
  return totals.at(objectOf(strategy));
}

host::PropertyDefinition sumOfParts(kcos::NameRef property) {
  return computed(std::string(property.text()), [property](const Call& call) {
    call.out(0, host::makeDouble(sumOf(call.in(0), property)));
  });
}

host::PropertyDefinition never(std::string name) {
  return computed(std::move(name), [](const Call& call) { call.out(0, host::makeLogical(false)); });
}

[[noreturn]] void refuse(const char* what, std::size_t count, double expected) {
  host::raise("KALVEX:bigdata:array:ConcatenatedPartitions",
              {what, std::to_string(count), std::to_string(static_cast<std::size_t>(expected))});
}

void requireTotal(const kxArray* strategy, std::size_t count) {
  const double minimum = sumOf(strategy, "MinNumPartitions");
  if (sumOf(strategy, "MaxNumPartitions") != minimum || static_cast<double>(count) != minimum) {
    refuse("NumPartitions", count, minimum);
  }
}

/// createPartition(strategy, index, numPartitions): by the part in which the index falls.
void createPartition(const Call& call) {
  const Parts parts(call.in(0));
  const std::size_t index = host::toCount(call.in(1), kMaxPartitions);
  const std::size_t count = host::toCount(call.in(2), kMaxPartitions);
  requireTotal(call.in(0), count);
  std::size_t first = 1;
  for (std::size_t i = 0; i < parts.size() && index >= first; ++i) {
    const Value size = host::call("numpartitions", {parts[i]});
    const std::size_t next = first + host::toCount(size.get(), kMaxPartitions);
    if (index < next) {
      const Value inside = host::makeDouble(static_cast<double>(index - first + 1));
      call.out(0, host::call("createPartition", {parts[i], inside.get(), size.get()}));
      return;
    }
    first = next;
  }
  refuse("PartitionIndex", index, static_cast<double>(count));
}

void fixNumPartitions(const Call& call) {
  requireTotal(call.in(0), host::toCount(call.in(1), kMaxPartitions));
  call.out(0, matrix::sharedCopy(call.in(0)));
}

/// resolve(strategy, default, limit, flag): resolves each part separately.
void resolve(const Call& call) {
  std::unordered_map<Strategy, Value> resolved;
  for (const auto& [whole, parts] : partsFirst(call.in(0))) {
    std::vector<const kxArray*> inputs;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      Value& part = resolved[objectOf(parts[i])];
      if (part == nullptr) {
        part = host::call("resolve", {parts[i], call.in(1), call.in(2), call.in(3)});
      }
      inputs.push_back(part.get());
    }
    resolved[objectOf(whole)] = host::call(kConcatenatedStrategy, inputs);
  }
  call.out(0, std::move(resolved.at(objectOf(call.in(0)))));
}

/// True if the strategies have compatible parts in the same order.
bool areCompatible(const kxArray* first, const kxArray* second) {
  std::deque<std::pair<Parts, Parts>> pairs;
  pairs.emplace_back(Parts(first), Parts(second));
  std::set<std::pair<Strategy, Strategy>> met;
  for (std::size_t next = 0; next < pairs.size(); ++next) {
    const auto& [a, b] = pairs[next];
    if (a.size() != b.size()) {
      return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (!met.emplace(objectOf(a[i]), objectOf(b[i])).second) {
        continue;
      }
      if (isConcatenated(a[i]) && isConcatenated(b[i])) {
        pairs.emplace_back(Parts(a[i]), Parts(b[i]));
      } else if (!host::toLogical(host::call("isCompatible", {a[i], b[i]}).get())) {
        return false;
      }
    }
  }
  return true;
}

void typedIsCompatible(const Call& call) {
  call.out(0, host::makeLogical(areCompatible(call.in(0), call.in(1))));
}

void throwIfIncompatible(const Call& call) {
  if (!areCompatible(call.in(0), call.in(1))) {
    host::raise("KALVEX:bigdata:array:IncompatibleTallIndexing");
  }
}

void typedAlign(const Call& call) {
  throwIfIncompatible(call);
  call.out(0, matrix::sharedCopy(call.in(0)));
}

void isKnownSinglePartition(const Call& call) {
  call.out(0, host::makeLogical(sumOf(call.in(0), "MaxNumPartitions") == 1));
}

}  // namespace

void defineConcatenation(host::Session& session) {
  define(session,
         {.name = kConcatenatedStrategy,
          .superclasses = {kPartitionStrategy},
          .properties = {sumOfParts("MinNumPartitions"), sumOfParts("MaxNumPartitions"),
                         never("IsDatastorePartitioning"), never("IsBroadcast"),
                         sumOfParts("MaxNumReadFailures"), readOnly("Strategies")},
          .constructor = constructor(constructConcatenated, 2, -1),
          .methods = {method("createPartition", createPartition, 3, 4),
                      method("fixNumPartitions", fixNumPartitions, 2, 2),
                      method("resolve", resolve, 4, 4),
                      method("isKnownSinglePartition", isKnownSinglePartition, 1, 1),
                      protectedMethod("typedIsCompatible", typedIsCompatible, 2, 2),
                      protectedMethod("typedThrowIfIncompatible", throwIfIncompatible, 2, 2),
                      protectedMethod("typedAlign", typedAlign, 2, 2)},
          .savedForm = checkedOnLoad(checkLoadedStrategy)});
}

}  // namespace kv::runtime

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

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

/// The strategies that a concatenated one is made of.
class Parts {
 public:
  explicit Parts(const kxArray* strategy) : cell_(host::getSlot(strategy, "Strategies")) {}

  std::size_t size() const { return kxGetNumberOfElements(cell_.get()); }
  const kxArray* operator[](std::size_t index) const { return kxGetCell(cell_.get(), index); }

 private:
  Value cell_;
};

// A strategy may be part of many others, and those of others again, so the places where it occurs
// can be far more than there are strategies. A walk visits each strategy once.

using Strategy = const kcos::COSInterface*;

Strategy objectOf(const kxArray* strategy) { return kcos::omGetArrayElement(strategy, 0).get(); }

bool isConcatenated(const kxArray* strategy) { return kxIsA(strategy, kConcatenatedStrategy); }

/// The sum of a property over all parts; infinite where one has no maximum.
class Sum {
 public:
  explicit Sum(kcos::NameRef property) : property_(property) {}

  double of(const kxArray* strategy) {
    if (!isConcatenated(strategy)) {
      return kxGetScalar(host::getProperty(strategy, property_).get());
    }
    if (const auto known = known_.find(objectOf(strategy)); known != known_.end()) {
      return known->second;
    }
    const Parts parts(strategy);
    double total = 0;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      total += of(parts[i]);
    }
    known_.emplace(objectOf(strategy), total);
    return total;
  }

 private:
  kcos::NameRef property_;
  std::unordered_map<Strategy, double> known_;
};

double sumOf(const kxArray* strategy, kcos::NameRef property) { return Sum(property).of(strategy); }

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

/// createPartition(strategy, index, numPartitions): the part's own, where the index falls.
void createPartition(const Call& call) {
  const Parts parts(call.in(0));
  const std::size_t index = host::toCount(call.in(1), kMaxPartitions);
  const std::size_t count = host::toCount(call.in(2), kMaxPartitions);
  requireTotal(call.in(0), count);
  std::size_t first = 1;
  for (std::size_t i = 0; i < parts.size() && index >= first; ++i) {
    const Value size = host::call("numpartitions", {parts[i]});
    const std::size_t behind = first + host::toCount(size.get(), kMaxPartitions);
    if (index < behind) {
      const Value inside = host::makeDouble(static_cast<double>(index - first + 1));
      call.out(0, host::call("createPartition", {parts[i], inside.get(), size.get()}));
      return;
    }
    first = behind;
  }
  refuse("PartitionIndex", index, static_cast<double>(count));
}

void fixNumPartitions(const Call& call) {
  requireTotal(call.in(0), host::toCount(call.in(1), kMaxPartitions));
  call.out(0, matrix::sharedCopy(call.in(0)));
}

/// Resolves each part alone.
class Resolution {
 public:
  explicit Resolution(const Call& call) : call_(call) {}

  const kxArray* of(const kxArray* strategy) {
    if (const auto known = known_.find(objectOf(strategy)); known != known_.end()) {
      return known->second.get();
    }
    Value resolved = isConcatenated(strategy)
                         ? ofParts(Parts(strategy))
                         : host::call("resolve", {strategy, call_.in(1), call_.in(2), call_.in(3)});
    return known_.emplace(objectOf(strategy), std::move(resolved)).first->second.get();
  }

 private:
  Value ofParts(const Parts& parts) {
    std::vector<const kxArray*> inputs;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      inputs.push_back(of(parts[i]));
    }
    return host::call(kConcatenatedStrategy, inputs);
  }

  const Call& call_;
  std::unordered_map<Strategy, Value> known_;
};

/// resolve(strategy, default, limit, flag)
void resolve(const Call& call) { call.out(0, matrix::sharedCopy(Resolution(call).of(call.in(0)))); }

/// Whether strategies have compatible parts, in order.
class Compatibility {
 public:
  bool of(const kxArray* a, const kxArray* b) { return ofParts(Parts(a), Parts(b)); }

 private:
  bool ofPart(const kxArray* a, const kxArray* b) {
    if (!isConcatenated(a) || !isConcatenated(b)) {
      return host::toLogical(host::call("isCompatible", {a, b}).get());
    }
    const std::pair pair{objectOf(a), objectOf(b)};
    if (const auto known = known_.find(pair); known != known_.end()) {
      return known->second;
    }
    return known_[pair] = ofParts(Parts(a), Parts(b));
  }

  bool ofParts(const Parts& a, const Parts& b) {
    bool areAll = a.size() == b.size();
    for (std::size_t i = 0; areAll && i < a.size(); ++i) {
      areAll = ofPart(a[i], b[i]);
    }
    return areAll;
  }

  std::map<std::pair<Strategy, Strategy>, bool> known_;
};

void typedIsCompatible(const Call& call) {
  call.out(0, host::makeLogical(Compatibility().of(call.in(0), call.in(1))));
}

void throwIfIncompatible(const Call& call) {
  if (!Compatibility().of(call.in(0), call.in(1))) {
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

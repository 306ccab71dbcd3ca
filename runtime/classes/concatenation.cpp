#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
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

  /// Infinite where one part has no maximum.
  double sum(kcos::NameRef property) const {
    double total = 0;
    for (std::size_t i = 0; i < size(); ++i) {
      total += kxGetScalar(host::getProperty((*this)[i], property).get());
    }
    return total;
  }

 private:
  Value cell_;
};

template <class F>
host::PropertyDefinition computedNumber(std::string name, F number) {
  return computed(std::move(name), [number](const Call& call) {
    call.out(0, host::makeDouble(number(Parts(call.in(0)))));
  });
}

host::PropertyDefinition never(std::string name) {
  return computed(std::move(name), [](const Call& call) { call.out(0, host::makeLogical(false)); });
}

[[noreturn]] void refuse(const char* what, std::size_t count, double expected) {
  host::raise("KALVEX:bigdata:array:ConcatenatedPartitions",
              {what, std::to_string(count), std::to_string(static_cast<std::size_t>(expected))});
}

void requireTotal(const Parts& parts, std::size_t count) {
  const double minimum = parts.sum("MinNumPartitions");
  if (parts.sum("MaxNumPartitions") != minimum || static_cast<double>(count) != minimum) {
    refuse("NumPartitions", count, minimum);
  }
}

/// createPartition(strategy, index, numPartitions): the part's own, where the index falls.
void createPartition(const Call& call) {
  const Parts parts(call.in(0));
  const std::size_t index = host::toCount(call.in(1), kMaxPartitions);
  const std::size_t count = host::toCount(call.in(2), kMaxPartitions);
  requireTotal(parts, count);
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
  requireTotal(Parts(call.in(0)), host::toCount(call.in(1), kMaxPartitions));
  call.out(0, matrix::sharedCopy(call.in(0)));
}

/// resolve(strategy, default, limit, flag): each part by itself.
void resolve(const Call& call) {
  const Parts parts(call.in(0));
  std::vector<Value> resolved;
  std::vector<const kxArray*> inputs;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    resolved.push_back(host::call("resolve", {parts[i], call.in(1), call.in(2), call.in(3)}));
    inputs.push_back(resolved.back().get());
  }
  call.out(0, host::call(kConcatenatedStrategy, inputs));
}

bool areCompatible(const Parts& a, const Parts& b) {
  bool areAll = a.size() == b.size();
  for (std::size_t i = 0; areAll && i < a.size(); ++i) {
    areAll = host::toLogical(host::call("isCompatible", {a[i], b[i]}).get());
  }
  return areAll;
}

void typedIsCompatible(const Call& call) {
  call.out(0, host::makeLogical(areCompatible(Parts(call.in(0)), Parts(call.in(1)))));
}

void throwIfIncompatible(const Call& call) {
  if (!areCompatible(Parts(call.in(0)), Parts(call.in(1)))) {
    host::raise("KALVEX:bigdata:array:IncompatibleTallIndexing");
  }
}

void typedAlign(const Call& call) {
  throwIfIncompatible(call);
  call.out(0, matrix::sharedCopy(call.in(0)));
}

void isKnownSinglePartition(const Call& call) {
  call.out(0, host::makeLogical(Parts(call.in(0)).sum("MaxNumPartitions") == 1));
}

}  // namespace

void defineConcatenation(host::Session& session) {
  const auto sumOf = [](kcos::NameRef property) {
    return [property](const Parts& parts) { return parts.sum(property); };
  };
  define(session,
         {.name = kConcatenatedStrategy,
          .superclasses = {kPartitionStrategy},
          .properties = {computedNumber("MinNumPartitions", sumOf("MinNumPartitions")),
                         computedNumber("MaxNumPartitions", sumOf("MaxNumPartitions")),
                         never("IsDatastorePartitioning"), never("IsBroadcast"),
                         computedNumber("MaxNumReadFailures", sumOf("MaxNumReadFailures")),
                         readOnly("Strategies")},
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

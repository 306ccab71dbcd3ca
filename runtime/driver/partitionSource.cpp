#include "driver/partitionSource.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kv/host/errors.h"
#include "source/PartitionedSource.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

/// More partitions than any source is cut into: each is a call of `createPartition`.
constexpr std::int64_t kMaxPartitions = 1 << 20;

constexpr std::size_t kMaxReadFailures = 1000;

/// A partition that a strategy created: one of `of` equal parts, or own partitions of the source.
struct Created {
  std::int64_t index = 0;  ///< counted from 0
  std::int64_t of = 0;
  std::optional<SourceRange> range{};
};

/// What the strategy of a source is called with, and its errors.
class StrategyCalls {
 public:
  StrategyCalls(const Datastore& source, const kxArray* strategy)
      : source_(source), strategy_(strategy) {
    if (!kxIsA(strategy, kPartitionStrategy)) {
      host::raiseInvalidType("PartitionStrategy", kPartitionStrategy, strategy);
    }
    const Value own = host::makeDouble(static_cast<double>(source.numPartitions()));
    const Value flag = host::makeLogical(false);
    resolved_ = host::call("resolve", {strategy, own.get(), own.get(), flag.get()});
    const double count = host::toDouble(host::call("numpartitions", {resolved_.get()}).get());
    if (!(count >= 1 && count <= static_cast<double>(kMaxPartitions))) {
      host::raise(
          "KALVEX:executor:PartitionCount",
          {kxGetClassName(strategy), fmt::format("{}", count), std::to_string(kMaxPartitions)});
    }
    count_ = static_cast<std::int64_t>(count);
  }

  std::vector<Created> create() const {
    std::vector<Created> created;
    const Value count = host::makeDouble(static_cast<double>(count_));
    for (std::int64_t index = 1; index <= count_; ++index) {
      const Value number = host::makeDouble(static_cast<double>(index));
      const Value partition =
          host::call("createPartition", {resolved_.get(), number.get(), count.get()});
      created.push_back(read(index, partition.get()));
    }
    return created;
  }

  int maxReadFailures() const {
    const Value most = host::getProperty(strategy_, "MaxNumReadFailures");
    return static_cast<int>(host::toCount(most.get(), kMaxReadFailures));
  }

 private:
  Created read(std::int64_t partition, const kxArray* object) const {
    const bool isSimple = kxIsA(object, kSimplePartition);
    if (!isSimple && !kxIsA(object, kSourcePartition)) {
      refuse(partition, std::string("a ") + kxGetClassName(object));
    }
    const double a =
        number(object, isSimple ? kcos::NameRef("PartitionIndex") : kcos::NameRef("First"));
    const double b =
        number(object, isSimple ? kcos::NameRef("NumPartitions") : kcos::NameRef("Count"));
    const auto own = static_cast<double>(source_.numPartitions());
    const bool isRight = isSimple ? a >= 1 && b >= a && b <= static_cast<double>(kMaxPartitions)
                                  : a >= 1 && b >= 0 && a + b - 1 <= own;
    if (!isRight || a != static_cast<double>(static_cast<std::int64_t>(a)) ||
        b != static_cast<double>(static_cast<std::int64_t>(b))) {
      refuse(partition, isSimple ? fmt::format("number {} of {}", a, b)
                                 : fmt::format("{} partitions from {} on", b, a));
    }
    const auto first = static_cast<std::int64_t>(a) - 1;
    const auto second = static_cast<std::int64_t>(b);
    return isSimple ? Created{first, second} : Created{0, 0, SourceRange{first, second}};
  }

  static double number(const kxArray* object, kcos::NameRef property) {
    return host::toDouble(host::getProperty(object, property).get());
  }

  [[noreturn]] void refuse(std::int64_t partition, std::string given) const {
    host::raise("KALVEX:executor:Partition",
                {kxGetClassName(strategy_), std::to_string(partition), std::to_string(count_),
                 std::move(given), std::to_string(source_.numPartitions()), source_.displayName()});
  }

  const Datastore& source_;
  const kxArray* strategy_;
  Value resolved_;
  std::int64_t count_ = 0;
};

/// The source to which parts of `of` refer: one that is cut finer where it has fewer partitions.
std::shared_ptr<const Datastore> fineEnough(std::shared_ptr<const Datastore> source,
                                            const std::vector<Created>& created) {
  std::int64_t most = 0;
  for (const Created& each : created) {
    if (each.range) {
      return source;
    }
    most = std::max(most, each.of);
  }
  std::shared_ptr<const Datastore> finer =
      most > source->numPartitions() ? source->cutFiner(most) : nullptr;
  return finer != nullptr ? finer : source;
}

}  // namespace

std::shared_ptr<const Datastore> partitionSource(std::shared_ptr<const Datastore> source,
                                                 const kxArray* strategy) {
  const bool isOwn = strategy == nullptr ||
                     (kxIsEmpty(strategy) && kxGetClassID(strategy) == kxDOUBLE_CLASS) ||
                     std::string_view(kxGetClassName(strategy)) == kDatastoreStrategy;
  if (isOwn) {
    return source;
  }
  const StrategyCalls calls(*source, strategy);
  const std::vector<Created> created = calls.create();
  const std::shared_ptr<const Datastore> whole = fineEnough(std::move(source), created);
  const std::int64_t own = whole->numPartitions();
  std::vector<SourceRange> ranges;
  for (const Created& each : created) {
    const std::int64_t first = each.range ? 0 : each.index * own / each.of;
    ranges.push_back(each.range ? *each.range
                                : SourceRange{first, (each.index + 1) * own / each.of - first});
  }
  return std::make_shared<PartitionedSource>(whole, std::move(ranges), calls.maxReadFailures());
}

}  // namespace kv::runtime

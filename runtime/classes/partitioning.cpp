// Partition strategies of sources, which the core asks how rows are cut: by the files of a source,
// by ranges that a user chose, or by the cuts of arrays in memory, which may be combined.

#include <limits>

#include "classes/DatastoreValue.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "kv/runtime/datastoreObject.h"
#include "source/memory/ArrayDatastore.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

void constructPartition(const Call& call) {
  host::setSlot(call.in(0), "PartitionIndex", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "NumPartitions", matrix::sharedCopy(call.in(2)));
}

/// The rows of arrays in memory without their columns: what a strategy needs of them. So it keeps
/// no memory, and can be saved with a value that was gathered.
Value positionsOf(std::string name, PositionCut cut) {
  return datastoreObject(
      std::make_shared<const ArrayDatastore>(ArrayTable{std::move(name), std::move(cut)}));
}

/// SourcePartition(first, count): own partitions of a source, from `first` on, which counts from 1.
void constructSourcePartition(const Call& call) {
  host::setSlot(call.in(0), "First", matrix::sharedCopy(call.in(1)));
  host::setSlot(call.in(0), "Count", matrix::sharedCopy(call.in(2)));
}

/// kv.read(datastore, partitioning): an array that reads the datastore as a strategy cuts it.
/// `partitioning` is whatever a PartitionMetadata is made of.
void readPartitioned(const Call& call) {
  call.expect(1, 2, 2);
  datastoreOf(call.in(0));
  const Value metadata = host::call(kPartitionMetadata, {call.in(1)});
  const Value strategy = host::getProperty(metadata.get(), "Strategy");
  const Value one = host::makeDouble(1);
  const Value operation = host::call(kReadOperation, {call.in(0), one.get(), strategy.get()});
  call.out(0, host::call("applyOperationBuiltin", {operation.get(), metadata.get()}));
}

void constructStrategy(const Call& call) {
  host::constructSuperclass(call.in(0), kPartitionStrategy, {});
  const ArrayDatastore* arrays = datastoreOf(call.in(1))->asArrays();
  host::setSlot(call.in(0), "Datastore",
                arrays != nullptr ? positionsOf(arrays->displayName(), arrays->cut())
                                  : matrix::sharedCopy(call.in(1)));
}

const Datastore& sourceOf(const kxArray* strategy) {
  return *datastoreOf(host::getSlot(strategy, "Datastore").get());
}

/// The partitions of a datastore are determined by its files: no more and no fewer.
void countPartitions(const Call& call) {
  call.out(0, host::makeDouble(static_cast<double>(sourceOf(call.in(0)).numPartitions())));
}

host::NativeBody constant(bool value) {
  return [value](const Call& call) { call.out(0, host::makeLogical(value)); };
}

std::size_t numPartitionsOf(const kxArray* strategy) {
  return static_cast<std::size_t>(sourceOf(strategy).numPartitions());
}

void refuse(const char* what, std::size_t count, std::size_t expected) {
  host::raise("KALVEX:datastore:PartitionCount",
              {what, std::to_string(count), std::to_string(expected)});
}

/// createPartition(strategy, index, numPartitions)
void createPartition(const Call& call) {
  const std::size_t expected = numPartitionsOf(call.in(0));
  const std::size_t index = host::toCount(call.in(1), std::numeric_limits<std::uint32_t>::max());
  const std::size_t count = host::toCount(call.in(2), std::numeric_limits<std::uint32_t>::max());
  if (count != expected) {
    refuse("NumPartitions", count, expected);
  }
  if (index == 0 || index > expected) {
    refuse("PartitionIndex", index, expected);
  }
  call.out(0, host::call(kSimplePartition, {call.in(1), call.in(2)}));
}

void fixNumPartitions(const Call& call) {
  const std::size_t expected = numPartitionsOf(call.in(0));
  const std::size_t count = host::toCount(call.in(1), std::numeric_limits<std::uint32_t>::max());
  if (count != expected) {
    refuse("NumPartitions", count, expected);
  }
  call.out(0, matrix::sharedCopy(call.in(0)));
}

void returnSelf(const Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); }

bool areCompatible(const kxArray* a, const kxArray* b) {
  return kxIsA(b, kDatastoreStrategy) && sourceOf(a).rowSpace() == sourceOf(b).rowSpace();
}

void typedIsCompatible(const Call& call) {
  call.out(0, host::makeLogical(areCompatible(call.in(0), call.in(1))));
}

/// Two sources are never aligned by chance: their rows must be the same.
void throwIfIncompatible(const Call& call) {
  if (!areCompatible(call.in(0), call.in(1))) {
    host::raise("KALVEX:bigdata:array:IncompatibleTallIndexing");
  }
}

/// Of arrays in memory with different cuts, the strategy that has the cuts of both.
void typedAlign(const Call& call) {
  throwIfIncompatible(call);
  const ArrayDatastore* arrays = sourceOf(call.in(0)).asArrays();
  const ArrayDatastore* others = sourceOf(call.in(1)).asArrays();
  if (arrays == nullptr || others == nullptr || arrays->cut() == others->cut()) {
    returnSelf(call);
    return;
  }
  const Value rows = positionsOf(arrays->displayName(), arrays->cut().refined(others->cut()));
  call.out(0, host::call(kDatastoreStrategy, {rows.get()}));
}

void isKnownSinglePartition(const Call& call) {
  call.out(0, host::makeLogical(numPartitionsOf(call.in(0)) == 1));
}

}  // namespace

void definePartitioning(host::Session& session) {
  define(session, {.name = kSimplePartition,
                   .properties = {readOnly("PartitionIndex"), readOnly("NumPartitions")},
                   .constructor = constructor(constructPartition, 3, 3)});
  define(session, {.name = kSourcePartition,
                   .properties = {readOnly("First"), readOnly("Count")},
                   .constructor = constructor(constructSourcePartition, 3, 3)});
  session.defineFunction("kv.read", readPartitioned);
  define(session,
         {.name = kDatastoreStrategy,
          .superclasses = {kPartitionStrategy},
          .properties = {computed("MinNumPartitions", countPartitions),
                         computed("MaxNumPartitions", countPartitions),
                         computed("IsDatastorePartitioning", constant(true)),
                         computed("IsBroadcast", constant(false)),
                         computed("MaxNumReadFailures",
                                  [](const Call& call) {
                                    call.out(0, host::makeDouble(kMaxReadFailures));
                                  }),
                         readOnly("Datastore")},
          .constructor = constructor(constructStrategy, 2, 2),
          .methods = {method("createPartition", createPartition, 3, 4),
                      method("fixNumPartitions", fixNumPartitions, 2, 2),
                      method("resolve", returnSelf, 4, 4),
                      method("isKnownSinglePartition", isKnownSinglePartition, 1, 1),
                      protectedMethod("typedIsCompatible", typedIsCompatible, 2, 2),
                      protectedMethod("typedThrowIfIncompatible", throwIfIncompatible, 2, 2),
                      protectedMethod("typedAlign", typedAlign, 2, 2)}});
}

}  // namespace kv::runtime

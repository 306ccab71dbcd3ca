#include "column/RowPlaces.h"

#include <arrow/memory_pool.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include "engine/Stage.h"
#include "kv/errors/StepError.h"
#include "kv/host/session.h"
#include "runtime/makeColumn.h"
#include "values/placesValues.h"

namespace kv::runtime {

namespace {

Chunk chunkOf(const std::vector<double>& values, RowOrdinals ordinals) {
  Chunk chunk;
  chunk.ordinals = std::move(ordinals);
  chunk.columns = {doubles(values)};
  return chunk;
}

RowOrdinals ordinalsOf(std::initializer_list<std::int64_t> ordinals) {
  return RowOrdinals(std::make_shared<const OrdinalList>(ordinals));
}

std::vector<double> taken(const RowPlaces& places, const Chunk& whole, std::int64_t partition,
                          std::int64_t first, std::int64_t last) {
  const Chunk chunk = places.take(whole, partition, first, last);
  EXPECT_EQ(chunk.columns.at(0).rows(), chunk.rows());
  return numbersOf(chunk.columns.at(0));
}

using Numbers = std::vector<double>;

std::shared_ptr<const RowCut> cutOf(std::vector<std::int64_t> partitionRows) {
  return std::make_shared<const RowCut>(RowCut{"a source", std::move(partitionRows)});
}

RowPlaces placesIn(std::vector<std::vector<Chunk>> partitions, std::shared_ptr<const RowCut> cut) {
  return RowPlaces::ofPartitions(partitions, std::move(cut));
}

TEST(RowPlaces, GiveTheRowsOfAFilterToTheChunksTheyCameFrom) {
  const RowPlaces places =
      placesIn({{chunkOf({11, 14}, ordinalsOf({1, 4})), chunkOf({15}, ordinalsOf({5}))},
                {chunkOf({20, 22}, ordinalsOf({0, 2}))}},
               cutOf({9, 3}));
  const Chunk whole = chunkOf({11, 14, 15, 20, 22}, RowOrdinals(0, 5));
  EXPECT_EQ(taken(places, whole, 0, 0, 4), Numbers({11}));
  EXPECT_EQ(taken(places, whole, 0, 4, 5), Numbers({14}));
  EXPECT_EQ(taken(places, whole, 0, 5, 9), Numbers({15}));
  EXPECT_EQ(taken(places, whole, 1, 0, 1), Numbers({20}));
  EXPECT_EQ(taken(places, whole, 1, 1, 2), Numbers());
  EXPECT_EQ(taken(places, whole, 1, 2, 9), Numbers({22}));
}

TEST(RowPlaces, CutWholeValuesByRowsOnly) {
  const RowPlaces places =
      placesIn({{chunkOf({10}, RowOrdinals(0, 1)), chunkOf({11, 12}, RowOrdinals(1, 2))},
                {},
                {chunkOf({20}, RowOrdinals(0, 1))}},
               cutOf({3, 0, 1}));
  EXPECT_FALSE(places.ordinals.has_value());
  const Chunk whole = chunkOf({10, 11, 12, 20}, RowOrdinals(0, 4));
  EXPECT_EQ(taken(places, whole, 0, 1, 2), Numbers({11}));
  EXPECT_EQ(taken(places, whole, 0, 2, 9), Numbers({12}));
  EXPECT_EQ(taken(places, whole, 1, 0, 9), Numbers());
  EXPECT_EQ(taken(places, whole, 2, 0, 9), Numbers({20}));
}

/// True if a stage with a value in these places can be read from its bytes.
bool crossAsBytes(const RowPlaces& places, const std::vector<double>& values) {
  std::vector<Step> steps{{makeCollect(), {{.isStageInput = true}}}};
  const Stage stage(std::move(steps), {0},
                    {{chunkOf(values, RowOrdinals(0, std::ssize(values))),
                      std::make_shared<const RowPlaces>(places)}});
  try {
    Stage::fromBytes(stage.toBytes(), arrow::default_memory_pool());
    return true;
  } catch (const errors::StepError& error) {
    EXPECT_EQ(error.id(), "KALVEX:executor:BadBytes");
    return false;
  }
}

/// Any code may set the metadata of a promise, and any process may send a stage.
TEST(RowPlaces, AreReadFromMetadataAndBytesOnlyIfTheyFit) {
  host::Session session;
  const host::Session::Scope scope(session);
  const RowPlaces places = placesIn(
      {{chunkOf({11, 14}, ordinalsOf({1, 4}))}, {chunkOf({20}, RowOrdinals(0, 1))}}, cutOf({9, 1}));
  const auto areRead = [&](auto change) {
    RowPlaces changed = places;
    RowCut cut = *places.cut;
    change(changed, cut);
    changed.cut = std::make_shared<const RowCut>(cut);
    const bool fromMetadata = placesOf(toMetadata(changed).get(), 3).has_value();
    EXPECT_EQ(crossAsBytes(changed, {11, 14, 20}), fromMetadata);
    return fromMetadata;
  };
  EXPECT_TRUE(areRead([](RowPlaces&, RowCut&) {}));
  EXPECT_FALSE(areRead([](RowPlaces& p, RowCut&) { p.firstRow = {0, 2, 4}; })) << "rows";
  EXPECT_FALSE(areRead([](RowPlaces& p, RowCut&) { p.firstRow = {0, 4, 3}; })) << "order";
  EXPECT_FALSE(areRead([](RowPlaces& p, RowCut&) { p.ordinals.reset(); })) << "rows left out";
  EXPECT_FALSE(areRead([](RowPlaces&, RowCut& c) { c.partitionRows = {-9, 1}; })) << "negative";
  EXPECT_FALSE(areRead([](RowPlaces&, RowCut& c) { c.partitionRows = {4, 1}; })) << "no room";
  EXPECT_FALSE(areRead([](RowPlaces&, RowCut& c) { c.partitionRows = {9}; })) << "partitions";
  EXPECT_FALSE(areRead([](RowPlaces& p, RowCut& c) {
    p = {{0, 3}};
    c.partitionRows = {3, 9};
  })) << "a partition without places";
  const host::Value nothing = toMetadata(placesIn({}, cutOf({})));
  EXPECT_FALSE(placesOf(nothing.get(), 0)) << "no partition";
}

}  // namespace
}  // namespace kv::runtime

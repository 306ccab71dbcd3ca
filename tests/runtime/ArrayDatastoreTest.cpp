#include "source/memory/ArrayDatastore.h"

#include <arrow/api.h>
#include <arrow/c/bridge.h>
#include <gmock/gmock.h>

#include <cmath>
#include <functional>

#include "column/RowPlaces.h"
#include "column/borrowed.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/memory.h"
#include "random/normal.h"
#include "runtime/RuntimeSession.h"
#include "runtime/fileBytes.h"
#include "runtime/typedColumns.h"
#include "source/registry/openSource.h"

namespace kv::runtime::test {

namespace {

std::vector<std::int64_t> sizesOf(const PositionCut& cut) {
  std::vector<std::int64_t> sizes;
  for (std::int64_t i = 0; i < cut.numPartitions(); ++i) {
    sizes.push_back(cut.end(i) - cut.begin(i));
    for (std::int64_t position = cut.begin(i); position < cut.end(i); ++position) {
      EXPECT_EQ(cut.partitionOf(position), i);
    }
  }
  return sizes;
}

std::string idOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const errors::StepError& error) {
    return error.id();
  }
  return "none";
}

std::shared_ptr<arrow::Array> built(auto builder, const auto& append) {
  append(builder);
  return *builder.Finish();
}

TEST(PositionCuts, HaveOneFormAndRefineEachOther) {
  using Sizes = std::vector<std::int64_t>;
  struct Case {
    Sizes a, b, refined;
  };
  const Case cases[] = {
      {{5}, {5}, {5}},
      {{2, 3}, {5}, {2, 3}},
      {{2, 3}, {3, 2}, {2, 1, 2}},
      {{0, 5}, {5}, {0, 5}},
      {{0, 5, 0}, {0, 0, 2, 3}, {0, 0, 2, 3, 0}},
      {{2, 2, 1}, {4, 1}, {2, 2, 1}},
      {{2, 2, 1}, {3, 2}, {2, 1, 1, 1}},
      {{0}, {0, 0}, {0, 0}},
  };
  for (const Case& each : cases) {
    const PositionCut a(each.a);
    const PositionCut b(each.b);
    EXPECT_EQ(sizesOf(a), each.a);
    EXPECT_EQ(sizesOf(a.refined(b)), each.refined);
    EXPECT_EQ(a.refined(b), b.refined(a));
    ByteWriter bytes;
    a.refined(b).write(bytes);
    const std::string written = bytes.take();
    ByteReader reader(written, "a cut");
    EXPECT_EQ(PositionCut::read(reader), PositionCut(each.refined));
  }
  EXPECT_EQ(PositionCut(5, 2), PositionCut({2, 2, 1}));
  EXPECT_EQ(PositionCut(5, 9), PositionCut({5}));
  EXPECT_EQ(PositionCut::ofRows(kMaxPositions, 8).numPartitions(), kMaxPositions >> 20);
  EXPECT_EQ(PositionCut::ofRows(1 << 20, 100).end(0), 1 << 19);
  EXPECT_EQ(PositionCut::ofRows(3, 1 << 30).numPartitions(), 3);
}

TEST(NormalQuantiles, AreThoseOfTheTables) {
  EXPECT_EQ(normalQuantile(0.5), 0);
  for (const auto& [p, z] : {std::pair(0.975, 1.959963984540054),
                             {0.9999, 3.719016485455709},
                             {1e-10, -6.361340902404057},
                             {1e-15, -7.941345326170998}}) {
    EXPECT_NEAR(normalQuantile(p), z, 4e-15 * std::abs(z)) << p;
    EXPECT_DOUBLE_EQ(normalQuantile(1 - p), p > 1e-9 ? -normalQuantile(p) : normalQuantile(1 - p));
  }
}

TEST(ArrowStreams, BecomeTablesOfTheSameRowsAndTypes) {
  const auto numbers = built(arrow::DoubleBuilder(), [](auto& b) {
    ASSERT_TRUE(b.AppendValues({1, 2}).ok() && b.AppendNull().ok() && b.Append(4).ok());
  });
  const auto flags = built(arrow::BooleanBuilder(), [](auto& b) {
    ASSERT_TRUE(b.Append(true).ok() && b.AppendNull().ok() && b.Append(false).ok() &&
                b.Append(true).ok());
  });
  const auto whole = built(arrow::Int16Builder(), [](auto& b) {
    ASSERT_TRUE(b.AppendValues({1, 2, 3}).ok() && b.AppendNull().ok());
  });
  const auto words =
      built(arrow::StringDictionaryBuilder(arrow::default_memory_pool()), [](auto& b) {
        ASSERT_TRUE(b.Append("a").ok() && b.Append("b").ok() && b.AppendNull().ok() &&
                    b.Append("a").ok());
      });
  const auto nested = *arrow::MakeArrayOfNull(arrow::list(arrow::int8()), 4);
  const auto schema =
      arrow::schema({arrow::field("x", arrow::float64()), arrow::field("flag", arrow::boolean()),
                     arrow::field("n", arrow::int16()), arrow::field("word", words->type()),
                     arrow::field("list", nested->type()), arrow::field("x", arrow::float64())});
  const auto batch =
      arrow::RecordBatch::Make(schema, 4, {numbers, flags, whole, words, nested, numbers});
  // In batches of 1, 0 and 3 rows, read in partitions of 2.
  const arrow::RecordBatchVector batches{batch->Slice(0, 1), batch->Slice(1, 0),
                                         batch->Slice(1, 3)};
  ArrowArrayStream stream{};
  ASSERT_TRUE(
      arrow::ExportRecordBatchReader(*arrow::RecordBatchReader::Make(batches, schema), &stream)
          .ok());
  const auto source = openArrow(&stream, {.partitionRows = 2});
  EXPECT_EQ(stream.release, nullptr);
  EXPECT_EQ(source->numPartitions(), 2);
  EXPECT_EQ(source->schema()[4].fileType, "list<item: int8>");
  EXPECT_EQ(source->schema()[5].name, "x.2");
  EXPECT_TRUE(source->schema()[1].isNullable && source->schema()[2].isNullable);

  const CancellationToken never;
  EXPECT_EQ(idOf([&] { source->openPartition(0, {"list"}, never); }),
            "KALVEX:datastore:UnsupportedColumn");
  EXPECT_EQ(idOf([&] { source->openPartition(0, {"y"}, never); }),
            "KALVEX:datastore:UnknownColumn");
  const auto chunk = source->openPartition(1, {"x", "flag", "n", "word"}, never)->next();
  ASSERT_TRUE(chunk && chunk->rows() == 2);
  EXPECT_TRUE(std::isnan(chunk->columns[0].values<double>()[0]));
  EXPECT_EQ(chunk->columns[0].values<double>()[1], 4);
  EXPECT_EQ(chunk->columns[1].values<std::uint8_t>()[1], 1);
  EXPECT_EQ(chunk->columns[2].values<std::int16_t>()[0], 3);
  EXPECT_TRUE(chunk->columns[2].isNull(1));
  EXPECT_TRUE(chunk->columns[3].isNull(0));
  EXPECT_EQ(chunk->columns[3].text(1), "a");
  EXPECT_TRUE(isBorrowed(chunk->columns[2]));
  EXPECT_FALSE(isBorrowed(owned(chunk->columns[2])));
  EXPECT_TRUE(owned(chunk->columns[2]).isNull(1));

  ArrowSchema type{};
  ArrowArray array{};
  ASSERT_TRUE(arrow::ExportArray(*numbers, &array, &type).ok());
  EXPECT_EQ(openArrow(&type, &array)->schema().front().type, ElementType::Double);
  ASSERT_TRUE(arrow::ExportArray(*nested, &array, &type).ok());
  EXPECT_EQ(idOf([&] { openArrow(&type, &array); }), "KALVEX:datastore:BadArrow");
}

/// One array of a table that Arrow delivers.
std::shared_ptr<const Datastore> inMemory(const ArrayPtr& array) {
  const auto schema = arrow::schema({arrow::field("c", array->type())});
  const auto batch = arrow::RecordBatch::Make(schema, array->length(), {array});
  // In arrays of one and three rows, in partitions of two.
  const arrow::RecordBatchVector batches{batch->Slice(0, 1), batch->Slice(1)};
  ArrowArrayStream stream{};
  checkArrow(arrow::ExportRecordBatchReader(
      orThrow(arrow::RecordBatchReader::Make(batches, schema)), &stream));
  return openArrow(&stream, {.partitionRows = 2});
}

TEST(ArrowStreams, GiveNumbersAndTextsOfEveryType) {
  for (const TypedColumn& typed : typedColumns()) {
    SCOPED_TRACE(typed.type->ToString());
    const auto source = inMemory(arrayOf(typed.type, typed.json));
    EXPECT_EQ(source->schema(),
              (Schema{{"c", typed.read, false, isWhole(typed.read), typed.inMemory()}}));
    EXPECT_THAT(allNumbers(*source, "c"),
                testing::Pointwise(testing::NanSensitiveDoubleEq(), typed.values));
  }
  for (const auto& type : textTypes()) {
    const auto source = inMemory(arrayOf(type, R"(["", "a\nb", null, "東京"])"));
    EXPECT_EQ(source->schema(), (Schema{{.name = "c", .type = ElementType::String}}));
    EXPECT_THAT(allTexts(*source, "c"), testing::ElementsAre("", "a\nb", "<missing>", "東京"));
  }
  const auto words = arrayOf(arrow::utf8(), R"([null, "a"])");
  const auto places = arrayOf(arrow::int8(), "[1, 0, null, 1]");
  const auto encoded = orThrow(arrow::DictionaryArray::FromArrays(places, words));
  EXPECT_THAT(allTexts(*inMemory(encoded), "c"),
              testing::ElementsAre("a", "<missing>", "<missing>", "a"));
}

TEST(ArrowStreams, AreRefusedWhereTheyHoldBytesThatArentTextOrTimesThatDontFit) {
  const auto append = [](auto& builder) {
    ASSERT_TRUE(builder.Append("a").ok() && builder.Append("caf\xE9").ok());
  };
  const ArrayPtr bad = built(arrow::StringBuilder(), append);
  for (const ArrayPtr& refused :
       {bad, built(arrow::LargeStringBuilder(), append), built(arrow::StringViewBuilder(), append),
        orThrow(arrow::DictionaryArray::FromArrays(arrayOf(arrow::int8(), "[0]"), bad)),
        arrayOf(arrow::timestamp(arrow::TimeUnit::SECOND), "[1, 9223372036854775807]"),
        arrayOf(arrow::date64(), "[-9223372036854775807]")}) {
    EXPECT_EQ(idOf([&] { inMemory(refused); }), "KALVEX:datastore:BadArrow")
        << refused->type()->ToString();
  }
}

TEST(MemoryDescriptions, LeadToArraysThatAreAlive) {
  const double values[] = {1, 2, 3};
  std::string bytes;
  {
    const auto source = openColumns({{.name = "x", .data = values, .strideBytes = 8}}, 3);
    const auto again = openColumns({{.name = "x", .data = values, .strideBytes = 8}}, 3);
    bytes = source->describe();
    EXPECT_EQ(openSource(bytes)->fingerprint(), source->fingerprint());
    EXPECT_NE(again->fingerprint(), source->fingerprint());
    EXPECT_EQ(again->rowSpace(), source->rowSpace());
  }
  EXPECT_EQ(idOf([&] { openSource(bytes); }), "KALVEX:executor:BadBytes");
  // What generates an array may come from anyone.
  const std::string whole = openRandom({.seed = 3}, 10, {2}, {.sizes = {4, 0, 6}})->describe();
  EXPECT_EQ(openSource(whole)->describe(), whole);
  for (std::size_t i = 0; i < whole.size(); ++i) {
    EXPECT_EQ(idOf([&] { openSource(whole.substr(0, i)); }), "KALVEX:executor:BadBytes");
    std::string changed = whole;
    changed[i] = static_cast<char>(changed[i] ^ 0x40);
    idOf([&] { openSource(changed)->preview(3); });
  }
}

using ArraysOfTheHost = RuntimeSession;

TEST_F(ArraysOfTheHost, AreSourcesOfAnyDimensions) {
  const Value numbers =
      matrix::from_kalvex(kxCreateNumericArray(std::array<std::size_t, 2>{4, 2}, kxDOUBLE_CLASS));
  auto* elements = static_cast<double*>(kxGetMutableData(numbers.get()));
  for (int i = 0; i < 8; ++i) {
    elements[i] = i;
  }
  const Value sizes = matrix::from_kalvex(kxCreateDoubleMatrix(1, 3, 0));
  static_cast<double*>(kxGetMutableData(sizes.get()))[0] = 1;
  static_cast<double*>(kxGetMutableData(sizes.get()))[2] = 3;
  const Value source = host::call("kalvex.io.ArrayDatastore", {numbers.get(), sizes.get()});
  const Value array = host::call("createFromDatastoreBuiltin", {source.get()});
  const Value sum = aggregate("sum", element("times", array, 2));
  const auto results =
      host::callMany("gather", 2, std::vector<const kxArray*>{sum.get(), array.get()});
  const Value& sums = results[0];
  ASSERT_EQ(kxGetN(sums.get()), 2U);
  EXPECT_EQ(static_cast<const double*>(kxGetData(sums.get()))[0], 12);
  EXPECT_EQ(static_cast<const double*>(kxGetData(sums.get()))[1], 44);
  EXPECT_EQ(kxGetM(results[1].get()), 4U);
  EXPECT_EQ(static_cast<const double*>(kxGetData(results[1].get()))[7], 7);
  for (const double count : {1, 2, 5}) {
    const Value cut = host::makeDouble(count);
    EXPECT_EQ(gather(host::call("kv.read", {source.get(), cut.get()})), gather(array)) << count;
  }
}

}  // namespace

}  // namespace kv::runtime::test

// Rows that are pulled, and places and reductions within rows.

#include <arrow/c/abi.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <numeric>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kv/dimensions.h"
#include "kv/stream.h"

namespace kv::test {

namespace {

/// The rows of each batch that is left, and the code at the end.
std::pair<std::vector<std::int64_t>, int> pulled(ArrowArrayStream& stream) {
  std::vector<std::int64_t> rows;
  while (true) {
    ArrowArray batch;
    const int code = stream.get_next(&stream, &batch);
    if (code != 0 || batch.release == nullptr) {
      return {rows, code};
    }
    rows.push_back(batch.length);
    batch.release(&batch);
  }
}

TEST(Stream, IsComputedWhenItIsPulledAndEndsWithItsSession) {
  std::int64_t rowsRead = 0;
  ArrowArrayStream stream;
  ArrowArrayStream closed;
  ArrowArrayStream failing;
  {
    Session session;
    const Array x = session.arange(0, 100'000);
    toStream(x, &stream, {.atEnd = [&](const Facts& facts) { rowsRead = facts.rows; }});
    ArrowSchema schema;
    ASSERT_EQ(stream.get_schema(&stream, &schema), 0);
    EXPECT_STREQ(schema.format, "l");
    schema.release(&schema);
    const auto [rows, code] = pulled(stream);
    EXPECT_EQ(rows, (std::vector<std::int64_t>{32'768, 32'768, 32'768, 1'696}));
    EXPECT_EQ(code, 0);
    EXPECT_EQ(rowsRead, 100'000);
    const auto fails = [](std::span<const std::span<const double>>) -> std::vector<double> {
      throw Error("user:Fault", "a fault");
    };
    toStream(map(fails, std::array{x}), &failing);
    EXPECT_EQ(pulled(failing).second, EINVAL);
    EXPECT_NE(std::string(failing.get_last_error(&failing)).find("a fault"), std::string::npos);
    toStream(x, &closed);
    ArrowArray first;
    ASSERT_EQ(closed.get_next(&closed, &first), 0);
    first.release(&first);
    EXPECT_THROW(toStream(session.zeros(3, {.trailing = {2}}), &stream), Error);
  }
  EXPECT_EQ(pulled(closed).second, ECANCELED);
  for (ArrowArrayStream* each : {&stream, &closed, &failing}) {
    each->release(each);
  }
}

TEST(Rows, AreSelectedAndReducedWithin) {
  Session session;
  std::vector<std::int64_t> numbers(12);
  std::iota(numbers.begin(), numbers.end(), 0);
  Memory memory{std::span<const std::int64_t>(numbers)};
  memory.shape = {4, 3};
  const Array x = session.fromMemory(memory);
  const Array last = selectPlaces(x, std::array<std::int64_t, 1>{2}, {});
  EXPECT_EQ(std::get<Value::Integers>(last.gather().data()), (Value::Integers{2, 5, 8, 11}));
  const Array sums = aggregateRows("sum", x, {.axes = {1}});
  EXPECT_EQ(std::get<Value::Integers>(sums.gather().data()), (Value::Integers{3, 12, 21, 30}));
  const Array firstSums = head(aggregateRows("max", x, {.axes = {1}}) + sums, 2);
  EXPECT_EQ(std::get<Value::Integers>(firstSums.gather().data()), (Value::Integers{5, 17}));
  try {
    selectPlaces(x, std::array<std::int64_t, 1>{3}, {});
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(error.identifier(), "KALVEX:array:BadIndex");
  }
}

}  // namespace
}  // namespace kv::test

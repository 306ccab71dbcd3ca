#include "kv/errors/FailureRecord.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "kv/errors/StepError.h"

namespace kv::errors {

namespace {

/// The failure that an exception becomes.
template <class Thrown>
FailureRecord failureOf(const Thrown& thrown) {
  return recordFailure(std::make_exception_ptr(thrown));
}

FailureRecord fullFailure() {
  FailureRecord failure{.step = 3, .partition = 7, .firstRow = 1, .lastRow = 1LL << 40};
  failure.error = {"lab:own", "own text", {"a", ""}, {{"f.py", "run", 12}, {"", "", -1}},
                   {},        "lab.E"};
  failure.error.causes.push_back({"lab:cause", std::string("zero \0 inside", 13), {}, {}, {}, ""});
  failure.error.causes[0].causes.push_back({"lab:first", "", {}, {}, {}, "KException"});
  return failure;
}

void expectSame(const FailureRecord& a, const FailureRecord& b) {
  EXPECT_EQ(a.step, b.step);
  EXPECT_EQ(a.partition, b.partition);
  EXPECT_EQ(a.firstRow, b.firstRow);
  EXPECT_EQ(a.lastRow, b.lastRow);
  EXPECT_EQ(a.error, b.error);
}

TEST(FailureRecords, GoThroughBytes) {
  expectSame(FailureRecord::fromBytes(FailureRecord{}.toBytes()), {});
  FailureRecord failure = fullFailure();
  failure.foreign = std::make_exception_ptr(1);
  const FailureRecord back = FailureRecord::fromBytes(failure.toBytes());
  expectSame(back, failure);
  EXPECT_EQ(back.foreign, nullptr);
}

TEST(FailureRecords, RefuseBytesThatAreNone) {
  const std::string bytes = fullFailure().toBytes();
  EXPECT_THROW(FailureRecord::fromBytes(bytes + '\0'), StepError);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_THROW(FailureRecord::fromBytes(bytes.substr(0, size)), StepError) << size;
    std::string broken = bytes;  // a length, perhaps: it must not be believed
    broken[size] = static_cast<char>(0x7F);
    try {
      FailureRecord::fromBytes(broken);
    } catch (const StepError&) {
    }
  }
}

TEST(FailureRecords, AreMadeOfExceptions) {
  ErrorRecord record{"lab:own", "text", {"a"}, {}, {}, "KException"};
  const auto foreign = std::make_exception_ptr(1);
  const FailureRecord recorded = failureOf(RecordedError(record, foreign));
  EXPECT_EQ(recorded.error, record);
  EXPECT_EQ(recorded.foreign, foreign);

  const struct {
    FailureRecord failure;
    std::string id, message;
    std::vector<std::string> arguments;
  } rows[] = {
      {failureOf(StepError("KALVEX:array:NeedsTable", {"f"})),
       "KALVEX:array:NeedsTable",
       "f needs a table, got an array.",
       {"f"}},
      {failureOf(std::bad_alloc()), "KALVEX:OutOfMemory", "Out of memory.", {}},
      {failureOf(std::runtime_error("no")), "KALVEX:NativeException", "no", {"no"}},
      {failureOf(42),
       "KALVEX:NativeException",
       "an exception that isn't a std::exception",
       {"an exception that isn't a std::exception"}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.failure.error.identifier, row.id);
    EXPECT_EQ(row.failure.error.message, row.message);
    EXPECT_EQ(row.failure.error.arguments, row.arguments);
    EXPECT_EQ(row.failure.foreign, nullptr);
  }
}

}  // namespace
}  // namespace kv::errors

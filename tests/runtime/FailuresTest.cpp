#include <gmock/gmock.h>

#include <functional>
#include <new>
#include <stdexcept>

#include "column/allocate.h"
#include "driver/failures.h"
#include "engine/Stage.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/csv.h"
#include "persistence/csvDescription.h"
#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// How failures are reported by an evaluation, and what users' functions may return per chunk.
class Failures : public RuntimeSession {
 protected:
  static Value function(host::NativeBody body) {
    return host::makeFunctionHandle("mine", std::move(body));
  }
  static Value map(const Value& handle, const Value& x) {
    return host::call("elementfun", {handle.get(), x.get()});
  }
  static Value reduce(const Value& chunk, const Value& all, const Value& x) {
    return host::call("aggregatefun", {chunk.get(), all.get(), x.get()});
  }

  /// A function that throws `thrown`.
  template <class Thrown>
  static Value throws(Thrown thrown) {
    return function([thrown](const host::Call&) { throw thrown; });
  }

  /// A function that returns a column as long as its input: of the type of `kv.element.NAME`.
  static Value typed(std::function<std::string(const kxArray*)> nameOf) {
    return function([nameOf](const host::Call& call) {
      const Value one = host::makeDouble(1);
      const std::string name = "kv.element." + nameOf(call.in(0));
      call.out(0, host::call(kcos::NameRef::of(name), {call.in(0), one.get()}));
    });
  }
  /// Logical if the first number is below `limit`, otherwise double.
  static Value logicalBelow(double limit) {
    return typed([limit](const kxArray* x) { return kxGetScalar(x) < limit ? "ge" : "plus"; });
  }
};

/// A cell isn't a column.
Value aCell() { return host::makeCell({}); }

TEST_F(Failures, HaveAnIdAndTheLineThatRecordedTheOperation) {
  const Value good = table({"x\n1\n2\n", "x\n3\n"});
  const Value bad = table({"x\n1\n2\n", "x\nthree\n"});
  const Value same =
      function([](const host::Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); });
  const auto overX = [&](auto&& record) {
    return [&, record] { return record(column(good, "x")); };
  };
  struct Case {
    std::function<Value()> record;
    std::string id;
    std::string message;
  };
  const Case cases[] = {
      {overX([&](const Value& x) { return map(throws(std::out_of_range("ink")), x); }),
       "KALVEX:array:FunctionFailed", "mine failed: ink [partition 1, rows 1 to 2]"},
      {overX([&](const Value& x) { return map(throws(7), x); }), "KALVEX:array:FunctionFailed",
       "mine failed: "},
      {overX([&](const Value& x) { return map(throws(std::bad_alloc()), x); }),
       "KALVEX:OutOfMemory", "[partition 1, rows 1 to 2]"},
      {overX([&](const Value& x) { return reduce(throws(std::logic_error("ink")), same, x); }),
       "KALVEX:array:FunctionFailed", "[partition 1, rows 1 to 2]"},
      {overX([&](const Value& x) { return reduce(same, throws(std::logic_error("ink")), x); }),
       "KALVEX:array:FunctionFailed", "mine failed: ink"},
      {overX([&](const Value& x) {
         return host::call("clientfun", {throws(std::logic_error("ink")).get(), x.get()});
       }),
       "KALVEX:array:FunctionFailed", "mine failed: ink"},
      {overX([&](const Value& x) { return element("plus", x, aCell()); }),
       "KALVEX:array:NotAColumn", "cell"},
      {overX([&](const Value& x) { return map(logicalBelow(3), x); }), "KALVEX:array:ChunkTypes",
       "[partition 2, rows 1 to 1]"},
      {[&] { return aggregate("sum", column(bad, "x")); }, "KALVEX:datastore:BadField", "three"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.id + " " + each.message);
    Value array;
    {
      const host::CallSite recorded(std::source_location::current());
      array = each.record();
    }
    const auto error = errorOf([&] { gather(array); });
    EXPECT_EQ(error.identifier, each.id);
    EXPECT_THAT(error.message, HasSubstr(each.message));
    EXPECT_EQ(error.className, "kalvex.bigdata.BigDataException");
    if (each.id.starts_with("KALVEX:datastore")) {
      continue;  // reading was recorded before
    }
    ASSERT_FALSE(error.stack.empty());
    EXPECT_THAT(error.stack.front().file, HasSubstr("FailuresTest.cpp"));
  }
}

TEST_F(Failures, OfReadingNameThePartitionAndTheLineOfTheRead) {
  Value t;
  {
    const host::CallSite recorded(std::source_location::current());
    t = table({"x\n1\n", "x\ntwo\n"});
  }
  try {
    gather(column(t, "x"));
    ADD_FAILURE() << "no error";
  } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
    const Value error = matrix::from_kalvex(kcos::omCreateKCOSScalar(envelope.getException()));
    EXPECT_EQ(kxGetScalar(host::getProperty(error.get(), "partition").get()), 2);
    const auto record = host::errorRecord(envelope);
    ASSERT_FALSE(record.stack.empty());
    EXPECT_THAT(record.stack.front().file, HasSubstr("FailuresTest.cpp"));
    EXPECT_THAT(record.message, Not(HasSubstr("[partition")));
  }
}

TEST_F(Failures, OfArrowDontShowArrowsText) {
  EXPECT_THROW(checkArrow(arrow::Status::OutOfMemory("malloc")), std::bad_alloc);
  for (const auto& status : {arrow::Status::CapacityError("array cannot contain more"),
                             arrow::Status::Invalid("offset overflow while concatenating")}) {
    try {
      checkArrow(status);
      ADD_FAILURE() << status.ToString();
    } catch (const errors::StepError& error) {
      EXPECT_EQ(error.id(), "KALVEX:memory:TextTooLarge");
      EXPECT_THAT(error.what(), Not(HasSubstr(status.message())));
    }
  }
}

TEST_F(Failures, AFunctionOfOneTypeMayMeetChunksWithoutRows) {
  const Value t = table({"x\n1\n2\n", "x\n9\n", "x\n"});
  const Value x = column(t, "x");
  const auto kept = [&](double limit) { return filter(element("gt", x, limit), x); };
  const auto isNine = [&](double limit) {
    return map(typed([](const kxArray*) { return "ge"; }), kept(limit));
  };
  const auto valueOf = [](const Value& array) { return host::call("gather", {array.get()}); };

  for (const double limit : {5., 20.}) {  // only the first chunk is empty; all are
    const bool hasRows = limit < 9;
    EXPECT_EQ(host::toLogical(valueOf(aggregate("any", isNine(limit))).get()), hasRows);
    EXPECT_EQ(kxGetM(valueOf(filter(isNine(limit), kept(limit))).get()), hasRows ? 1U : 0U);
    const Value twice = map(logicalBelow(0), element("plus", isNine(limit), 1));
    EXPECT_EQ(gather(aggregate("count", twice)), std::vector<double>{hasRows ? 1. : 0.});
  }
  EXPECT_EQ(kxGetClassID(valueOf(isNine(5)).get()), kxLOGICAL_CLASS);
  EXPECT_EQ(kxGetClassID(valueOf(isNine(20)).get()), kxLOGICAL_CLASS) << "called once, on no rows";

  const Value same = host::makeFunctionHandle(
      "same", [](const host::Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); });
  const Value none =
      filter(element("gt", x, 20), map(typed([](const kxArray*) { return "ge"; }), x));
  EXPECT_EQ(kxGetClassID(valueOf(map(same, none)).get()), kxLOGICAL_CLASS)
      << "the type that the first function returned for rows";
}

TEST_F(Failures, AFunctionMustReturnOneTypeForAllRows) {
  std::string rows = "x\n";
  for (int i = 1; i <= 40'000; ++i) {
    rows += std::to_string(i) + "\n";
  }
  const Value inTwoChunks = column(table({rows}), "x");
  const Value inTwoFiles = column(table({"x\n1\n2\n", "x\n3\n4\n"}), "x");
  const Value same =
      function([](const host::Call& call) { call.out(0, matrix::sharedCopy(call.in(0))); });
  const auto errorOfGathering = [&](const Value& array) {
    const auto error = errorOf([&] { gather(array); });
    EXPECT_EQ(error.identifier, "KALVEX:array:ChunkTypes");
    return error.arguments;
  };
  EXPECT_THAT(errorOfGathering(map(logicalBelow(100), inTwoChunks)),
              ElementsAre("mine", "logical", "partition 1, rows 1 to 32768", "double",
                          "partition 1, rows 32769 to 40000"));
  const auto acrossFiles = ElementsAre("mine", "logical", "partition 1, rows 1 to 2", "double",
                                       "partition 2, rows 1 to 2");
  EXPECT_THAT(errorOfGathering(aggregate("any", map(logicalBelow(3), inTwoFiles))), acrossFiles)
      << "before any says that it isn't defined for double";
  EXPECT_THAT(errorOfGathering(reduce(logicalBelow(3), same, inTwoFiles)), acrossFiles);
  EXPECT_EQ(errorOf([&] { gather(reduce(same, logicalBelow(3), inTwoFiles)); }).identifier,
            "KALVEX:array:PartialTypes");

  const Value one = host::makeDouble(1);
  const Value label = host::makeChars("MaxNumSlices");
  const Value sliced = host::call("kalvex.bigdata.internal.FunctionHandle",
                                  {logicalBelow(2).get(), label.get(), one.get()});
  EXPECT_THAT(errorOfGathering(map(sliced, inTwoFiles)),
              ElementsAre("mine", "logical", "partition 1, rows 1 to 1", "double",
                          "partition 1, rows 2 to 2"));
}

/// What a worker passes on is what the user would have seen in one process.
TEST_F(Failures, AreTheSameFromTheirBytes) {
  const host::CallSite here(std::source_location::current());
  const OpSpec step{.label = "mine"};
  const std::function<void()> throwers[] = {
      [] {
        errors::raiseStep("KALVEX:datastore:EmptyFile", {"a.csv", "a record"});
      },
      [] { errors::raiseStep("KALVEX:array:NeedsTable", {"mine"}); },
      [] { throw std::runtime_error("a text"); },
      [] { throw std::bad_alloc(); },
      [] {
        const host::ErrorRecord first{"lab:first", "one",       {}, {{"f.py", "inner", 3}},
                                      {},          "KException"};
        host::ErrorRecord error{"lab:own", "two",       {"a", "b"}, {{"f.py", "run", 7}},
                                {},        "KException"};
        error.causes.push_back(first);
        error.causes.front().causes.push_back(first);
        throw Torvane::KException::KExceptionEnvelope(host::exceptionOf(error));
      },
      [] {
        try {
          withStep({.label = "inner"}, nullptr, [] { host::raise("lab:own", {"a"}); });
        } catch (...) {
          withRecordedErrors([] { throw; });
        }
      },
  };
  for (const auto& thrower : throwers) {
    errors::FailureRecord failure;
    errors::catchingFailures(thrower, [&](const auto& thrown) { failure = failureOf(thrown); });
    const auto raised = [&](const errors::FailureRecord& record) {
      return errorOf([&] { raiseStepFailure(record, step, nullptr, FailedRows{2, 1, 3}); });
    };
    const host::ErrorRecord expected = raised(failure);
    EXPECT_EQ(raised(errors::FailureRecord::fromBytes(failure.toBytes())), expected)
        << expected.message;
  }
}

/// Faults of ours can't be reached through an array, so these functions are called directly.
TEST_F(Failures, OfOurOwnHaveIdsAsWell) {
  const auto idOf = [](const std::function<void()>& action) { return errorOf(action).identifier; };
  const OpSpec step{.label = "a step"};
  EXPECT_EQ(idOf([&] { withStep(step, nullptr, [] { throw std::runtime_error("a text"); }); }),
            "KALVEX:array:Unexpected");

  std::vector<Step> steps;
  for (const char* name : {"a.csv", "b.csv"}) {
    const std::shared_ptr<const Datastore> source = openCsv({folder.write(name, "x\n1\n")});
    steps.push_back({makeRead(source)});
  }
  EXPECT_EQ(idOf([&] { withStep(step, nullptr, [&] { Stage(steps, {}); }); }),
            "KALVEX:array:DifferentSources");

  const auto described = [](const char* field, const std::vector<std::string>& texts) {
    const CsvTable source{{"t",
                           {{"a.csv", "/a.csv", 4, 1, true}},
                           {{"x", ElementType::Double}, {"y", ElementType::Double}}},
                          {.separator = ';'},
                          {Compression::Gzip}};
    Value record = describeCsv(source);
    kxSetField(record.get(), 0, field, host::makeStringColumn(texts).release());
    return record;
  };
  EXPECT_EQ(csvFromDescription(described("ColumnNames", {"a", "b"}).get()).files.schema[1].name,
            "b");
  EXPECT_EQ(csvFromDescription(described("ColumnNames", {"a", "b"}).get()).compressions,
            std::vector{Compression::Gzip});
  for (const Value& broken :
       {host::makeDouble(1), host::makeChars("text"), described("ColumnNames", {"a", "a"}),
        described("AbsolutePaths", {"/a.csv", "/b.csv"}), described("Format", {";"})}) {
    EXPECT_EQ(idOf([&] { csvFromDescription(broken.get()); }), "KALVEX:datastore:BadDescription");
  }
}

}  // namespace
}  // namespace kv::runtime::test

#include <array>
#include <new>
#include <string_view>

#include "HostSession.h"
#include "foundation/exception.h"
#include "kv/errors/StepError.h"

namespace kv::test {

namespace {

using Errors = HostSession;
using Torvane::KException::KExceptionEnvelope;

struct Interrupt final : host::PassThrough {};

struct LabTag {
  static constexpr const char* category = "KALVEX:bigdata:array";
  static constexpr const char* key = "InvalidTallVersion";
};

TEST_F(Errors, NativeExceptionsBecomeKExceptionsAtTheEdge) {
  struct Row {
    const char* expected;
    std::function<void()> thrown;
  };
  const Row rows[] = {
      {"KALVEX:bigdata:array:InvalidTallVersion | 2015a",
       [] { foundation::core::except::raise<LabTag>("2015a"); }},
      {"KALVEX:OutOfMemory", [] { throw std::bad_alloc(); }},
      {"KALVEX:CountTooLarge | 9 | 8",
       [] {
         errors::raiseStep("KALVEX:CountTooLarge", {"9", "8"});
       }},
      {"KALVEX:NativeException | went wrong", [] { throw std::runtime_error("went wrong"); }},
      {"KALVEX:NativeException | an exception that isn't a std::exception", [] { throw 42; }},
      {"KALVEX:InputParser:UnmatchedParameter | Size | ",
       [] {
         host::raise("KALVEX:InputParser:UnmatchedParameter", {"Size", ""});
       }},
  };
  for (const Row& row : rows) {
    session.defineFunction("fails", [&row](const Call&) { row.thrown(); });
    session.defineFunction("outer", forwardsTo("fails"));
    EXPECT_EQ(failure([&] { call("outer"); }), row.expected);
  }
}

TEST_F(Errors, AnInterruptPassesAsItIs) {
  session.defineFunction("fails", [](const Call&) { throw Interrupt(); });
  session.defineFunction("outer", forwardsTo("fails"));
  EXPECT_THROW(call("outer"), Interrupt);
  session.defineFunction("fine", says("still usable"));
  EXPECT_EQ(said("fine"), "still usable");
}

TEST_F(Errors, LibrariesMayAddTexts) {
  const host::CatalogueEntry entries[] = {{"lab:order", "{1} before {0}, not {2} or {"}};
  host::addToCatalogue(entries);
  const ErrorRecord error = errorOf([] { host::raise("lab:order", {"lab.A", "x"}); });
  EXPECT_EQ(error.message, "x before lab.A, not {2} or {");
}

TEST_F(Errors, CarryTheLiveUserStack) {
  session.defineFunction("fails", [](const Call&) { throw std::runtime_error("no"); });
  const host::CallSite site(std::source_location::current());
  const ErrorRecord error = errorOf([&] { call("fails"); });
  ASSERT_EQ(error.stack.size(), 1u);
  EXPECT_EQ(error.stack[0].file, std::source_location::current().file_name());
  EXPECT_NE(error.stack[0].name.find("TestBody"), std::string::npos);
}

TEST_F(Errors, AFailingStackProviderHidesNoError) {
  session.setStackProvider([]() -> std::vector<host::Frame> { host::raise("lab:provider"); });
  const ErrorRecord error = errorOf([&] { call("missing"); });
  EXPECT_EQ(error.identifier, "KALVEX:UndefinedFunction");
  EXPECT_TRUE(error.stack.empty());
}

/// A stack may come from a file, with anything in it.
TEST_F(Errors, AreReadWhateverIsInTheirStack) {
  constexpr std::array<std::string_view, 3> kFields{"file", "name", "line"};
  const Value stack = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kFields));
  const std::array<std::size_t, 2> rows{3, 0};
  kxSetField(stack.get(), 0, "file", kxCreateNumericArray(rows, kxCHAR_CLASS));
  kxSetField(stack.get(), 0, "name", host::makeChars("run").release());
  kxSetField(stack.get(), 0, "line", host::makeDouble(1e300).release());
  const Value error = call("KException", host::makeChars("lab:own"));
  set(error, "stack", stack, "KException");
  const ErrorRecord record = errorOf([&] { host::throwException(error.get()); });
  ASSERT_EQ(record.stack.size(), 1u);
  EXPECT_EQ(record.stack[0].file, "");
  EXPECT_EQ(record.stack[0].name, "run");
  EXPECT_EQ(record.stack[0].line, 0);
}

TEST_F(Errors, AreObjectsOfTheHost) {
  const Value error = call("KException", host::makeChars("lab:own"), host::makeChars("own text"),
                           call("feval", host::makeFunctionHandle("list", [](const Call& call) {
                                  std::vector<Value> texts;
                                  texts.push_back(host::makeChars("first"));
                                  call.out(0, host::makeCell(std::move(texts)));
                                })));
  EXPECT_EQ(host::toText(get(error, "identifier").get()), "lab:own");
  EXPECT_EQ(host::toText(get(error, "message").get()), "own text");
  const Value cause = call("KException", host::makeChars("KALVEX:OutOfMemory"));
  set(error, "cause", cause, "KException");
  set(cause, "cause", call("KException", host::makeChars("lab:first")), "KException");
  const ErrorRecord record = errorOf([&] { host::throwException(error.get()); });
  EXPECT_EQ(record.identifier, "lab:own");
  EXPECT_EQ(record.arguments, std::vector<std::string>{"first"});
  ASSERT_EQ(record.causes.size(), 1u);
  EXPECT_EQ(record.causes[0].message, "Out of memory.");
  ASSERT_EQ(record.causes[0].causes.size(), 1u) << "a cause is held by what it caused";
  EXPECT_EQ(record.causes[0].causes[0].identifier, "lab:first");
  EXPECT_EQ(failure([&] { host::throwException(host::makeDouble(1).get()); }).substr(0, 37),
            "KALVEX:validateattributes:invalidType");
}

TEST_F(Errors, SubclassesAreErrorsTooAndARingOfCausesEnds) {
  ClassDefinition special;
  special.name = "lab.Special";
  special.properties = {{"Extra", nullptr, {}, {}, {}}};
  special.superclasses = {"KException"};
  define(special);
  const Value error = call("lab.Special", host::makeChars("lab:special"), host::makeChars("text"));
  set(error, "cause", error, "lab.Special");
  const ErrorRecord record = errorOf([&] { host::throwException(error.get()); });
  EXPECT_EQ(record.className, "lab.Special");
  EXPECT_EQ(record.identifier, "lab:special");
  EXPECT_FALSE(record.causes.empty());
  set(error, "cause", nullptr, "lab.Special");
}

TEST_F(Errors, AnEnvelopeOutlivesItsSession) {
  std::unique_ptr<KExceptionEnvelope> kept;
  {
    host::Session shortLived;
    try {
      shortLived.call("missing", 1, {});
    } catch (const KExceptionEnvelope& envelope) {
      kept = std::make_unique<KExceptionEnvelope>(envelope);
    }
  }
  ASSERT_NE(kept, nullptr);
  EXPECT_STREQ(kept->what(), "KALVEX:UndefinedFunction: Undefined function or class 'missing'.");
  EXPECT_EQ(host::errorRecord(*kept).className, "KException");
}

}  // namespace
}  // namespace kv::test

#include <fmt/core.h>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

constexpr const char* kCarried[] = {"identifier", "message", "arguments", "stack", "cause"};

/// BigDataException.build(exception): the same error, with room for the user's stack and rows.
void build(const Call& call) {
  Value built = host::call(kBigDataException);
  for (const char* name : kCarried) {
    const auto property = kcos::NameRef::of(name);
    host::setSlot(built.get(), property, host::getProperty(call.in(0), property));
  }
  call.out(0, std::move(built));
}

/// The user's stack: the snapshot of the outermost internal frame, or the live one.
void getClientStack(const Call& call) { call.out(0, host::call("userStackBuiltin")); }

/// attachSubmissionStack(exception, stack): errors are reported with the line where the array was
/// written, not where it was gathered.
void attachSubmissionStack(const Call& call) {
  host::setSlot(call.in(0), "stack", matrix::sharedCopy(call.in(1)));
  call.out(0, matrix::sharedCopy(call.in(0)));
}

/// attachRows(exception, partition, first row, last row), counted from 1; if the last row is below
/// the first, no rows are known.
void attachRows(const Call& call) {
  const double first = kxGetScalar(call.in(2));
  const double last = kxGetScalar(call.in(3));
  std::string place = fmt::format("partition {:.0f}", kxGetScalar(call.in(1)));
  host::setSlot(call.in(0), "partition", matrix::sharedCopy(call.in(1)));
  if (first <= last) {
    host::setSlot(call.in(0), "firstRow", matrix::sharedCopy(call.in(2)));
    host::setSlot(call.in(0), "lastRow", matrix::sharedCopy(call.in(3)));
    place += fmt::format(", rows {:.0f} to {:.0f}", first, last);
  }
  const std::string message = host::toText(host::getProperty(call.in(0), "message").get());
  host::setSlot(call.in(0), "message", host::makeChars(fmt::format("{} [{}]", message, place)));
}

/// throw(exception, "IncludeCalleeStack", true): raises the error again with the caller's stack.
void throwForCaller(const Call& call) {
  call.expect(0, 1, 3);
  const Value stack = host::call("userStackBuiltin");
  const Value built = host::call("kalvex.bigdata.BigDataException.build", {call.in(0)});
  const Value attached = host::call("attachSubmissionStack", {built.get(), stack.get()});
  host::throwException(attached.get());
}

}  // namespace

void defineExceptions(host::Session& session) {
  define(session, {.name = kBigDataException,
                   .superclasses = {"KException"},
                   .properties = {readOnly("partition"), readOnly("firstRow"), readOnly("lastRow"),
                                  readOnly("file")},
                   .constructor = constructor([](const Call&) {}, 1, 1),
                   .methods = {
                       staticMethod("build", build, 1, 1),
                       staticMethod("getClientStack", getClientStack, 0, 0),
                       method("attachSubmissionStack", attachSubmissionStack, 2, 2),
                       method("attachRows", attachRows, 4, 4),
                       method(
                           "updateAndRethrow",
                           [](const Call& call) { host::throwException(call.in(0)); }, 1, 1),
                   }});
  session.defineFunction(kThrow, throwForCaller);
}

}  // namespace kv::runtime

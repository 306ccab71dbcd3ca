#include "failures.h"

#include <fmt/format.h>
#include <kv/error.h>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "formula/FormulaError.h"
#include "output.h"

namespace kv::shell {

namespace {

constexpr std::string_view kSource = "KALVEX:datastore:";

/// Errors of the datastore that are faults of the request, not of the data.
constexpr std::string_view kRequest[] = {
    "KALVEX:datastore:UnknownColumn",    "KALVEX:datastore:UnknownType",
    "KALVEX:datastore:BadTypeOverride",  "KALVEX:datastore:UnknownSource",
    "KALVEX:datastore:SourceGivenTwice", "KALVEX:datastore:UnsupportedColumn",
    "KALVEX:datastore:FixedType",        "KALVEX:datastore:FixedFormat",
    "KALVEX:datastore:BadSeparator",     "KALVEX:datastore:BadPattern",
    "KALVEX:executor:Threads",           "KALVEX:memory:Limit"};

/// Errors of a field that would fit another type of its column: argument 3 is the column, 6 the
/// type.
constexpr std::string_view kField[] = {"KALVEX:datastore:BadField", "KALVEX:datastore:MissingField",
                                       "KALVEX:datastore:NumberTooLarge"};
constexpr std::size_t kFieldArguments = 7;

/// Errors that are faults of a file of saved arrays.
constexpr std::string_view kSaved[] = {
    "KALVEX:load:CannotRead",  "KALVEX:load:Corrupt",
    "KALVEX:load:LaterFormat", "KALVEX:load:UnknownClass",
    "KALVEX:array:NotArrays",  "KALVEX:bigdata:array:InvalidTallVersion"};

/// Writes to standard error. If that fails, the exit code still reports the failure.
void complain(const std::string& line) { std::fputs(line.c_str(), stderr); }

void say(std::string_view message) {
  complain(fmt::format("kvbig: {}\n", printableLines(message)));
}

bool isOneOf(const Error& error, std::span<const std::string_view> ids) {
  return std::ranges::find(ids, error.identifier()) != ids.end();
}

/// The exit code for an error, or for its cause.
ExitCode codeOf(const Error& error) {
  for (const Error* each = &error; each != nullptr; each = each->cause().get()) {
    if (isOneOf(*each, kRequest)) {
      return kWrongUsage;
    }
    if (isOneOf(*each, kSaved) || each->identifier().starts_with(kSource)) {
      return kBadInput;
    }
  }
  return kFailed;
}

/// How to read the field that `error`, or its cause, is about; empty if it isn't about a field.
std::string adviceOnType(const Error& error) {
  for (const Error* each = &error; each != nullptr; each = each->cause().get()) {
    const auto& arguments = each->arguments();
    if (isOneOf(*each, kField) && arguments.size() >= kFieldArguments &&
        arguments[3].size() <= kLongestAdvised) {
      return printable(fmt::format("Try {}.", typeOption(arguments[3], arguments[6]))) + "\n";
    }
  }
  return {};
}

void print(const Error& error) {
  say(error.what());
  std::string_view said = error.what();
  for (const Error* cause = error.cause().get(); cause != nullptr; cause = cause->cause().get()) {
    if (said != cause->what()) {
      complain(fmt::format("  caused by: {}\n", printableLines(cause->what())));
    }
    said = cause->what();
  }
  complain(adviceOnType(error));
}

ExitCode describeFailure() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const formula::FormulaError& error) {
    say(error.what());
    return kWrongUsage;
  } catch (const UsageError& error) {
    say(error.what());
    return kWrongUsage;
  } catch (const Interrupted&) {
    say("interrupted");
    return kInterrupted;
  } catch (const Error& error) {
    print(error);
    return codeOf(error);
  } catch (const std::exception& error) {
    say(error.what());
    return kFailed;
  }
}

}  // namespace

void warn(std::string_view message) { say(fmt::format("warning: {}", message)); }

ExitCode reportFailure() {
  assert(std::current_exception() != nullptr);
  try {
    return describeFailure();
  } catch (...) {  // std::bad_alloc, or too little memory to describe another failure
    std::fputs("kvbig: Out of memory.\n", stderr);
    return kFailed;
  }
}

}  // namespace kv::shell

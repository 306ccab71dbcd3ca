#include "failures.h"

#include <fmt/format.h>
#include <kv/error.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "formula/FormulaError.h"
#include "output.h"

namespace kv::shell {

namespace {

constexpr std::string_view kSource = "KALVEX:datastore:";

/// Errors of the datastore that lie in the request, not in the data.
constexpr std::string_view kRequest[] = {"KALVEX:datastore:UnknownColumn",
                                         "KALVEX:datastore:UnknownType",
                                         "KALVEX:datastore:BadTypeOverride"};

/// Errors that lie in a file of saved arrays.
constexpr std::string_view kSaved[] = {"KALVEX:load:CannotRead", "KALVEX:load:Corrupt",
                                       "KALVEX:load:UnknownClass", "KALVEX:array:NotArrays",
                                       "KALVEX:bigdata:array:InvalidTallVersion"};

/// Writes to standard error. Where nobody can read it, the exit code still tells.
void complain(const std::string& line) { std::fputs(line.c_str(), stderr); }

void say(std::string_view message) {
  complain(fmt::format("kvbig: {}\n", printableLines(message)));
}

/// The exit code of an error, or of what caused it.
ExitCode codeOf(const Error& error) {
  for (const Error* each = &error; each != nullptr; each = each->cause().get()) {
    const auto isOneOf = [each](const auto& ids) {
      return std::ranges::find(ids, each->identifier()) != std::end(ids);
    };
    if (isOneOf(kRequest)) return kWrongUsage;
    if (isOneOf(kSaved) || each->identifier().starts_with(kSource)) return kBadInput;
  }
  return kFailed;
}

void tell(const Error& error) {
  say(error.what());
  std::string_view said = error.what();
  for (const Error* cause = error.cause().get(); cause != nullptr; cause = cause->cause().get()) {
    if (said != cause->what())
      complain(fmt::format("  caused by: {}\n", printableLines(cause->what())));
    said = cause->what();
  }
}

}  // namespace

void warn(std::string_view message) { say(fmt::format("warning: {}", message)); }

ExitCode reportFailure() {
  try {
    throw;
  } catch (const FormulaError& error) {
    say(error.what());
    return kWrongUsage;
  } catch (const UsageError& error) {
    say(error.what());
    return kWrongUsage;
  } catch (const Interrupted&) {
    say("interrupted");
    return kInterrupted;
  } catch (const Error& error) {
    tell(error);
    return codeOf(error);
  } catch (const std::bad_alloc&) {
    say("out of memory");
    return kFailed;
  } catch (const std::exception& error) {
    say(error.what());
    return kFailed;
  }
}

}  // namespace kv::shell

// The command kvbig: formulas over files, and descriptions of classes. This file only declares the
// command line; each command is a function in a file of its own. All failures end in one place,
// which prints the message and chooses the exit code.
#include <fmt/format.h>
#include <kv/array.h>
#include <kv/describe.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "describeCommand.h"
#include "failures.h"
#include "formula/nearNames.h"
#include "formula/utf8.h"
#include "helpTexts.h"
#include "interrupts.h"
#include "openCommand.h"
#include "output.h"
#include "queryCommand.h"

namespace {

using kv::shell::OpenRequest;
using kv::shell::QueryRequest;

struct DescribeRequest {
  std::optional<std::string> name;
  bool json = false;
};

/// Prefixed to each word after "--". The parser would otherwise take these words for options as
/// soon as a command has everything that it requires, as in `query PATH EXPR -- -EXPR`.
constexpr char kMark = '\x1f';

std::string withoutMark(std::string word) {
  if (word.starts_with(kMark)) {
    word.erase(0, 1);
  }
  return word;
}

/// The words after the command's name, in the reverse order that the parser expects.
std::vector<std::string> wordsToParse(std::span<char*> words) {
  std::vector<std::string> all(words.begin() + 1, words.end());
  if (const auto dashes = std::ranges::find(all, "--"); dashes != all.end()) {
    for (auto word = dashes + 1; word != all.end(); ++word) {
      word->insert(0, 1, kMark);
    }
    all.erase(dashes);
  }
  std::ranges::reverse(all);
  return all;
}

/// A word that is identified by its position, not by a name.
template <class Target>
CLI::Option* addPlain(CLI::App& command, const std::string& name, Target& target,
                      const std::string& meaning) {
  return command.add_option(name, target, meaning)->transform(withoutMark, "");
}

/// Refuses anything but whole numbers of a range.
CLI::Validator wholeNumber(std::int64_t least, std::int64_t most) {
  const auto check = [=](const std::string& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isGood = error == std::errc() && end == text.data() + text.size() &&
                        number >= least && number <= most;
    return isGood ? std::string()
                  : fmt::format("a whole number from {} to {} is expected, got \"{}\"", least, most,
                                text);
  };
  return CLI::Validator(check, "");
}

void addThreads(CLI::App& command, std::optional<int>& threads) {
  command.add_option("--threads", threads, "Use at most N threads; 1 starts no others")
      ->type_name("N")
      ->check(wholeNumber(1, kv::Session::kMaxThreads));
}

void addMemory(CLI::App& command, std::optional<std::string>& memory,
               std::optional<std::string>& scratch) {
  command.add_option("--memory", memory, "Use at most SIZE for data, such as 512MB or 2GiB")
      ->type_name("SIZE");
  command.add_option("--scratch", scratch, "Put what doesn't fit in memory into this folder")
      ->type_name("DIR");
}

/// What to compute, over which rows: the same options for all commands that take expressions.
CLI::Option* addQuestion(CLI::App& command, QueryRequest& request) {
  addPlain(command, "PATH", request.path, "A CSV or Parquet file, a folder, or a quoted glob")
      ->required();
  CLI::Option* expressions =
      addPlain(command, "EXPR", request.expressions, "Such as mean(x), or late = mean(x > 60)")
          ->required();
  command
      .add_option("-f,--file", request.furtherPaths, "One more path with rows of the same table")
      ->type_name("PATH")
      ->allow_extra_args(false);
  command.add_option("--where", request.where, "Use only rows for which this is true")
      ->type_name("EXPR");
  command.add_option("--type", request.types, "Set the type of a column; the types are below")
      ->type_name("NAME=TYPE")
      ->allow_extra_args(false);
  command
      .add_option("--separator", request.separator, "What separates fields of CSV; else detected")
      ->type_name("CHAR");
  command.add_flag("--no-header", request.noHeader, "Name the columns of CSV column_1, column_2");
  command
      .add_option("--missing", request.missing, "Fields of CSV that are missing values: 'NULL,N/A'")
      ->type_name("TEXTS")
      ->allow_extra_args(false);
  command.add_option("--seed", request.seed, "Make the numbers of rand() the same in each run")
      ->type_name("N")
      ->check(wholeNumber(0, static_cast<std::int64_t>(kv::Session::kMaxSeed)));
  addThreads(command, request.threads);
  addMemory(command, request.memory, request.scratch);
  return expressions;
}

/// Where to write rows, which need no expression.
void addOutput(CLI::App& command, QueryRequest& request, CLI::Option& expressions) {
  expressions.required(false);
  command
      .add_option("-o,--output", request.output,
                  "Write rows to this file, or to a folder with a file for each partition")
      ->type_name("PATH");
  command.add_option("--select", request.select, "Write these columns: 'x, double = y * 2'")
      ->type_name("EXPRS");
  command.add_option("--format", request.format, "Write parquet, csv, ipc or npy")
      ->type_name("NAME");
  command
      .add_option("--partition-by", request.partitionBy,
                  "Write a folder NAME=VALUE for each value of this column")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command.add_flag("--overwrite", request.overwrite, "Replace an older output");
}

void addQuery(CLI::App& app, QueryRequest& request) {
  CLI::App* query = app.add_subcommand("query", "Evaluate expressions over a table in files");
  query->footer(kv::shell::queryHelp());
  addOutput(*query, request, *addQuestion(*query, request));
  query->add_flag("--json", request.json, "Print one JSON object");
  query->add_flag("--explain", request.explain, "Print the plan and read no data");
  query->callback([&] { kv::shell::runQuery(request); });
}

void addExplain(CLI::App& app, QueryRequest& request) {
  CLI::App* explain = app.add_subcommand("explain", "Show what a query would do; reads no data");
  explain->footer(kv::shell::queryHelp());
  addOutput(*explain, request, *addQuestion(*explain, request));
  CLI::Option* json = explain->add_flag("--json", request.json, "Print the plan as JSON");
  explain->add_flag("--dot", request.dot, "Print the lazy graph as DOT, for Graphviz")
      ->excludes(json);
  explain->callback([&] {
    request.explain = true;
    kv::shell::runQuery(request);
  });
}

void addSave(CLI::App& app, QueryRequest& request) {
  CLI::App* save = app.add_subcommand("save", "Save what a query would do; reads no data");
  save->footer(kv::shell::queryHelp());
  addPlain(*save, "FILE", request.saveTo, "Output; an older file of saved arrays is replaced")
      ->required();
  addQuestion(*save, request);
  save->callback([&] { kv::shell::runQuery(request); });
}

void addOpen(CLI::App& app, OpenRequest& request) {
  CLI::App* open = app.add_subcommand("open", "Show or evaluate saved arrays");
  open->footer(kv::shell::generalHelp());
  addPlain(*open, "FILE", request.file, "A file that kvbig save, or a program, wrote")->required();
  open->add_option("--data", request.data, "Read NEW instead of OLD, a file or a folder")
      ->type_name("OLD=NEW")
      ->allow_extra_args(false);
  open->add_flag("--trust", request.trust, "Evaluate: read the files that FILE names");
  open->add_flag("--explain", request.explain, "Print the plan and read no data");
  open->add_flag("--json", request.json, "Print one JSON object");
  addThreads(*open, request.threads);
  addMemory(*open, request.memory, request.scratch);
  open->callback([&] { kv::shell::runOpen(request); });
}

void addDescribe(CLI::App& app, DescribeRequest& request) {
  CLI::App* describe = app.add_subcommand("describe", "Show a class of the core, or list them all");
  addPlain(*describe, "NAME", request.name, "Full name of a class");
  describe->add_flag("--json", request.json, "Print JSON");
  describe->callback([&] { kv::shell::runDescribe(request.name, request.json); });
}

void printVersion() { kv::shell::writeOut(fmt::format("kvbig {}\n", kv::release())); }

/// Errors: UsageError if the first word is neither an option nor a command.
void refuseUnknownCommand(const CLI::App& app, std::span<char*> words) {
  const std::string_view first = words.size() > 1 ? words[1] : "-";
  if (first.starts_with('-')) {
    return;
  }
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  if (std::ranges::find(names, first) != names.end()) {
    return;
  }
  throw kv::shell::UsageError(fmt::format("there is no command \"{}\"\n{}",
                                          kv::formula::shortened(first),
                                          kv::formula::listNames("commands", first, names)));
}

[[noreturn]] void raiseUsageError(const CLI::App& app, const CLI::ParseError& error,
                                  std::span<char*> words) {
  const auto looksLikeExpression = [](std::string_view word) {
    return word.starts_with('-') && word.find('(') != std::string_view::npos;
  };
  if (std::ranges::any_of(words, looksLikeExpression)) {
    throw kv::shell::UsageError(
        "an expression that starts with \"-\" is taken for an option\n"
        "Put `--` before it, after all options: -- '-mean(x)'");
  }
  std::string command = "kvbig";
  for (const CLI::App* given : app.get_subcommands()) {
    command += ' ' + given->get_name();
  }
  std::string sentence = error.what();
  std::erase(sentence, kMark);
  throw kv::shell::UsageError(fmt::format("{}\nSee \"{} --help\".", sentence, command));
}

kv::shell::ExitCode run(int argc, char** argv) {
  CLI::App app("Array mathematics over tables larger than memory.", "kvbig");
  app.require_subcommand(1);
  app.footer(kv::shell::generalHelp());
  app.set_version_flag("--version", fmt::format("kvbig {}", kv::release()));
  QueryRequest queryRequest;
  OpenRequest openRequest;
  DescribeRequest describeRequest;
  addQuery(app, queryRequest);
  addExplain(app, queryRequest);
  addSave(app, queryRequest);
  addOpen(app, openRequest);
  addDescribe(app, describeRequest);
  app.add_subcommand("version", "Print the release")->callback(printVersion);
  const std::span words(argv, static_cast<std::size_t>(argc));
  refuseUnknownCommand(app, words);
  try {
    app.parse(wordsToParse(words));
  } catch (const CLI::Success& help) {
    std::ostringstream text;
    app.exit(help, text);
    kv::shell::writeOut(text.str());
  } catch (const CLI::ParseError& error) {
    raiseUsageError(app, error, words);
  }
  return kv::shell::kDone;
}

/// Ends the process without the exit handlers of libraries: one of them needs memory and crashes in
/// a process that has none left. The output has been flushed.
[[noreturn]] void endProcess(kv::shell::ExitCode code) {
#ifdef __SANITIZE_ADDRESS__
  std::exit(code);  // a handler looks for leaks
#else
  _exit(code);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  kv::shell::installSignalHandlers();
  try {
    endProcess(run(argc, argv));
  } catch (...) {
    endProcess(kv::shell::reportFailure());
  }
}

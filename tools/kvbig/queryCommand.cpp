// A query runs in an order that reports faults as early and as cheaply as possible: syntax and
// calls before a file is opened, columns and the kind of result before data is read. `query`,
// `explain` and `save` share everything up to the recorded arrays and differ only in what they do
// with them.

#include "queryCommand.h"

#include <fmt/format.h>
#include <kv/lazyGraph.h>
#include <kv/userPlace.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <set>
#include <system_error>

#include "failures.h"
#include "formula/FormulaError.h"
#include "formula/checkFormula.h"
#include "formula/parseFormula.h"
#include "formula/recordFormula.h"
#include "graphAsDot.h"
#include "interrupts.h"
#include "output.h"
#include "results.h"

namespace kv::shell {

namespace {

using formula::Formula;
using formula::Purpose;
using formula::Vocabulary;

struct Query {
  std::vector<Formula> formulas;
  std::vector<Formula> columns;  ///< to write; none: all
  std::optional<Formula> where;
};

const std::string kWhereSource = "--where";

/// The name of an expression in plans and errors.
std::string sourceOf(const Query& query, std::size_t index) {
  const Formula& formula = query.formulas[index];
  return formula.isNamed ? formula.label : fmt::format("expression {}", index + 1);
}

/// Runs `read`. If a formula turns out to be the name of a file, the error says that instead.
template <class Read>
auto readingFormula(const std::string& text, Read&& read) {
  try {
    return read();
  } catch (const formula::FormulaError&) {
    std::error_code ignored;
    if (!std::filesystem::exists(text, ignored)) {
      throw;
    }
    throw UsageError(
        fmt::format("\"{}\" is a file where an expression was expected\n"
                    "Give further files with -f, or put quotes around a pattern such as '*.csv'.",
                    text));
  }
}

Formula readFormula(const std::string& text, const Vocabulary& vocabulary) {
  return readingFormula(text, [&] {
    Formula formula = formula::parseFormula(text);
    formula::checkCalls(formula, vocabulary);
    return formula;
  });
}

std::vector<Formula> readFormulas(const std::vector<std::string>& texts,
                                  const Vocabulary& vocabulary, const char* what) {
  std::vector<Formula> formulas;
  std::set<std::string> labels;
  for (const std::string& text : texts) {
    formulas.push_back(readFormula(text, vocabulary));
    // A column that is taken as it is keeps its name, also one in backquotes.
    if (const auto* column = std::get_if<formula::Column>(&formulas.back().steps.front().what);
        column != nullptr && formulas.back().steps.size() == 1 && !formulas.back().isNamed) {
      formulas.back().label = column->name;
    }
    const std::string& label = formulas.back().label;
    if (!labels.insert(label).second) {
      throw UsageError(
          fmt::format("two {} are named \"{}\"\nName one of them differently: name = expression.",
                      what, label));
    }
  }
  return formulas;
}

void requirePurpose(const QueryRequest& request) {
  if (!request.output && request.expressions.empty()) {
    throw UsageError("EXPR is required, unless -o writes rows\nSee \"kvbig query --help\".");
  }
  if (!request.output && (request.select || request.overwrite || !request.format.empty() ||
                          !request.partitionBy.empty())) {
    throw UsageError(
        "--select, --format, --partition-by and --overwrite are about rows to write\n"
        "Give a file or folder for them: -o PATH.");
  }
}

Query readQuery(const QueryRequest& request) {
  const Vocabulary vocabulary = formula::arrayVocabulary();
  requirePurpose(request);
  Query query;
  query.formulas = readFormulas(request.expressions, vocabulary, "results");
  if (request.select) {
    query.columns = readFormulas(
        readingFormula(*request.select, [&] { return formula::splitFormulas(*request.select); }),
        vocabulary, "columns");
  }
  if (request.where) {
    query.where = readFormula(*request.where, vocabulary);
  }
  return query;
}

/// Splits at commas.
void addMarkers(const std::string& text, std::vector<std::string>& markers) {
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    markers.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
}

ReadOptions readOptions(const QueryRequest& request) {
  ReadOptions options{.separator = request.separator, .hasHeader = !request.noHeader};
  if (!request.missing.empty()) {
    options.missing.emplace();
  }
  for (const std::string& text : request.missing) {
    addMarkers(text, *options.missing);
  }
  for (const std::string& text : request.types) {
    const std::size_t equals = text.rfind('=');  // a column's name may contain one
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) {
      throw UsageError(fmt::format("--type expects NAME=TYPE, got \"{}\"", text));
    }
    const std::string name = text.substr(0, equals);
    if (!options.types.emplace(name, text.substr(equals + 1)).second) {
      throw UsageError(fmt::format("--type is given twice for the column \"{}\"", name));
    }
  }
  return options;
}

Table openTable(Session& session, const QueryRequest& request) {
  const ReadOptions options = readOptions(request);
  std::vector<std::string> paths = {request.path};
  paths.insert(paths.end(), request.furtherPaths.begin(), request.furtherPaths.end());
  const UserPlace here(session, {"PATH", "", 1});
  return session.read(paths, options);
}

/// Columns are checked first: advice on the purpose would be of no use for a mistyped name.
void checkQuery(const Query& query, const Table& table) {
  const Vocabulary vocabulary = formula::arrayVocabulary();
  const auto check = [&](const Formula& formula, Purpose purpose) {
    readingFormula(formula.text, [&] {
      formula::checkColumns(formula, table.columns());
      formula::checkPurpose(formula, vocabulary, purpose);
    });
  };
  for (const Formula& formula : query.formulas) {
    check(formula, Purpose::Result);
  }
  for (const Formula& formula : query.columns) {
    check(formula, Purpose::Column);
  }
  if (query.where) {
    check(*query.where, Purpose::Condition);
  }
}

std::uint64_t seedOf(const QueryRequest& request) {
  if (request.seed) {
    return *request.seed;
  }
  std::random_device entropy;
  return (std::uint64_t{entropy()} << 32 | entropy()) & Session::kMaxSeed;
}

const std::string kRowsWritten = "rows written";

/// The number of rows, which are written when it is gathered.
Array recordOutput(Session& session, const Table& table, const Query& query,
                   const QueryRequest& request) {
  std::vector<NamedArray> columns;
  for (const Formula& formula : query.columns) {
    columns.push_back({formula.label, formula::recordFormula(
                                          session, table, formula,
                                          fmt::format("column {}", formula.label), typeAdvice)});
  }
  const UserPlace here(session, {"-o", "", 1});
  const WriteOptions options{request.format, request.overwrite, request.partitionBy, false};
  return session.write(columns.empty() ? table : tableOf(columns), *request.output, options);
}

std::vector<Array> record(Session& session, Table table, const Query& query,
                          const QueryRequest& request) {
  if (query.where) {
    table = formula::keepRows(session, table, *query.where, kWhereSource, typeAdvice);
  }
  std::vector<Array> arrays;
  for (std::size_t i = 0; i < query.formulas.size(); ++i) {
    const Formula& formula = query.formulas[i];
    arrays.push_back(
        formula::recordFormula(session, table, formula, sourceOf(query, i), typeAdvice));
  }
  if (request.output) {
    arrays.push_back(recordOutput(session, table, query, request));
  }
  return arrays;
}

/// Evaluates. An error in a step of a formula shows the formula with a mark.
Gathered evaluate(Session& session, const std::vector<Array>& arrays, const Query& query) {
  try {
    return session.gather(arrays);
  } catch (const Error& error) {
    Error marked = query.where ? formula::markedError(error, *query.where, kWhereSource) : error;
    for (std::size_t i = 0; i < query.formulas.size(); ++i) {
      marked = formula::markedError(marked, query.formulas[i], sourceOf(query, i));
    }
    for (const Formula& formula : query.columns) {
      marked = formula::markedError(marked, formula, fmt::format("column {}", formula.label));
    }
    throw marked;
  }
}

/// Protects a data file from being overwritten when a word on the command line is missing.
/// Errors: UsageError if `path` exists and isn't a saved file.
void refuseToReplaceOthers(const std::string& path) {
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    return;
  }
  try {
    Session().open(path);
  } catch (const Error& error) {
    if (error.identifier() == "KALVEX:load:UnknownClass") {
      return;
    }
    throw UsageError(
        fmt::format("\"{}\" already exists and isn't replaced: {}\n"
                    "Remove it first to replace it.",
                    path, error.what()));
  }
}

void save(Session& session, const std::string& path, const std::vector<Array>& arrays,
          const std::vector<std::string>& names) {
  std::vector<NamedArray> named;
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    named.push_back({names[i], arrays[i]});
  }
  session.save(path, named);
  writeOut(fmt::format("{} array{} saved in {}\n", named.size(), named.size() == 1 ? "" : "s",
                       printable(path)));
}

}  // namespace

void runQuery(const QueryRequest& request) {
  if (request.saveTo) {
    refuseToReplaceOthers(*request.saveTo);
  }
  const Query query = readQuery(request);
  Session session;
  session.seed(seedOf(request));
  session.setThreads(request.threads.value_or(0));
  if (request.memory) {
    session.setMemoryLimit(*request.memory);
  }
  if (request.scratch) {
    session.setScratch(*request.scratch);
  }
  const Table table = openTable(session, request);
  checkQuery(query, table);
  const std::vector<Array> arrays = record(session, table, query, request);
  throwIfInterrupted();
  std::vector<std::string> labels;
  for (const Formula& formula : query.formulas) {
    labels.push_back(formula.label);
  }
  if (request.output) {
    labels.push_back(kRowsWritten);
  }
  if (request.saveTo) {
    return save(session, *request.saveTo, arrays, labels);
  }
  if (request.dot) {
    return writeOut(graphAsDot(lazyGraph(arrays), labels));
  }
  if (request.explain) {
    return writeOut(planAsText(session.explain(arrays), request.json));
  }

  const Gathered gathered = evaluate(session, arrays, query);
  writeOut(request.json ? resultsAsJson(labels, gathered) : resultsAsTable(labels, gathered));
}

}  // namespace kv::shell

// A file of saved arrays may come from anyone. So this command first shows what evaluating it would
// read, with all invisible characters escaped, and evaluates only with --trust.

#include "openCommand.h"

#include <fmt/format.h>
#include <kv/array.h>
#include <kv/lazyGraph.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <vector>

#include "failures.h"
#include "output.h"
#include "results.h"

namespace kv::shell {

namespace {

constexpr std::string_view kHint =
    "Nothing was evaluated. With --trust, the arrays are evaluated and the files above are read;\n"
    "what the plan writes is written.\n"
    "Use it only for arrays whose origin you trust.\n";

/// Types are aligned in a column as wide as the longest name, up to this width.
constexpr std::size_t kMostAligned = 80;

/// The contents of a file, without values.
struct Contents {
  std::vector<NamedArray> arrays;
  std::string plan;
  std::vector<std::string> files;
};

std::string contentsAsText(const std::string& file, const Contents& contents) {
  const std::size_t count = contents.arrays.size();
  std::string text =
      fmt::format("{}: {} array{}\n\n", printable(file), count, count == 1 ? "" : "s");
  std::size_t width = 0;
  for (const NamedArray& named : contents.arrays) {
    width = std::max(width, std::min(displayWidth(printable(named.name)), kMostAligned));
  }
  for (const NamedArray& named : contents.arrays) {
    text += fmt::format("{}  {}\n", padded(printable(named.name), width), named.array.type());
  }
  text += fmt::format("\n{}\nReads:\n", planAsText(contents.plan, false));
  for (const std::string& source : contents.files) {
    text += fmt::format("  {}\n", printable(source));
  }
  return fmt::format("{}\n{}", text, kHint);
}

std::string contentsAsJson(const Contents& contents) {
  std::string arrays;
  for (const NamedArray& named : contents.arrays) {
    arrays += fmt::format("{}{{\"name\": {}, \"type\": \"{}\"}}", arrays.empty() ? "" : ", ",
                          jsonText(named.name), named.array.type());
  }
  return fmt::format("{{\"arrays\": [{}], \"files\": {}, \"plan\": {}}}\n", arrays,
                     jsonTexts(contents.files), jsonText(contents.plan));
}

std::vector<std::string> filesIn(const std::vector<NamedArray>& named) {
  std::vector<Array> arrays;
  for (const NamedArray& each : named) {
    arrays.push_back(each.array);
  }
  return arrays.empty() ? std::vector<std::string>() : sourceFiles(arrays);
}

/// True if `path` is one of `files`, or a folder that contains one of them.
bool holdsAny(const std::string& path, const std::vector<std::string>& files) {
  const std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
  return std::ranges::any_of(files, [&](const std::string& file) {
    return file.starts_with(absolute) && (file.size() == absolute.size() ||
                                          absolute.ends_with('/') || file[absolute.size()] == '/');
  });
}

/// Paths may contain a "=" themselves. Of several, the one that follows the path of a source
/// counts.
MovedData splitData(const std::string& text, const std::vector<std::string>& files) {
  const auto parts = [&](std::size_t sign) {
    return MovedData{text.substr(0, sign), text.substr(sign + 1)};
  };
  const std::size_t first = text.find('=');
  if (first == std::string::npos || first == 0 || text.ends_with('=')) {
    throw UsageError(fmt::format("--data expects OLD=NEW, got \"{}\"", text));
  }
  for (std::size_t sign = first; sign != std::string::npos; sign = text.find('=', sign + 1)) {
    if (holdsAny(text.substr(0, sign), files)) {
      return parts(sign);
    }
  }
  return parts(first);
}

OpenOptions optionsOf(const OpenRequest& request) {
  OpenOptions options{request.trust ? Trust::Yes : Trust::No, {}};
  if (request.data.empty()) {
    return options;
  }
  Session session;
  const std::vector<std::string> files = filesIn(session.open(request.file).arrays);
  for (const std::string& text : request.data) {
    options.data.push_back(splitData(text, files));
  }
  return options;
}

/// Errors: as for Session::open; the message names the file.
Opened openFile(Session& session, const OpenRequest& request) {
  try {
    return session.open(request.file, optionsOf(request));
  } catch (const Error& error) {
    const std::string reason = error.what();
    if (reason.find(request.file) != std::string::npos) {
      throw;
    }
    throw Error(error.identifier(), fmt::format("'{}' can't be opened: {}", request.file, reason),
                error.arguments(), error.stack(), error.cause());
  }
}

void requireOneRowEach(const std::vector<std::string>& labels, const Gathered& gathered) {
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const std::size_t rows = gathered.values[i].rows();
    if (rows == 1) {
      continue;
    }
    raiseError("KALVEX:array:NotOneRow", {labels[i], fmt::format("{}", rows)});
  }
}

}  // namespace

void runOpen(const OpenRequest& request) {
  Session session;
  session.setThreads(request.threads.value_or(0));
  if (request.memory) {
    session.setMemoryLimit(*request.memory);
  }
  if (request.scratch) {
    session.setScratch(*request.scratch);
  }
  const Opened opened = openFile(session, request);
  for (const std::string& warning : opened.warnings) {
    warn(warning);
  }
  std::vector<std::string> labels;
  std::vector<Array> arrays;
  for (const NamedArray& named : opened.arrays) {
    labels.push_back(named.name);
    arrays.push_back(named.array);
  }
  if (request.explain) {
    return writeOut(planAsText(session.explain(arrays), request.json));
  }
  if (!request.trust) {
    const Contents contents{opened.arrays, session.explain(arrays), sourceFiles(arrays)};
    return writeOut(request.json ? contentsAsJson(contents)
                                 : contentsAsText(request.file, contents));
  }
  const Gathered gathered = session.gather(arrays);
  requireOneRowEach(labels, gathered);
  writeOut(request.json ? resultsAsJson(labels, gathered) : resultsAsTable(labels, gathered));
}

}  // namespace kv::shell

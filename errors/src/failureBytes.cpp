#include <algorithm>
#include <stdexcept>

#include "kv/errors/FailureRecord.h"

// The byte form: a tag, the place, then the error and its causes as a list, the outermost first.
// Numbers are 64 bits, little end first; a text or a list is preceded by its length. What is read
// may come from another process: no length is trusted.
namespace kv::errors {

namespace {

constexpr std::string_view kTag = "kvF1";
constexpr std::size_t kNumberBytes = 8;

class Writer {
 public:
  Writer() : bytes_(kTag) {}

  void number(std::uint64_t value) {
    for (std::size_t i = 0; i < kNumberBytes; ++i) {
      bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    }
  }

  void text(std::string_view value) {
    number(value.size());
    bytes_ += value;
  }

  void error(const ErrorRecord& record) {
    text(record.identifier);
    text(record.message);
    text(record.className);
    number(record.arguments.size());
    for (const std::string& argument : record.arguments) {
      text(argument);
    }
    number(record.stack.size());
    for (const Frame& frame : record.stack) {
      text(frame.file);
      text(frame.name);
      number(static_cast<std::uint64_t>(frame.line));
    }
  }

  std::string bytes() && { return std::move(bytes_); }

 private:
  std::string bytes_;
};

class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {
    if (!bytes_.starts_with(kTag)) {
      refuse();
    }
    bytes_.remove_prefix(kTag.size());
  }

  std::uint64_t number() {
    const std::string_view eight = take(kNumberBytes);
    std::uint64_t value = 0;
    for (std::size_t i = kNumberBytes; i-- > 0;) {
      value = value << 8 | static_cast<unsigned char>(eight[i]);
    }
    return value;
  }

  /// The length of a list whose items have at least `itemBytes` each.
  std::size_t count(std::size_t itemBytes) {
    const std::uint64_t items = number();
    if (items > bytes_.size() / itemBytes) {
      refuse();
    }
    return items;
  }

  std::string text() { return std::string(take(count(1))); }

  ErrorRecord error() {
    ErrorRecord record;
    record.identifier = text();
    record.message = text();
    record.className = text();
    record.arguments.resize(count(kNumberBytes));
    std::ranges::generate(record.arguments, [this] { return text(); });
    record.stack.resize(count(3 * kNumberBytes));
    for (Frame& frame : record.stack) {
      frame.file = text();
      frame.name = text();
      frame.line = static_cast<int>(number());
    }
    return record;
  }

  void finish() const {
    if (!bytes_.empty()) {
      refuse();
    }
  }

  [[noreturn]] static void refuse() {
    throw std::invalid_argument("the bytes aren't a failure, or not a whole one");
  }

 private:
  std::string_view take(std::size_t size) {
    if (size > bytes_.size()) {
      refuse();
    }
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }

  std::string_view bytes_;
};

/// The most errors of one chain: the destructors of causes are nested.
constexpr std::size_t kMaxChain = 256;

/// An error and its causes, each in the next.
std::vector<const ErrorRecord*> chainOf(const ErrorRecord& outermost) {
  std::vector<const ErrorRecord*> chain{&outermost};
  while (!chain.back()->causes.empty() && chain.size() < kMaxChain) {
    chain.push_back(&chain.back()->causes.front());
  }
  return chain;
}

}  // namespace

std::string FailureRecord::toBytes() const {
  Writer writer;
  writer.number(step);
  for (const std::int64_t place : {partition, firstRow, lastRow}) {
    writer.number(static_cast<std::uint64_t>(place));
  }
  const std::vector<const ErrorRecord*> chain = chainOf(error);
  writer.number(chain.size());
  for (const ErrorRecord* record : chain) {
    writer.error(*record);
  }
  return std::move(writer).bytes();
}

FailureRecord FailureRecord::fromBytes(std::string_view bytes) {
  Reader reader(bytes);
  FailureRecord failure;
  failure.step = reader.number();
  for (std::int64_t* place : {&failure.partition, &failure.firstRow, &failure.lastRow}) {
    *place = static_cast<std::int64_t>(reader.number());
  }
  const std::size_t chain = reader.count(kNumberBytes);
  if (chain < 1 || chain > kMaxChain) {
    Reader::refuse();
  }
  failure.error = reader.error();
  ErrorRecord* innermost = &failure.error;
  for (std::size_t i = 1; i < chain; ++i) {
    innermost->causes.push_back(reader.error());
    innermost = &innermost->causes.back();
  }
  reader.finish();
  return failure;
}

}  // namespace kv::errors

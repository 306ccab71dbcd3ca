// The byte form: a tag, the place, then the error and its causes as a list, the outermost first.
// What is read may come from another process: no length is trusted.

#include <algorithm>

#include "kv/errors/FailureRecord.h"
#include "kv/errors/bytes.h"

namespace kv::errors {

namespace {

constexpr std::uint32_t kTag = 0x3246766B;  // "kvF2"

/// The least bytes of a frame, and of an error.
constexpr std::size_t kFrameBytes = 3 * sizeof(std::uint64_t);
constexpr std::size_t kErrorBytes = 5 * sizeof(std::uint64_t);

void writeError(const ErrorRecord& record, ByteWriter& bytes) {
  bytes.text(record.identifier);
  bytes.text(record.message);
  bytes.text(record.className);
  bytes.texts(record.arguments);
  bytes.number<std::uint64_t>(record.stack.size());
  for (const Frame& frame : record.stack) {
    bytes.text(frame.file);
    bytes.text(frame.name);
    bytes.number<std::int64_t>(frame.line);
  }
}

ErrorRecord readError(ByteReader& bytes) {
  ErrorRecord record;
  record.identifier = bytes.text();
  record.message = bytes.text();
  record.className = bytes.text();
  record.arguments = bytes.texts();
  record.stack.resize(bytes.count(kFrameBytes));
  for (Frame& frame : record.stack) {
    frame.file = bytes.text();
    frame.name = bytes.text();
    frame.line = static_cast<int>(bytes.number<std::int64_t>());
  }
  return record;
}

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
  ByteWriter bytes;
  bytes.number(kTag);
  bytes.number<std::uint64_t>(step);
  for (const std::int64_t place : {partition, firstRow, lastRow}) {
    bytes.number(place);
  }
  const std::vector<const ErrorRecord*> chain = chainOf(error);
  bytes.number<std::uint64_t>(chain.size());
  for (const ErrorRecord* record : chain) {
    writeError(*record, bytes);
  }
  return bytes.take();
}

FailureRecord FailureRecord::fromBytes(std::string_view content) {
  ByteReader bytes(content, "a failure");
  if (bytes.number<std::uint32_t>() != kTag) {
    bytes.refuse();
  }
  FailureRecord failure;
  failure.step = bytes.number<std::uint64_t>();
  for (std::int64_t* place : {&failure.partition, &failure.firstRow, &failure.lastRow}) {
    *place = bytes.number<std::int64_t>();
  }
  const std::size_t chain = bytes.count(kErrorBytes);
  if (chain < 1 || chain > kMaxChain) {
    bytes.refuse();
  }
  failure.error = readError(bytes);
  ErrorRecord* innermost = &failure.error;
  for (std::size_t i = 1; i < chain; ++i) {
    innermost->causes.push_back(readError(bytes));
    innermost = &innermost->causes.back();
  }
  bytes.finish();
  return failure;
}

}  // namespace kv::errors

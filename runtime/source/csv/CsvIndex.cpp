// Ranges are examined in order as partitions are opened, by whichever thread comes first; others
// wait for it only if they need the same range. The state at a cut is that of all ranges before
// it, composed. From there a few bytes are looked at to find the next record.

#include "source/csv/CsvIndex.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "column/pool.h"
#include "source/SourceInput.h"
#include "source/csv/CsvBlocks.h"

namespace kv::runtime {

namespace {

/// Bytes that are examined at a time: they stay in the cache next to a processor.
constexpr std::int64_t kScanBytes = 64 * 1024;

/// Bytes in which the next record is looked for at a time.
constexpr std::int64_t kSearchBytes = 16 * 1024;

/// Bytes after a cut in which the next record must begin. If none does, the record before it is too
/// long to be read.
constexpr std::int64_t kLongestSearch =
    static_cast<std::int64_t>(kCsvRecordBytes) + 4 * kCsvBlockBytes;

/// Passes bytes [begin, end) on, `step` at a time, until `visit` returns false.
template <class Visit>
void visitBytes(const SourceInput& input, std::int64_t begin, std::int64_t end, std::int64_t step,
                const Visit& visit) {
  std::pmr::vector<char> part(static_cast<std::size_t>(std::min(step, std::max(end - begin, 0L))),
                              currentResource());
  for (std::int64_t at = begin; at < end; at += step) {
    const auto bytes = static_cast<std::size_t>(std::min(step, end - at));
    input.readAt(at, part.data(), bytes);
    if (!visit(at, std::string_view(part.data(), bytes))) {
      return;
    }
  }
}

}  // namespace

std::int64_t csvRangeBytes() {
  const char* world = std::getenv("KV_CSV_RANGE");
  const std::int64_t bytes = world == nullptr ? 0 : std::strtoll(world, nullptr, 10);
  return bytes > 0 ? bytes : kCsvRangeBytes;
}

CsvIndex::CsvIndex(CsvFile file, std::int64_t rangeBytes)
    : file_(std::move(file)),
      rangeBytes_(rangeBytes),
      numRanges_(file_.isCompressed()
                     ? 1
                     : std::max<std::int64_t>(1, fileBytes() / rangeBytes +
                                                     (fileBytes() % rangeBytes != 0 ? 1 : 0))) {}

ByteRange CsvIndex::records(std::int64_t index, const CancellationToken& cancellation) {
  if (numRanges_ == 1) {
    return {0, fileBytes()};
  }
  const auto begin = recordAtCut(index, cancellation);
  const auto end = recordAtCut(index + 1, cancellation);
  // Without a next record, the one before the cut can't be read, and is reported by its range.
  return {begin.value_or(fileBytes()), end.value_or(fileBytes())};
}

/// Where range `index` begins before it is moved to a record.
std::int64_t CsvIndex::cut(std::int64_t index) const {
  return std::min(index * rangeBytes_, fileBytes());
}

/// Where the first record begins at or after a cut; empty if none does within a record's length.
std::optional<std::int64_t> CsvIndex::recordAtCut(std::int64_t index,
                                                  const CancellationToken& cancellation) {
  if (index == 0 || index == numRanges_) {
    return index == 0 ? 0 : fileBytes();
  }
  const std::int64_t offset = std::max(cut(index), headerEnd());
  examine(index, cancellation);
  CsvState state = CsvState::RecordStart;
  {
    const std::lock_guard lock(mutex_);
    for (std::int64_t i = 0; i < index; ++i) {
      state = ranges_[static_cast<std::size_t>(i)].transition->after(state);
    }
  }
  return firstRecordFrom(offset, state);
}

/// The end of the header, where a record begins.
std::int64_t CsvIndex::headerEnd() {
  std::unique_lock lock(mutex_);
  if (headerEnd_ < 0) {
    lock.unlock();
    CsvBlocks blocks(file_, kCsvHeaderBytes);
    blocks.readHeader();
    lock.lock();
    headerEnd_ = std::min(blocks.offset(), fileBytes());  // a line end may have been added
  }
  return headerEnd_;
}

/// Examines ranges [0, end), except those that other threads have examined, and waits for them.
void CsvIndex::examine(std::int64_t end, const CancellationToken& cancellation) {
  const auto isOpen = [](const Range& range) { return !range.transition && !range.isBusy; };
  const auto isDone = [](const Range& range) { return range.transition.has_value(); };
  std::unique_lock lock(mutex_);
  ranges_.resize(
      static_cast<std::size_t>(numRanges_));  // not before the file is known to be as long
  const auto last = ranges_.begin() + end;
  for (;;) {
    const auto next = std::find_if(ranges_.begin(), last, isOpen);
    if (next == last) {
      if (std::all_of(ranges_.begin(), last, isDone)) {
        return;
      }
      examined_.wait(lock);
      continue;
    }
    next->isBusy = true;
    lock.unlock();
    std::optional<CsvTransition> transition;
    try {
      transition = transitionOf(next - ranges_.begin(), cancellation);
    } catch (...) {
      lock.lock();
      next->isBusy = false;
      examined_.notify_all();
      throw;
    }
    lock.lock();
    next->isBusy = false;
    next->transition = transition;
    examined_.notify_all();
  }
}

CsvTransition CsvIndex::transitionOf(std::int64_t index, const CancellationToken& cancellation) {
  CsvTransition transition(file_.format.separator);
  const std::int64_t begin = std::max(cut(index), headerEnd());
  const SourceInput input(file_.file);
  visitBytes(input, begin, cut(index + 1), kScanBytes, [&](std::int64_t, std::string_view bytes) {
    cancellation.throwIfCancelled();
    transition.append(bytes);
    return true;
  });
  return transition;
}

/// Where the first record begins at or after `offset`, where the state is `state`.
std::optional<std::int64_t> CsvIndex::firstRecordFrom(std::int64_t offset, CsvState state) const {
  if (state == CsvState::RecordStart) {
    return offset;
  }
  const std::int64_t limit = offset + kLongestSearch;
  std::optional<std::int64_t> found;
  if (limit >= fileBytes()) {
    found = fileBytes();
  }
  const SourceInput input(file_.file);
  visitBytes(input, offset, std::min(fileBytes(), limit), kSearchBytes,
             [&](std::int64_t at, std::string_view bytes) {
               for (std::size_t i = 0; i < bytes.size(); ++i) {
                 state = next(state, bytes[i], file_.format.separator);
                 if (state == CsvState::RecordStart) {
                   found = at + static_cast<std::int64_t>(i) + 1;
                   return false;
                 }
               }
               return true;
             });
  return found;
}

}  // namespace kv::runtime

// A file is opened without a name (O_TMPFILE), or unlinked at once where the file system can't do
// that: so a process that is killed leaves nothing either.

#include "exchange/Scratch.h"

#include <arrow/array/data.h>
#include <arrow/buffer.h>
#include <arrow/io/file.h>
#include <arrow/io/interfaces.h>
#include <arrow/ipc/options.h>
#include <arrow/ipc/reader.h>
#include <arrow/ipc/writer.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>
#include <arrow/util/compression.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "column/ExecutionContext.h"
#include "column/MemoryLedger.h"
#include "column/allocate.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

[[noreturn]] void raiseFailed(const std::string& folder, int error) {
  errors::raiseStep("KALVEX:spill:Failed", {folder, std::generic_category().message(error)});
}

int openUnnamed(const std::string& folder) {
  const int file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
    return file;
  }
  std::string path = folder + "/kvbigdata-XXXXXX";
  const int named = ::mkostemp(path.data(), O_CLOEXEC);
  if (named >= 0) {
    ::unlink(path.c_str());
  }
  return named;
}

}  // namespace

/// Notes why it couldn't write, which a status of Arrow doesn't carry.
class ScratchFile::Sink final : public arrow::io::OutputStream {
 public:
  Sink(Scratch& scratch, int file) : scratch_(scratch), file_(file) {}

  arrow::Status Write(const void* data, std::int64_t bytes) override {
    if (!scratch_.charge(bytes)) {
      return failed(ENOSPC);
    }
    written_ += bytes;
    const auto* next = static_cast<const char*>(data);
    while (bytes > 0) {
      const ssize_t done = ::write(file_, next, static_cast<std::size_t>(bytes));
      if (done < 0 && errno != EINTR) {
        return failed(errno);
      }
      next += std::max<ssize_t>(done, 0);
      bytes -= std::max<ssize_t>(done, 0);
    }
    return arrow::Status::OK();
  }

  arrow::Status Close() override { return arrow::Status::OK(); }
  arrow::Result<std::int64_t> Tell() const override { return written_; }
  bool closed() const override { return false; }

  int error() const { return error_; }
  std::int64_t written() const { return written_; }

 private:
  arrow::Status failed(int error) {
    error_ = error;
    return arrow::Status::IOError("scratch");
  }

  Scratch& scratch_;
  int file_;
  int error_ = 0;
  std::int64_t written_ = 0;
};

class ScratchFile::Batches {
 public:
  std::shared_ptr<arrow::ipc::RecordBatchWriter> writer{};
  std::shared_ptr<arrow::ipc::RecordBatchReader> reader{};
};

ScratchFile::ScratchFile(Scratch& scratch, int file) : scratch_(scratch), file_(file) {}

ScratchFile::~ScratchFile() {
  if (sink_ != nullptr) {
    scratch_.used_ -= sink_->written();
  }
  ::close(file_);
}

void ScratchFile::check(const arrow::Status& status) const {
  throwIfOutOfMemory(status);
  if (status.ok()) {
    return;
  }
  const int error = sink_->error();
  if (error == ENOSPC || error == EDQUOT) {
    errors::raiseStep("KALVEX:spill:NoSpace", {scratch_.folder(), shownBytes(scratch_.used_)});
  }
  raiseFailed(scratch_.folder(), error != 0 ? error : EIO);
}

void ScratchFile::append(const std::vector<Column>& columns) {
  assert(batches_ == nullptr || batches_->reader == nullptr);
  assert(sink_ == nullptr || std::ranges::equal(columns, types_, {}, &Column::type));
  arrow::FieldVector fields;
  std::vector<std::shared_ptr<arrow::ArrayData>> data;
  for (const Column& column : columns) {
    fields.push_back(arrow::field("", arrowTypeOf(column.type())));
    data.push_back(column.data());
  }
  const auto schema = arrow::schema(std::move(fields));
  if (sink_ == nullptr) {
    std::ranges::transform(columns, std::back_inserter(types_), &Column::type);
    sink_ = std::make_shared<Sink>(scratch_, file_);
    auto options = arrow::ipc::IpcWriteOptions::Defaults();
    options.memory_pool = currentPool();
    options.use_threads = false;
    options.codec = checkArrow(arrow::util::Codec::Create(arrow::Compression::LZ4_FRAME));
    auto writer = arrow::ipc::MakeStreamWriter(sink_, schema, options);
    check(writer.status());
    batches_ = std::make_unique<Batches>();
    batches_->writer = *std::move(writer);
  }
  const auto batch = arrow::RecordBatch::Make(schema, columns.front().rows(), std::move(data));
  check(batches_->writer->WriteRecordBatch(*batch));
  ++numBatches_;
}

std::optional<std::vector<Column>> ScratchFile::next() {
  scratch_.cancellation_.throwIfCancelled();
  if (batches_ == nullptr) {
    return std::nullopt;
  }
  if (batches_->reader == nullptr) {
    check(batches_->writer->Close());
    const int file = ::lseek(file_, 0, SEEK_SET) == 0 ? ::dup(file_) : -1;
    if (file < 0) {
      raiseFailed(scratch_.folder(), errno);
    }
    auto options = arrow::ipc::IpcReadOptions::Defaults();
    options.memory_pool = currentPool();
    options.use_threads = false;
    auto input = arrow::io::ReadableFile::Open(file, currentPool());
    check(input.status());
    auto reader = arrow::ipc::RecordBatchStreamReader::Open(*input, options);
    check(reader.status());
    batches_->reader = *std::move(reader);
  }
  std::shared_ptr<arrow::RecordBatch> batch;
  check(batches_->reader->ReadNext(&batch));
  if (batch == nullptr) {
    return std::nullopt;
  }
  std::vector<Column> columns;
  for (std::size_t i = 0; i < types_.size(); ++i) {
    columns.emplace_back(types_[i], batch->column_data(static_cast<int>(i)));
  }
  return columns;
}

std::unique_ptr<ScratchFile> Scratch::open() {
  const int file = openUnnamed(folder_);
  if (file < 0) {
    raiseFailed(folder_, errno);
  }
  return std::unique_ptr<ScratchFile>(new ScratchFile(*this, file));
}

bool Scratch::charge(std::int64_t bytes) {
  const std::int64_t used = used_ += bytes;
  if (used > limitBytes_) {
    used_ -= bytes;
    return false;
  }
  spilled_ += bytes;
  return true;
}

void Scratch::noteLevel(int level) {
  int known = levels_;
  while (known < level && !levels_.compare_exchange_weak(known, level)) {
  }
}

Scratch* currentScratch() noexcept {
  const ExecutionContext* context = currentContext();
  return context != nullptr ? context->scratch : nullptr;
}

}  // namespace kv::runtime

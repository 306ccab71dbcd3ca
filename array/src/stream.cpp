// The rows of an evaluation, pulled. The evaluation runs on a thread of its own and hands frames to
// a short queue; the C stream's callbacks take them out. Three threads meet here: the producer, the
// one that pulls, and one that closes the session.
//
// 1. The producer waits for room with the session released, so the program can use it meanwhile.
// 2. A thread that has the session already can't wait for a producer that needs it. It runs the
//    evaluation itself when it pulls the first batch, and the queue has no bound.
// 3. The stream ends only when the producer has left the session, so a session can be closed then.

#include "kv/stream.h"

#include <arrow/array/util.h>
#include <arrow/c/bridge.h>
#include <arrow/record_batch.h>
#include <arrow/type.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>

#include "OpenStream.h"
#include "evaluation.h"
#include "handles.h"
#include "kv/runtime/exportedData.h"
#include "kv/runtime/frames.h"

namespace kv {

namespace {

/// Batches that wait to be pulled.
constexpr std::size_t kMostWaiting = 2;

constexpr std::chrono::milliseconds kPollInterval(50);

/// What a stream's consumer gets as its error.
struct Ending {
  int code = 0;  ///< an errno; 0: all rows were there
  std::string text{};
};

std::string textOf(const Error& error) {
  constexpr std::string_view kPython = "KALVEX:python:";
  std::string text = error.what();
  if (error.identifier().starts_with(kPython)) {
    text = fmt::format("{}: {}", error.identifier().substr(kPython.size()), text);
  }
  if (!error.stack().empty()) {
    const StackFrame& place = error.stack().front();
    text += fmt::format(" Recorded in {}, line {}.", place.file, place.line);
  }
  return text;
}

int codeOf(const Error& error) {
  switch (errorBase(error.identifier())) {
    case ErrorBase::Memory:
      return ENOMEM;
    case ErrorBase::System:
      return EIO;
    default:
      return EINVAL;
  }
}

/// True if the calling thread leases the session.
bool isLeasedHere(Session::Impl& session) {
  const std::unique_lock lock(session.mutex, std::try_to_lock);
  return lock.owns_lock() && session.depth > 0;
}

class RowStream final : public OpenStream,
                        public runtime::FrameReceiver,
                        public std::enable_shared_from_this<RowStream> {
 public:
  /// `delivery`: what evaluating hands over rows of these types. Without names they are those of
  /// one column.
  RowStream(Array delivery, std::shared_ptr<const RowSpace> rows, std::vector<std::string> names,
            std::vector<runtime::ElementType> types, StreamHooks hooks, Where where)
      : delivery_(std::move(delivery)),
        rows_(std::move(rows)),
        types_(std::move(types)),
        isTable_(!names.empty()),
        hooks_(std::move(hooks)),
        where_(where) {
    arrow::FieldVector fields;
    for (std::size_t i = 0; i < types_.size(); ++i) {
      fields.push_back(arrow::field(isTable_ ? std::move(names[i]) : std::string(),
                                    runtime::exportedTypeOf(types_[i])));
    }
    schema_ = arrow::schema(std::move(fields));
  }

  arrow::Status exportSchema(ArrowSchema* schema) const {
    return isTable_ ? arrow::ExportSchema(*schema_, schema)
                    : arrow::ExportField(*schema_->field(0), schema);
  }

  /// Result: an errno, 0 also at the end, where `batch` is released.
  int next(ArrowArray* batch) {
    *batch = {};
    begin();
    std::unique_lock lock(mutex_);
    while (waiting_.empty() && !isDone_) {
      const auto isReady = [&] { return !waiting_.empty() || isDone_; };
      if (!changed_.wait_for(lock, kPollInterval, isReady) && hooks_.whileWaiting) {
        lock.unlock();
        const bool goesOn = hooks_.whileWaiting();
        lock.lock();
        if (!goesOn) {
          isStopped_ = true;
          stop_.cancel();
        }
      }
    }
    if (waiting_.empty()) {
      return ending_.code;
    }
    const Frame frame = std::move(waiting_.front());
    waiting_.pop_front();
    changed_.notify_all();
    lock.unlock();
    const arrow::Status status = exportFrame(frame, batch);
    if (!status.ok()) {
      ending_ = {status.IsOutOfMemory() ? ENOMEM : EIO, status.message()};
      return ending_.code;
    }
    return 0;
  }

  const char* lastError() const { return ending_.code == 0 ? nullptr : ending_.text.c_str(); }

  bool take(std::vector<runtime::Column> columns) override {
    Frame frame;
    for (const runtime::Column& column : columns) {
      frame.push_back(runtime::exportedData(column));
    }
    numRows_ += columns.front().rows();
    waitForRoom();
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(frame));
    changed_.notify_all();
    return !isStopped_;
  }

  void stopAndWait() noexcept override {
    std::unique_lock lock(mutex_);
    isStopped_ = true;
    stop_.cancel();
    changed_.notify_all();
    changed_.wait(lock, [&] { return isDone_ || !isBegun_; });
  }

  /// For the consumer, who pulls no more.
  void release() noexcept {
    stopAndWait();
    if (producer_.joinable()) {
      producer_.join();
    }
    waiting_.clear();
  }

 private:
  using Frame = std::vector<std::shared_ptr<arrow::ArrayData>>;

  void begin() {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(isBegun_, true)) {
        return;
      }
    }
    try {
      const auto session = live(delivery_.handle().session);
      session->streams.add(shared_from_this());
      isInline_ = isLeasedHere(*session);
      if (!isInline_) {
        producer_ = std::thread([this] { run(); });
        return;
      }
    } catch (const Error& error) {
      end({codeOf(error), textOf(error)});
      return;
    } catch (const std::system_error& error) {
      end({EAGAIN, error.what()});
      return;
    }
    run();
  }

  void run() noexcept { end(evaluate()); }

  Ending evaluate() noexcept {
    try {
      const auto session = live(delivery_.handle().session);
      const runtime::CancellationScope scope(stop_);
      const Facts facts = publicCall(*session, where_, [&] {
        runtime::deliver(delivery_.handle().value.get(), *this);
        if (!isStopped_ && rows_ != nullptr) {
          rows_->setCount(numRows_);
        }
        return lastFacts();
      });
      if (hooks_.atEnd && !isStopped_) {
        hooks_.atEnd(facts);
      }
      return {};
    } catch (const Error& error) {
      return {codeOf(error), textOf(error)};
    } catch (const std::exception& error) {  // an interrupt, or an exception of the front end's own
      return {EINTR, error.what()};
    }
  }

  void end(Ending ending) noexcept {
    const std::lock_guard lock(mutex_);
    const bool hasFailed = ending.code != 0 && ending.code != EINTR;  // a stop interrupts
    ending_ =
        isStopped_ && !hasFailed ? Ending{ECANCELED, "the stream was stopped"} : std::move(ending);
    isDone_ = true;
    changed_.notify_all();
  }

  void waitForRoom() {
    const auto hasRoom = [&] { return waiting_.size() < kMostWaiting || isStopped_; };
    std::unique_lock lock(mutex_);
    if (isInline_ || hasRoom()) {
      return;
    }
    lock.unlock();
    const auto session = live(delivery_.handle().session);
    const auto released = session->lease->release();
    lock.lock();
    changed_.wait(lock, hasRoom);
    lock.unlock();  // before the end of `released`, which may wait
  }

  arrow::Status exportFrame(const Frame& frame, ArrowArray* batch) const {
    return isTable_ ? arrow::ExportRecordBatch(
                          *arrow::RecordBatch::Make(schema_, frame.front()->length, frame), batch)
                    : arrow::ExportArray(*arrow::MakeArray(frame.front()), batch);
  }

  Array delivery_;
  std::shared_ptr<const RowSpace> rows_;  ///< whose number is known at the end; null for none
  std::vector<runtime::ElementType> types_;
  bool isTable_;
  StreamHooks hooks_;
  Where where_;
  std::shared_ptr<arrow::Schema> schema_;
  runtime::CancellationToken stop_;
  std::int64_t numRows_ = 0;  ///< of the producer
  bool isInline_ = false;     ///< set before the producer starts
  std::thread producer_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Frame> waiting_;
  Ending ending_;
  bool isBegun_ = false;
  std::atomic<bool> isStopped_ = false;  ///< set with the lock
  bool isDone_ = false;
};

RowStream& streamOf(ArrowArrayStream* stream) {
  return **static_cast<std::shared_ptr<RowStream>*>(stream->private_data);
}

/// The stream's callbacks, which let no exception through.
int getSchema(ArrowArrayStream* stream, ArrowSchema* schema) {
  return streamOf(stream).exportSchema(schema).ok() ? 0 : ENOMEM;
}

int getNext(ArrowArrayStream* stream, ArrowArray* batch) {
  try {
    return streamOf(stream).next(batch);
  } catch (...) {
    return ENOMEM;
  }
}

const char* getLastError(ArrowArrayStream* stream) { return streamOf(stream).lastError(); }

void release(ArrowArrayStream* stream) {
  const std::unique_ptr<std::shared_ptr<RowStream>> owner(
      static_cast<std::shared_ptr<RowStream>*>(stream->private_data));
  (*owner)->release();
  stream->release = nullptr;
}

/// A value as a column with the rows of a logical one.
Array spread(const Array& value, const Array& rows, const Where& where) {
  const Operand operand(value, where);
  return kv::apply("where", std::array{Operand(rows, where), operand, operand}, where);
}

void open(const std::vector<Array>& columns, std::vector<std::string> names,
          ArrowArrayStream* stream, StreamHooks hooks, const Where& where) {
  const auto session = sessionOf(columns);
  const auto rowsOf = [](const Array& column) { return column.handle().traits.rows; };
  const auto known =
      std::ranges::find_if(columns, [&](const Array& column) { return rowsOf(column) != nullptr; });
  auto made = publicCall(*session, where, [&] {
    std::vector<const kxArray*> inputs;
    std::vector<runtime::ElementType> types;
    for (const Array& column : columns) {
      inputs.push_back(column.handle().value.get());
      types.push_back(column.handle().type);
    }
    Array delivery = makeArray(session, runtime::recordDelivery(inputs),
                               runtime::ElementType::Logical, RowTraits{.isScalar = true});
    return std::make_shared<RowStream>(std::move(delivery),
                                       known == columns.end() ? nullptr : rowsOf(*known),
                                       std::move(names), std::move(types), std::move(hooks), where);
  });
  *stream = {getSchema, getNext, getLastError, release,
             new std::shared_ptr<RowStream>(std::move(made))};
}

}  // namespace

void toStream(const Table& table, ArrowArrayStream* stream, StreamHooks hooks, Where where) {
  std::vector<Array> columns;
  for (const std::string& name : table.columns()) {
    columns.push_back(table.column(name, where));
  }
  const auto rows = std::ranges::find_if_not(columns, &Array::isScalar);
  if (rows != columns.end()) {
    const Array like = kv::apply("ismissing", std::array{Operand(*rows, where)}, where);
    std::ranges::transform(columns, columns.begin(), [&](const Array& column) {
      return column.isScalar() ? spread(column, like, where) : column;
    });
  }
  open(columns, table.columns(), stream, std::move(hooks), where);
}

void toStream(const Array& column, ArrowArrayStream* stream, StreamHooks hooks, Where where) {
  requireColumn("A stream of rows", column);
  open({column}, {}, stream, std::move(hooks), where);
}

}  // namespace kv

// A function that takes rows in C++ needs no values of the host. So it is none: a name takes its
// place in the graph, and the call goes to the receiver of the thread that evaluates.

#include "driver/frames.h"

#include <algorithm>
#include <utility>

#include "column/concatenate.h"
#include "values/chunkValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Value;

constexpr std::string_view kReceiveFrames = "kv.receiveFrames";

thread_local FrameReceiver* receiverOfThread = nullptr;

class ReceiverScope {
 public:
  explicit ReceiverScope(FrameReceiver& receiver) noexcept
      : outer_(std::exchange(receiverOfThread, &receiver)) {}
  ~ReceiverScope() { receiverOfThread = outer_; }
  ReceiverScope(const ReceiverScope&) = delete;
  ReceiverScope& operator=(const ReceiverScope&) = delete;

 private:
  FrameReceiver* outer_;
};

}  // namespace

FrameReceiver::~FrameReceiver() = default;

Value recordForeach(const kxArray* functionHandle, bool isOrdered,
                    std::span<const kxArray* const> arrays) {
  const Value ordered = host::makeLogical(isOrdered);
  const Value count = host::makeDouble(static_cast<double>(arrays.size()));
  const Value operation =
      host::call(kForeachOperation, {functionHandle, ordered.get(), count.get()});
  std::vector<const kxArray*> inputs{operation.get()};
  inputs.insert(inputs.end(), arrays.begin(), arrays.end());
  return host::call("applyOperationBuiltin", inputs);
}

Value recordDelivery(std::span<const kxArray* const> arrays) {
  const Value name = host::makeFunctionHandle(kReceiveFrames);
  const Value function = host::call(kFunctionHandle, {name.get()});
  return recordForeach(function.get(), /*isOrdered=*/true, arrays);
}

void deliver(const kxArray* delivery, FrameReceiver& receiver) {
  const ReceiverScope scope(receiver);
  host::call("gather", {delivery});
}

FrameReceiver* receiverOf(const kxArray* functionHandle) {
  if (receiverOfThread == nullptr || !kxIsA(functionHandle, kFunctionHandle)) {
    return nullptr;
  }
  const Value function = host::getProperty(functionHandle, "Handle");
  return host::functionName(function.get()) == kReceiveFrames ? receiverOfThread : nullptr;
}

std::vector<Column> columnsOf(std::span<const CallInput> inputs) {
  std::vector<Column> columns;
  std::int64_t rows = 1;
  for (const CallInput& input : inputs) {
    columns.push_back((input.rows ? *input.rows : toArray(input.value)).columns.front());
    rows = columns.back().rows() != 1 ? columns.back().rows() : rows;
  }
  for (Column& column : columns) {
    column = column.rows() == rows ? column : repeat(column, rows);
  }
  return columns;
}

}  // namespace kv::runtime

#pragma once

#include <span>

#include "driver/slicedCalls.h"
#include "kv/host/values.h"
#include "kv/runtime/frames.h"

namespace kv::runtime {

/// The result of handing the rows of arrays to a function, frame by frame.
host::Value recordForeach(const kxArray* functionHandle, bool isOrdered,
                          std::span<const kxArray* const> arrays);

/// The receiver of this thread's evaluation, if a FunctionHandle represents it; null for any other.
FrameReceiver* receiverOf(const kxArray* functionHandle);

/// A column of each input. Values of one row are repeated.
std::vector<Column> columnsOf(std::span<const CallInput> inputs);

}  // namespace kv::runtime

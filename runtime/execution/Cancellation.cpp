#include "kv/runtime/Cancellation.h"

#include "kv/runtime/runtime.h"

namespace kv::runtime {

EvaluationWatch::~EvaluationWatch() = default;

void CancellationToken::throwIfCancelled() const {
  if (isCancelled()) throw Cancelled();
  if (watch_ != nullptr) watch_->poll();
}

}  // namespace kv::runtime

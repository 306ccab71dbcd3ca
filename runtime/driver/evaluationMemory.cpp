#include "driver/evaluationMemory.h"

#include <algorithm>
#include <cstdint>

#include "column/MemoryLedger.h"
#include "column/pool.h"
#include "engine/memoryFailures.h"
#include "kv/host/collectGarbage.h"

namespace kv::runtime {

bool freeGarbage() {
  const MemoryLedger* ledger = currentLedger();
  const std::int64_t before = ledger != nullptr ? ledger->bytes_allocated() : 0;
  host::collectGarbage();
  return ledger != nullptr && ledger->bytes_allocated() < before;
}

void freeGarbageIfHalfIsUsed() {
  const MemoryLedger* ledger = currentLedger();
  if (ledger != nullptr && ledger->bytes_allocated() > ledger->limit() / 2) {
    freeGarbage();
  }
}

int threadsFor(const Stage& stage, int threads) {
  constexpr std::int64_t kLeastBytes = std::int64_t{256} << 20;  // four partitions
  const MemoryLedger* ledger = currentLedger();
  const bool keeps = std::ranges::any_of(
      stage.steps(), [](const Step& step) { return step.op->facts().keepsForOrder; });
  return keeps && ledger != nullptr && ledger->limit() < kLeastBytes ? 1 : threads;
}

}  // namespace kv::runtime

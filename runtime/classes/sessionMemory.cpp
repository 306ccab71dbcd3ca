#include "classes/sessionMemory.h"

#include "classes/interrupts.h"
#include "classes/sessionValues.h"
#include "executor/memoryLimit.h"
#include "kv/runtime/runtime.h"

namespace kv::runtime {

MemoryLedger& ledgerOfEvaluation() {
  RuntimeState& state = runtimeState();
  state.ledger->setLimit(state.memoryLimit > 0 ? state.memoryLimit : defaultMemoryLimit());
  return *state.ledger;
}

void noteEvaluation(EvaluationFacts facts) {
  const MemoryLedger& ledger = ledgerOfEvaluation();
  facts.memoryPeakBytes = ledger.max_memory();
  facts.memoryLimitBytes = ledger.limit();
  runtimeState().lastEvaluation = facts;
}

void setMemoryLimitFunction(const host::Call& call) {
  const kxArray* limit = call.in(0);
  if (kxIsEmpty(limit)) {
    setMemoryLimit(0);
  } else if (kxIsNumeric(limit)) {
    runtimeState().memoryLimit = memoryLimitOf(host::toDouble(limit));
  } else {
    setMemoryLimit(host::toText(limit));
  }
}

void setMemoryLimit(std::int64_t bytes) {
  runtimeState().memoryLimit = bytes == 0 ? 0 : memoryLimitOf(static_cast<double>(bytes));
}

void setMemoryLimit(std::string_view limit) { runtimeState().memoryLimit = memoryLimitOf(limit); }

}  // namespace kv::runtime

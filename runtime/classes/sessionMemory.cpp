#include "classes/sessionMemory.h"

#include "classes/interrupts.h"
#include "classes/sessionValues.h"
#include "executor/memoryLimit.h"
#include "executor/scratchSettings.h"
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

/// An input that may be left out, or `[]`.
static std::string textOf(const host::Call& call, int input) {
  return call.nrhs > input && !kxIsEmpty(call.in(input)) ? host::toText(call.in(input)) : "";
}

ScratchSettings scratchOfEvaluation() {
  const RuntimeState& state = runtimeState();
  ScratchSettings settings = defaultScratch();
  if (!state.scratchFolder.empty()) {
    settings.folder = state.scratchFolder;
  }
  if (state.scratchLimit > 0) {
    settings.limitBytes = state.scratchLimit;
  }
  return settings;
}

void setScratchFunction(const host::Call& call) {
  const std::string folder = textOf(call, 0);
  if (!folder.empty()) {
    requireScratchFolder(folder);
  }
  const std::string limit = textOf(call, 1);
  const std::int64_t limitBytes = limit.empty() ? 0 : memoryLimitOf(limit);
  runtimeState().scratchFolder = folder;
  runtimeState().scratchLimit = limitBytes;
}

}  // namespace kv::runtime

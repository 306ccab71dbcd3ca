#pragma once

#include "column/MemoryLedger.h"
#include "driver/Evaluation.h"
#include "kv/host/session.h"

/// The memory of the current session.
namespace kv::runtime {

/// Keeps the facts of an evaluation that ended, with those of the session's memory.
void noteEvaluation(EvaluationFacts facts);

/// kv.setMemoryLimit(limit): a number of bytes, or a text such as "512MB"; `[]` for the default.
void setMemoryLimitFunction(const host::Call& call);

/// The scratch of an evaluation that begins.
/// Errors: those of defaultScratch().
ScratchSettings scratchOfEvaluation();

/// kv.setScratch(folder, limit): `[]` for the defaults; the limit may be left out.
/// Errors: "KALVEX:spill:Failed" for what isn't a folder; those of memoryLimitOf().
void setScratchFunction(const host::Call& call);

}  // namespace kv::runtime

#pragma once

#include "engine/Stage.h"

/// What an evaluation does to stay within its memory limit.
namespace kv::runtime {

/// Frees values that only cycles of objects hold.
/// Result: true if there is more memory within the limit.
bool freeGarbage();

/// The same, unless at least half of the limit is free.
void freeGarbageIfHalfIsUsed();

/// How many of `threads` may run units of a stage: one if its units keep all rows of their
/// partitions, and these would take a good part of the memory.
int threadsFor(const Stage& stage, int threads);

}  // namespace kv::runtime

#pragma once

#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "plan/OpSpec.h"

/// What the operation classes decide about an operation, one function each: its operator, how it
/// runs on materialised values, and its label. The number of its inputs and outputs is known
/// already.
namespace kv::runtime {

void describeRead(const kxArray* operation, OpSpec& spec);
void describeFilter(const kxArray* operation, OpSpec& spec);
void describeVariable(const kxArray* operation, OpSpec& spec);
void describeLogicalElementwise(const kxArray* operation, OpSpec& spec);
void describeAssertion(const kxArray* operation, OpSpec& spec);
void describeChunkwise(const kxArray* operation, OpSpec& spec);
void describeFixedChunkwise(const kxArray* operation, OpSpec& spec);
void describePartitionwise(const kxArray* operation, OpSpec& spec);
void describeGeneralPartitionwise(const kxArray* operation, OpSpec& spec);
void describeAggregate(const kxArray* operation, OpSpec& spec);
void describeByKey(const kxArray* operation, OpSpec& spec);
void describeRepartition(const kxArray* operation, OpSpec& spec);
void describeClient(const kxArray* operation, OpSpec& spec);
void describeChoice(const kxArray* operation, OpSpec& spec);
void describeResize(const kxArray* operation, OpSpec& spec);
void describeCache(const kxArray* operation, OpSpec& spec);
void describeHead(const kxArray* operation, OpSpec& spec);
void describeForeach(const kxArray* operation, OpSpec& spec);
void describeWrite(const kxArray* operation, OpSpec& spec);
void describeInvalid(const kxArray* operation, OpSpec& spec);
void describeElementwise(const kxArray* operation, OpSpec& spec);
void describeSlicewise(const kxArray* operation, OpSpec& spec);

// What constructors refuse or add, beyond the arity.
void checkVariable(const host::Call& call);
void checkFixedChunks(const host::Call& call);
void checkResize(const host::Call& call);
void makeCacheKey(const host::Call& call);
void checkHead(const host::Call& call);
void checkWrite(const host::Call& call);

/// True if the options of an operation ask for values that are tagged as broadcast.
bool passesTagged(const kxArray* operation);

}  // namespace kv::runtime

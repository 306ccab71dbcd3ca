#pragma once

#include "kx/array.h"

#define KV_BIGDATA_API __attribute__((visibility("default")))

/// What libkvbigdata exports: two entry points, and the builtins that a host registers under their
/// plain names. Everything else is reached through the classes that the entry point registers.
///
/// Threads: that of the current session.

/// Adds the library's classes to the packages of the current session, or once per process if the
/// host keeps classes per process.
/// Errors: those of the host; the next call tries again.
KV_BIGDATA_API void KVInitialize_libkvbigdata();

/// Does nothing: classes live until the session ends.
KV_BIGDATA_API void KVTerminate_libkvbigdata();

// Counts are checked by each builtin: "KALVEX:TooManyOutputs", "KALVEX:TooManyInputs" and
// "KALVEX:NotEnoughInputs", in this order.

namespace bigdata {

/// () -> logical: whether a snapshot of the user's stack is in force.
KV_BIGDATA_API void hasInternalStackFramesBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                                  const kxArray** prhs);
/// () -> the user's stack, an n-by-1 structure with "file", "name" and "line", innermost first.
KV_BIGDATA_API void userStackBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                     const kxArray** prhs);
/// (metadata...) -> metadata with the aligned strategy.
/// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing".
KV_BIGDATA_API void alignPartitionMetadataBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                                  const kxArray** prhs);
/// (metadata, metadata...) -> metadata of the arrays concatenated vertically.
KV_BIGDATA_API void vertcatPartitionMetadataBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                                    const kxArray** prhs);

/// (value...) -> 1-by-n logical: whether `gather` has nothing to do for each value.
KV_BIGDATA_API void canSkipGather(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                  const kxArray* const* prhs);

}  // namespace bigdata

namespace bigdata::executor {

/// ([] | count | strategy | datastore) -> strategy.
KV_BIGDATA_API void createPartitionStrategyBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                                   const kxArray** prhs);
/// (strategy...) -> the one strategy that all share; broadcast strategies are compatible with any.
/// Errors: "KALVEX:bigdata:array:IncompatibleTallIndexing".
KV_BIGDATA_API void alignPartitionStrategyBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                                  const kxArray** prhs);

}  // namespace bigdata::executor

namespace bigdata::lazyeval {

/// (constant, executor?) -> lazy array.
KV_BIGDATA_API void createFromConstantBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                              const kxArray** prhs);
/// (datastore) -> lazy array.
KV_BIGDATA_API void createFromDatastoreBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                               const kxArray** prhs);
/// (future, metadata or partitioning, executor?) -> lazy array.
KV_BIGDATA_API void createFromFutureBuiltin(int nlhs, matrix::ArrayPtr* plhs, int nrhs,
                                            const kxArray** prhs);
/// (operation, metadata?, inputs...) -> lazy arrays, one per requested output.
KV_BIGDATA_API void applyOperationBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

}  // namespace bigdata::lazyeval

namespace kv::bigdata {

/// All builtins with the names under which they are registered, by the form of their outputs.
struct OwningBuiltinEntry {
  const char* name;
  void (*function)(int nlhs, matrix::ArrayPtr* plhs, int nrhs, const kxArray** prhs);
};
struct RawBuiltinEntry {
  const char* name;
  void (*function)(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);
};

/// The same in the form in which builtins are registered.
inline void canSkipGather(int nlhs, matrix::ArrayPtr* plhs, int nrhs, const kxArray** prhs) {
  ::bigdata::canSkipGather(nlhs, plhs, nrhs, prhs);
}

inline constexpr OwningBuiltinEntry kOwningBuiltins[] = {
    {"hasInternalStackFramesBuiltin", ::bigdata::hasInternalStackFramesBuiltin},
    {"userStackBuiltin", ::bigdata::userStackBuiltin},
    {"alignPartitionMetadataBuiltin", ::bigdata::alignPartitionMetadataBuiltin},
    {"vertcatPartitionMetadataBuiltin", ::bigdata::vertcatPartitionMetadataBuiltin},
    {"canSkipGather", canSkipGather},
    {"createPartitionStrategyBuiltin", ::bigdata::executor::createPartitionStrategyBuiltin},
    {"alignPartitionStrategyBuiltin", ::bigdata::executor::alignPartitionStrategyBuiltin},
    {"createFromConstantBuiltin", ::bigdata::lazyeval::createFromConstantBuiltin},
    {"createFromDatastoreBuiltin", ::bigdata::lazyeval::createFromDatastoreBuiltin},
    {"createFromFutureBuiltin", ::bigdata::lazyeval::createFromFutureBuiltin},
};
inline constexpr RawBuiltinEntry kRawBuiltins[] = {
    {"applyOperationBuiltin", ::bigdata::lazyeval::applyOperationBuiltin},
};

}  // namespace kv::bigdata

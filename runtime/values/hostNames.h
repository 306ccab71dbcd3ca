#pragma once

/// Full names of the host classes and functions that the runtime and the core reach by name.
namespace kv::runtime {

inline constexpr char kPartitionedArray[] = "kalvex.bigdata.internal.PartitionedArray";
inline constexpr char kLocalArray[] = "kalvex.bigdata.internal.LocalArray";
inline constexpr char kBroadcastArray[] = "kalvex.bigdata.internal.BroadcastArray";
inline constexpr char kFunctionHandle[] = "kalvex.bigdata.internal.FunctionHandle";
inline constexpr char kInternalStackFrame[] = "kalvex.bigdata.internal.InternalStackFrame";
inline constexpr char kPartitionMetadata[] = "kalvex.bigdata.internal.PartitionMetadata";
inline constexpr char kBroadcast[] = "kalvex.bigdata.internal.broadcast";
inline constexpr char kRandStreamFactory[] = "kalvex.bigdata.internal.RandStreamFactory";
inline constexpr char kThrow[] = "kalvex.bigdata.internal.throw";
inline constexpr char kBigDataException[] = "kalvex.bigdata.BigDataException";
inline constexpr char kTallProfiler[] = "kalvex.bigdata.internal.debug.TallProfiler";

inline constexpr char kLazyArray[] = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";
inline constexpr char kLazyTaskGraph[] = "kalvex.bigdata.internal.lazyeval.LazyTaskGraph";
inline constexpr char kClosure[] = "kalvex.bigdata.internal.lazyeval.Closure";
inline constexpr char kClosurePromise[] = "kalvex.bigdata.internal.lazyeval.ClosurePromise";
inline constexpr char kClosureFuture[] = "kalvex.bigdata.internal.lazyeval.ClosureFuture";
inline constexpr char kOperation[] = "kalvex.bigdata.internal.lazyeval.Operation";
inline constexpr char kElementwiseOperation[] =
    "kalvex.bigdata.internal.lazyeval.ElementwiseOperation";
inline constexpr char kSlicewiseOperation[] = "kalvex.bigdata.internal.lazyeval.SlicewiseOperation";
inline constexpr char kInvalidOperation[] =
    "kalvex.bigdata.internal.lazyeval.InvalidVersionOperation";
inline constexpr char kReadOperation[] = "kalvex.bigdata.internal.lazyeval.ReadOperation";
inline constexpr char kCacheOperation[] = "kalvex.bigdata.internal.lazyeval.CacheOperation";
inline constexpr char kVariableOperation[] =
    "kalvex.bigdata.internal.lazyeval.SubsrefTabularVarOperation";
inline constexpr char kHeadOperation[] = "kalvex.bigdata.internal.lazyeval.HeadOperation";
inline constexpr char kForeachOperation[] =
    "kalvex.bigdata.internal.lazyeval.ClientForeachOperation";
inline constexpr char kWriteOperation[] = "kalvex.bigdata.internal.lazyeval.WriteOperation";
inline constexpr char kCacheEntryKey[] = "kalvex.bigdata.internal.lazyeval.CacheEntryKey";
inline constexpr char kGlobalStateFactory[] =
    "kalvex.bigdata.internal.lazyeval.GlobalStateProcessorFactory";

inline constexpr char kPartitionStrategy[] = "kalvex.bigdata.internal.executor.PartitionStrategy";
inline constexpr char kDatastoreStrategy[] =
    "kalvex.bigdata.internal.executor.DatastorePartitionStrategy";
inline constexpr char kBroadcastStrategy[] =
    "kalvex.bigdata.internal.executor.BroadcastPartitionStrategy";
inline constexpr char kConcatenatedStrategy[] =
    "kalvex.bigdata.internal.executor.ConcatenatedPartitionStrategy";
inline constexpr char kFixedStrategy[] =
    "kalvex.bigdata.internal.executor.FixedNumPartitionStrategy";
inline constexpr char kSimplePartition[] = "kalvex.bigdata.internal.executor.SimplePartition";
inline constexpr char kSourcePartition[] = "kalvex.bigdata.internal.executor.SourcePartition";
inline constexpr char kExecutor[] = "kalvex.bigdata.internal.executor.PartitionedArrayExecutor";
inline constexpr char kSerialExecutor[] = "kalvex.bigdata.internal.executor.SerialExecutor";
inline constexpr char kThreadsExecutor[] = "kalvex.bigdata.internal.executor.ThreadsExecutor";
inline constexpr char kInvalidExecutor[] =
    "kalvex.bigdata.internal.executor.InvalidVersionExecutor";
inline constexpr char kTaskGraph[] = "kalvex.bigdata.internal.executor.TaskGraph";
inline constexpr char kExecutionTask[] = "kalvex.bigdata.internal.executor.ExecutionTask";
inline constexpr char kProcessorFactory[] = "kalvex.bigdata.internal.executor.DataProcessorFactory";
inline constexpr char kSpecFactory[] = "kalvex.bigdata.internal.executor.SpecProcessorFactory";
inline constexpr char kProcessorBuilder[] =
    "kalvex.bigdata.internal.executor.CompositeDataProcessorBuilder";
inline constexpr char kCompositeGraph[] = "kalvex.bigdata.internal.executor.CompositeGraph";

inline constexpr char kDateTime[] = "datetime";
inline constexpr char kDuration[] = "duration";

inline constexpr char kDatastore[] = "kalvex.io.Datastore";
inline constexpr char kCsvDatastore[] = "kalvex.io.CsvDatastore";
inline constexpr char kParquetDatastore[] = "kalvex.io.ParquetDatastore";
inline constexpr char kIpcDatastore[] = "kalvex.io.IpcDatastore";
inline constexpr char kArrayDatastore[] = "kalvex.io.ArrayDatastore";

}  // namespace kv::runtime

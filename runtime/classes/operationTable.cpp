#include "classes/operationTable.h"

#include <cstddef>
#include <limits>

#include "classes/describeOperations.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
constexpr OperationArity kSource{0, 0, OutputRule::One};
constexpr OperationArity kOneToOne{1, 1, OutputRule::One};
constexpr OperationArity kChoice{3, 3, OutputRule::One};
constexpr OperationArity kSelection{2, kAny, OutputRule::PerKept};
constexpr OperationArity kEachArray{0, kAny, OutputRule::PerInput};
constexpr OperationArity kFunction{};
constexpr OperationArity kHandedOver{1, kAny, OutputRule::One};
constexpr OperationArity kRowFunction{1, kAny, OutputRule::Any};

}  // namespace

std::span<const OperationClass> operationClasses() {
  // clang-format off
  static const std::vector<OperationClass> classes{
      {kReadOperation, {"Datastore", "NumOutputs", "PartitionStrategy"}, kSource, describeRead,
       nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.FilterOperation",
       {"NumKept"}, kSelection, describeFilter, nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.LogicalRowSubsrefOperation",
       {"NumKept"}, kSelection, describeFilter},
      {kVariableOperation,
       {"NumInputs", "NumOutputs", "Content", "Rows", "Variables"}, kOneToOne, describeVariable,
       checkVariable, true},
      {"kalvex.bigdata.internal.lazyeval.LogicalElementwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction,
       describeLogicalElementwise, nullptr, true},
      {"kalvex.bigdata.internal.lazyeval.AggregateOperation",
       {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
       kRowFunction, describeAggregate},
      {"kalvex.bigdata.internal.lazyeval.NonPartitionedOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction, describeClient},
      {"kalvex.bigdata.internal.lazyeval.TernaryOperation",
       {}, kChoice, describeChoice, nullptr, true},
      {kCacheOperation,
       {}, kOneToOne, describeCache, makeCacheKey, false, "CacheEntryKey"},
      {"kalvex.bigdata.internal.lazyeval.AggregateByKeyOperation",
       {"Options", "FunctionHandle", "ReduceHandle", "NumInputs", "NumOutputs"},
       kRowFunction, describeByKey},
      {"kalvex.bigdata.internal.lazyeval.ChunkwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction, describeChunkwise},
      {"kalvex.bigdata.internal.lazyeval.FixedChunkwiseOperation",
       {"Options", "NumSlices", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction,
       describeFixedChunkwise, checkFixedChunks},
      {"kalvex.bigdata.internal.lazyeval.PartitionwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs", "DependsOnOnlyHead"},
       kRowFunction, describePartitionwise},
      {"kalvex.bigdata.internal.lazyeval.GeneralizedPartitionwiseOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kRowFunction,
       describeGeneralPartitionwise},
      {"kalvex.bigdata.internal.lazyeval.RepartitionOperation",
       {"OutputPartitionStrategy", "NumKept"}, kSelection, describeRepartition},
      {"kalvex.bigdata.internal.lazyeval.ChunkResizeOperation",
       {"NumArrays", "Parameters"}, kEachArray, describeResize, checkResize},
      {"kalvex.bigdata.internal.lazyeval.SmallTallComparisonOperation",
       {"Options", "FunctionHandle", "Operand", "Flag", "NumInputs", "NumOutputs"},
       kFunction, describeElementwise},
      {"kalvex.bigdata.internal.lazyeval.AdaptorAssertionOperation",
       {"Options", "FunctionHandle", "NumInputs", "NumOutputs"}, kFunction, describeAssertion},
      {kHeadOperation,
       {"NumArrays", "NumRows"}, kEachArray, describeHead, checkHead, true},
      {kForeachOperation,
       {"FunctionHandle", "IsOrdered", "NumInputs"}, kHandedOver, describeForeach},
      {kWriteOperation,
       {"Path", "Format", "IsOverwriting", "Names", "PartitionBy", "NumInputs"}, kHandedOver, describeWrite,
       checkWrite},
      {kInvalidOperation,
       {"SavedVersion"}, kSource, describeInvalid},
  };
  // clang-format on
  return classes;
}

}  // namespace kv::runtime

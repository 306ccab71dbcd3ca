#include "CoreSession.h"

namespace bigdata {
namespace {

/// A class as registered: its superclass, if it has one, and its members in their order, as
///
///     (2) 0                     constructor: number of inputs, or "...", and access
///     Id 0/2 2560               property: get access, set access, flags
///     copy(1>1) 0               method: inputs, outputs and access
///     feval declared static 2   method without counts: its form and access
struct ClassTable {
  std::string name, superclass, members;
};

std::string lineOf(const kv::host::MemberDescription& member) {
  if (member.kind == "property") {
    return member.name + " " + std::to_string(member.getAccess) + "/" +
           std::to_string(member.setAccess) + " " + std::to_string(member.flags);
  }
  const std::string inputs = member.inputs < 0 ? "..." : std::to_string(member.inputs);
  const std::string access = std::to_string(member.access);
  if (member.kind == "constructor") return "(" + inputs + ") " + access;
  const std::string form = member.form == "fixed"
                               ? "(" + inputs + ">" + std::to_string(member.outputs) + ") "
                               : " " + member.form + " ";
  return member.name + form + (member.isStatic ? "static " : "") + access;
}

/// What the three strategies that are native have in common.
const std::string kStrategyMembers =
    "MaxNumPartitions 0/3 10784, IsDatastorePartitioning 0/3 10784, IsBroadcast 0/3 10784, "
    "MaxNumReadFailures 0/3 10784, createPartition(3>1) 0, fixNumPartitions(2>1) 0, "
    "resolve(4>1) 0, isKnownSinglePartition(1>1) 0, typedIsCompatible(2>1) 0, "
    "typedThrowIfIncompatible(2>0) 0, typedAlign(2>1) 0";

/// In the order in which the library enters them.
const ClassTable kTables[] = {
    {"FunctionHandle", "",
     "(0) 2, (...) 0, Handle 0/2 2560, ErrorStack 0/2 2560, MaxNumSlices 0/2 2560, "
     "feval variadic 0, throwAsFunction(2>0) 0, copy(1>1) 0, copyWithNewHandle(2>1) 0"},
    {"InternalStackFrame", "", "(0) 0, (1) 0"},
    {"PartitionMetadata", "", "(0) 2, (1) 0, Strategy 0/3 2560"},
    {"PartitionedArrayOptions", "",
     "(...) 0, RequiresRandState 0/0 2560, RequiresGlobalState 0/5 10784, "
     "RandStreamFactory 0/0 2560, PassTaggedInputs 0/0 2560"},
    {"executor.ArbitraryPartitionStrategy", "executor.PartitionStrategy",
     "(0) 0, MinNumPartitions 0/3 10784, " + kStrategyMembers},
    {"executor.BroadcastPartitionStrategy", "executor.PartitionStrategy",
     "(0) 0, MinNumPartitions 0/3 10784, " + kStrategyMembers},
    {"executor.CompositeDataProcessorBuilder", "executor.DataProcessorFactory",
     "(0) 2, (2) 0, (3) 0, (1) 0, Id 0/2 2560, InputBuilders 0/2 2560, "
     "DataProcessorFactory 0/2 2560, InputId 0/2 2560, InputOrdinal 0/2 2560, "
     "OutputPartitionStrategy 0/2 2560, Graph 2/2 2560, AllInputIds 0/5 10784, "
     "IsGlobalInput 0/5 10784, findAllBuilders(1>1) 2, findAllDependencies(1>3) 2, "
     "feval declared 0, getAllInputIds declared 2, getAsGraph declared 2, buildGraph declared 2, "
     "buildUnderlyingProcessor declared 2"},
    {"executor.FixedNumPartitionStrategy", "executor.PartitionStrategy",
     "(0) 2, (1) 0, MinNumPartitions 0/3 2560, " + kStrategyMembers},
    {"executor.PartitionStrategy", "",
     "(0) 1, MinNumPartitions 0/3 2049, MaxNumPartitions 0/3 2049, "
     "IsDatastorePartitioning 0/3 2049, IsBroadcast 0/3 2049, MaxNumReadFailures 0/3 2049, "
     "getMinNumPartitions(1>1) 0, getMaxNumPartitions(1>1) 0, createPartition abstract 0, "
     "fixNumPartitions abstract 0, resolve abstract 0, numpartitions(1>1) 0, "
     "numpartitions(2>1) 0, isKnownSinglePartition abstract 0, allowsSinglePartition(1>1) 0, "
     "isResolved(1>1) 0, isCompatible(2>1) 0, throwIfIncompatible(2>0) 0, "
     "typedIsCompatible abstract 1, typedThrowIfIncompatible abstract 1, typedAlign abstract 1"},
    {"lazyeval.Closure", "",
     "(0) 2, (2) 0, (3) 0, Id 0/2 2560, IdStr 0/5 10784, Operation 0/2 2560, "
     "InputFutures 0/2 2560, OutputPromises 0/2 2560, getDirectDependencies(1>1) 0"},
    {"lazyeval.ClosureFuture", "",
     "(0) 2, Promise 0/2 2560, IdStr 0/5 10784, IsDone 0/5 10784, Value 0/5 10784"},
    {"lazyeval.ClosurePromise", "",
     "(0) 2, (1) 0, Id 0/2 2560, IdStr 0/5 10784, Closure 0/2 2560, ArgoutIndex 0/2 2560, "
     "Future 0/2 2560, CachedValue 0/2 2560, IsDone 0/2 2560, IsPartitionIndependent 0/2 2560, "
     "Metadata 0/2 2560, hGetMetadata(1>1) 0, hSetMetadata(2>0) 0, setValue(2>0) 0, "
     "setPartitionIndependent(2>0) 0, swap(2>0) 0"},
    {"lazyeval.ElementwiseOperation", "lazyeval.SlicewiseFusableOperation",
     "(0) 2, (4) 0, FunctionHandle 0/3 2560, createExecutionTasks declared 0, "
     "directEvaluateImpl declared 1, getCheckedFunctionHandle declared 0, "
     "isSlicewiseFusable(1>1) 0"},
    {"lazyeval.LazyPartitionedArray", "PartitionedArray",
     "(0) 2, ValueFuture 0/2 2560, PartitionMetadata 0/2 2560, Executor 0/2 2592, "
     "IsValid 0/2 10784, PreviewData 0/5 2592, HasPreviewData 0/5 2592, "
     "IsPreviewTruncated 0/5 2592, hGetMetadata(1>1) 0, hSetMetadata(2>0) 0, getExecutor(1>1) 0, "
     "getPartitionMetadata(1>1) 0, numpartitions(1>1) 0, hasCachedPreviewData(1>1) 0, "
     "getCachedPreviewData(1>2) 0, setCachedPreviewData(3>0) 0, gather declared 0, "
     "clientforeach declared 0, vertcatpartitions declared 0, elementfun variadic 0, "
     "smallTallComparison variadic 0, logicalElementfun variadic 0, "
     "assertAdaptorCorrect variadic 0, slicefun variadic 0, subsrefTabularVar variadic 0, "
     "filterslices variadic 0, logicalRowSubsref variadic 0, reducefun variadic 0, "
     "aggregatefun variadic 0, reducebykeyfun variadic 0, aggregatebykeyfun variadic 0, "
     "joinbykey variadic 0, ternaryfun variadic 0, chunkfun variadic 0, "
     "fixedchunkfun variadic 0, partitionfun variadic 0, generalpartitionfun variadic 0, "
     "partitionheadfun variadic 0, alignpartitions variadic 0, repartition variadic 0, "
     "resizechunks variadic 0, clientfun variadic 0, strictslicefun variadic 0, "
     "isPartitionIndependent variadic 0, markPartitionIndependent variadic 0, "
     "markforreuse variadic 0, updateforreuse(2>0) 0, "
     "createInvalidVersionArray declared static 2, getEvaluationObjects declared 2, "
     "createGatherOutputHandler declared static 2, cleanupOldCacheEntries declared static 2"},
    {"lazyeval.LazyTaskGraph", "executor.TaskGraph",
     "(1) 0, (0) 2, Tasks 0/2 2560, OutputTasks 0/2 2560, ClosureToTaskMap 0/2 2560, "
     "TaskToClosureMap 0/2 2560, createExecutionTasks declared static 2"},
    {"lazyeval.Operation", "",
     "(...) 1, NumInputs 0/2 2560, NumOutputs 0/2 2560, SupportsPreview 0/2 2560, "
     "DependsOnOnlyHead 0/2 2560, SupportsDirectEvaluation 0/1 2560, Options 1/1 2560, "
     "Stack 0/2 2560, directEvaluate variadic 0, addGlobalState(2>1) 0, "
     "createExecutionTasks abstract 0, "
     "isInputBroadcast declared 1, directEvaluateImpl declared 1"},
    {"lazyeval.SlicewiseFusableOperation", "lazyeval.Operation",
     "(0) 2, (...) 0, isSlicewiseFusableDefault(1>1) 0, isSlicewiseFusable abstract 0, "
     "getCheckedFunctionHandle abstract 0, createExecutionTasks abstract 0"},
    {"lazyeval.SlicewiseOperation", "lazyeval.SlicewiseFusableOperation",
     "(0) 2, (5) 0, (4) 0, FunctionHandle 0/3 2560, AllowTallDimExpansion 0/3 2560, "
     "createExecutionTasks declared 0, getCheckedFunctionHandle declared 0, "
     "isSlicewiseFusable(1>1) 0"},
    {"optimizer.ClosureGraph", "",
     "(0) 2, (...) 0, Graph 0/2 2560, Futures 0/2 2560, recalculate(1>0) 0"}};

TEST_F(CoreSession, EveryClassReadsAsItsTable) {
  const std::string root = "kalvex.bigdata.internal.";
  std::vector<std::string> names;
  for (const ClassTable& table : kTables) {
    SCOPED_TRACE(table.name);
    names.push_back(root + table.name);
    const auto description = session.describe(names.back());
    const auto expected = table.superclass.empty()
                              ? std::vector<std::string>()
                              : std::vector<std::string>{root + table.superclass};
    EXPECT_EQ(description.superclasses, expected);
    std::string members;
    for (const auto& member : description.members) {
      members += (members.empty() ? "" : ", ") + lineOf(member);
    }
    EXPECT_EQ(members, table.members);
    EXPECT_EQ(description.isSealed, table.name == "lazyeval.SlicewiseOperation");
    EXPECT_TRUE(description.isNative);
  }
  EXPECT_EQ(session.classes(), names) << "a class without a table, or out of order";
}

}  // namespace
}  // namespace bigdata

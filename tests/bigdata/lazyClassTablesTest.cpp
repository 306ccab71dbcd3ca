#include "LazySession.h"

namespace bigdata::lazyeval {

namespace {

/// A class with its superclasses and its members in the order of registration.
struct ClassTable {
  std::string name;
  std::vector<std::string> superclasses;
  std::vector<std::string> members;
};

std::string lineOf(const kv::host::MemberDescription& member) {
  if (member.kind == "property") {
    return member.name + " " + std::to_string(member.getAccess) + "/" +
           std::to_string(member.setAccess) + " " + std::to_string(member.flags);
  }
  const std::string counts =
      member.inputs < 0
          ? "..."
          : std::to_string(member.inputs) +
                (member.kind == "constructor" ? "" : ">" + std::to_string(member.outputs));
  if (member.kind == "constructor") return "(" + counts + ") " + std::to_string(member.access);
  const bool hasCounts = member.form == "fixed";
  return member.name + (hasCounts ? "(" + counts + ") " : " " + member.form + " ") +
         (member.isStatic ? "static " : "") + std::to_string(member.access);
}

const ClassTable kTables[] = {
    {"Closure",
     {},
     {"(0) 2", "(2) 0", "(3) 0", "Id 0/2 2560", "IdStr 0/5 10784", "Operation 0/2 2560",
      "InputFutures 0/2 2560", "OutputPromises 0/2 2560", "getDirectDependencies(1>1) 0"}},
    {"ClosureFuture",
     {},
     {"(0) 2", "Promise 0/2 2560", "IdStr 0/5 10784", "IsDone 0/5 10784", "Value 0/5 10784"}},
    {"ClosurePromise",
     {},
     {"(0) 2", "(1) 0", "Id 0/2 2560", "IdStr 0/5 10784", "Closure 0/2 2560",
      "ArgoutIndex 0/2 2560", "Future 0/2 2560", "CachedValue 0/2 2560", "IsDone 0/2 2560",
      "IsPartitionIndependent 0/2 2560", "Metadata 0/2 2560", "hGetMetadata(1>1) 0",
      "hSetMetadata(2>0) 0", "setValue(2>0) 0", "setPartitionIndependent(2>0) 0", "swap(2>0) 0"}},
    {"ElementwiseOperation",
     {"lazyeval.SlicewiseFusableOperation"},
     {"(0) 2", "(4) 0", "FunctionHandle 0/3 2560", "createExecutionTasks declared 0",
      "directEvaluateImpl declared 1", "getCheckedFunctionHandle declared 0",
      "isSlicewiseFusable(1>1) 0"}},
    {"LazyPartitionedArray",
     {"PartitionedArray"},
     {"(0) 2",
      "ValueFuture 0/2 2560",
      "PartitionMetadata 0/2 2560",
      "Executor 0/2 2592",
      "IsValid 0/2 10784",
      "PreviewData 0/5 2592",
      "HasPreviewData 0/5 2592",
      "IsPreviewTruncated 0/5 2592",
      "hGetMetadata(1>1) 0",
      "hSetMetadata(2>0) 0",
      "getExecutor(1>1) 0",
      "getPartitionMetadata(1>1) 0",
      "numpartitions(1>1) 0",
      "hasCachedPreviewData(1>1) 0",
      "getCachedPreviewData(1>2) 0",
      "setCachedPreviewData(3>0) 0",
      "gather declared 0",
      "clientforeach declared 0",
      "vertcatpartitions declared 0",
      "elementfun variadic 0",
      "smallTallComparison variadic 0",
      "logicalElementfun variadic 0",
      "assertAdaptorCorrect variadic 0",
      "slicefun variadic 0",
      "subsrefTabularVar variadic 0",
      "filterslices variadic 0",
      "logicalRowSubsref variadic 0",
      "reducefun variadic 0",
      "aggregatefun variadic 0",
      "reducebykeyfun variadic 0",
      "aggregatebykeyfun variadic 0",
      "joinbykey variadic 0",
      "ternaryfun variadic 0",
      "chunkfun variadic 0",
      "fixedchunkfun variadic 0",
      "partitionfun variadic 0",
      "generalpartitionfun variadic 0",
      "partitionheadfun variadic 0",
      "alignpartitions variadic 0",
      "repartition variadic 0",
      "resizechunks variadic 0",
      "clientfun variadic 0",
      "strictslicefun variadic 0",
      "isPartitionIndependent variadic 0",
      "markPartitionIndependent variadic 0",
      "markforreuse variadic 0",
      "updateforreuse(2>0) 0",
      "createInvalidVersionArray declared static 2",
      "getEvaluationObjects declared 2",
      "createGatherOutputHandler declared static 2",
      "cleanupOldCacheEntries declared static 2"}},
    {"LazyTaskGraph",
     {"executor.TaskGraph"},
     {"(1) 0", "(0) 2", "Tasks 0/2 2560", "OutputTasks 0/2 2560", "ClosureToTaskMap 0/2 2560",
      "TaskToClosureMap 0/2 2560", "createExecutionTasks declared static 2"}},
    {"Operation",
     {},
     {"(...) 1", "NumInputs 0/2 2560", "NumOutputs 0/2 2560", "SupportsPreview 0/2 2560",
      "DependsOnOnlyHead 0/2 2560", "SupportsDirectEvaluation 0/1 2560", "Options 1/1 2560",
      "Stack 0/2 2560", "directEvaluate variadic 0", "addGlobalState(2>1) 0",
      "createExecutionTasks abstract 0", "isInputBroadcast declared 1",
      "directEvaluateImpl declared 1"}},
    {"SlicewiseFusableOperation",
     {"lazyeval.Operation"},
     {"(0) 2", "(...) 0", "isSlicewiseFusableDefault(1>1) 0", "isSlicewiseFusable abstract 0",
      "getCheckedFunctionHandle abstract 0", "createExecutionTasks abstract 0"}},
    {"SlicewiseOperation",
     {"lazyeval.SlicewiseFusableOperation"},
     {"(0) 2", "(5) 0", "(4) 0", "FunctionHandle 0/3 2560", "AllowTallDimExpansion 0/3 2560",
      "createExecutionTasks declared 0", "getCheckedFunctionHandle declared 0",
      "isSlicewiseFusable(1>1) 0"}}};

TEST_F(LazySession, ClassesOfTheLazyGraphReadAsTheirTables) {
  for (const ClassTable& table : kTables) {
    SCOPED_TRACE(table.name);
    const auto description = session.describe("kalvex.bigdata.internal.lazyeval." + table.name);
    std::vector<std::string> superclasses;
    for (const std::string& name : table.superclasses) {
      superclasses.push_back("kalvex.bigdata.internal." + name);
    }
    std::vector<std::string> members;
    for (const auto& member : description.members) members.push_back(lineOf(member));
    EXPECT_EQ(description.superclasses, superclasses);
    EXPECT_EQ(members, table.members);
    EXPECT_EQ(description.isSealed, table.name == "SlicewiseOperation");
  }
}

}  // namespace

}  // namespace bigdata::lazyeval

#include "classes/messages.h"

#include "kv/host/errors.h"

namespace kv::runtime {
namespace {

/// Ids of the runtime. Those of data and of functions bring their sentences with them.
constexpr host::CatalogueEntry kMessages[] = {
    {"KALVEX:array:NotAColumn",
     "A column of numbers, logicals or texts is expected, got a {0} {1}."},
    {"KALVEX:array:NotRunnable", "{0} can be recorded and planned, but not run."},
    {"KALVEX:array:OperationArity", "{0} takes {1}, got {2}."},
    {"KALVEX:array:Condition",
     "A choice between two arrays needs a condition that is one logical value, got {0}."},
    {"KALVEX:array:NotLogical", "{0} must return logical values, but returned {1}."},
    {"KALVEX:array:DifferentSources",
     "Rows of {0} and of {1} can't be combined: they are different sources."},
    {"KALVEX:array:NeedsRows", "{0} needs an array with rows, got a value in memory."},
    {"KALVEX:array:NeedsColumn", "{0} needs one column, got a table."},
    {"KALVEX:array:NeedsTable", "{0} needs a table, got an array."},
    {"KALVEX:array:UnknownColumn", "There is no column {0}. There are: {1}."},
    {"KALVEX:array:RowsDiffer",
     "The rows of {0} and of {1} are not the same. Both must be rows of one source, filtered in "
     "the "
     "same way{2}."},
    {"KALVEX:array:WrongRowCount",
     "{0} was given {1} rows and must return as many, but returned {2}."},
    {"KALVEX:array:MaxNumSlices", "{0} must take at least 1 row at a time, not {1}."},
    {"KALVEX:array:MissingOutput", "{0} returned nothing for output {1} of {2}."},
    {"KALVEX:array:ChunkTypes",
     "{0} must return one type for all rows, but returned {1} for {2} and {3} for {4}."},
    {"KALVEX:array:FunctionFailed", "{0} failed: {1}"},
    {"KALVEX:array:Unexpected",
     "{0} failed in a way that kvbigdata doesn't expect. This is a fault of kvbigdata, not of your "
     "data; please report it."},
    {"KALVEX:array:NotInGraph",
     "A {0} was given that isn't part of the task graph that is to be run."},
    {"KALVEX:array:RowSubscript",
     "Only all rows of a column can be taken, by the subscript ':', got a {0}."},
    {"KALVEX:array:OneVariable",
     "The content of exactly one variable can be taken, got {0} names."},
    {"KALVEX:datastore:NotSupported",
     "The executor reads objects of class kalvex.io.Datastore, got a {0}."},
    {"KALVEX:datastore:PartitionCount", "{0} of a datastore is {1}, but it has {2} partitions."},
    {"KALVEX:datastore:BadDescription", "A saved description of CSV files is broken: {0}."},
    {"KALVEX:bigdata:array:ConcatenatedPartitions",
     "{0} of joined arrays is {1}, but they have {2} partitions."},
    {"KALVEX:digraph:UnknownNode", "An edge leads to {0}, which is no node of the graph."},
    {"KALVEX:Containers:CountMismatch", "A map needs a value for each key: {0} keys, {1} values."},
    {"KALVEX:Containers:NoKey", "There is no key {0} in the map."},
    {"KALVEX:table:UnequalHeights",
     "Columns of a table have the same number of rows: the first has {0}, another {1}."},
    {"KALVEX:table:CountMismatch", "A table needs a name for each column: {0} names, {1} columns."},
};

}  // namespace

void enterMessages() { host::addToCatalogue(kMessages); }

}  // namespace kv::runtime

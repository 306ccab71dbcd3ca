#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of recorded operations, their plans and runs, and of the runtime's classes.
inline constexpr ErrorRow kRuntimeRows[] = {
    // Plans.
    {"KALVEX:array:NotRunnable", "operation", "{0} can be recorded and planned, but not run."},
    {"KALVEX:array:NotInGraph", "what",
     "Got a {0} that isn't part of the task graph that is to be run.", BaseType::Value},
    {"KALVEX:array:OperationArity", "operation, expected, actual", "{0} takes {1}, got {2}.",
     BaseType::Type},
    {"KALVEX:array:RowSubscript", "class",
     "Only all rows of a column can be taken, with the subscript ':'; got a {0}.", BaseType::Index},
    {"KALVEX:array:OneVariable", "names",
     "The content of exactly one variable can be taken, got {0} names.", BaseType::Value},
    {"KALVEX:array:MaxNumSlices", "operation, rows",
     "{0} must take at least 1 row at a time, not {1}.", BaseType::Value},
    {"KALVEX:array:HeadRows", "rows",
     "The number of first rows must be a whole number, at least 0, not {0}.", BaseType::Value},
    {"KALVEX:array:ChunkRows", "rows",
     "A chunk must have a whole number of rows, at least 1, not {0}.", BaseType::Value},
    {"KALVEX:array:ResizeParameter", "parameter",
     "resizechunks takes the number of rows of a chunk and an upper bound for it, but not {0}.",
     BaseType::Value},
    {"KALVEX:array:DifferentSources", "source, other source",
     "Rows of {0} and of {1} can't be combined: they are different sources.", BaseType::Value},

    {"KALVEX:optimizer:UnknownRule", "switch, switches",
     "KV_OPTIMIZER switches off rules of the optimizer, separated by commas; '{0:short}' is none "
     "of "
     "them. The switches are: {1}.",
     BaseType::Value},

    // Runs of steps.
    {"KALVEX:array:NotAColumn", "shape, class",
     "Expected a column of numbers, logicals or texts, got a {0} {1}.", BaseType::Type},
    {"KALVEX:array:NotLogical", "operation, type", "{0} needs logical values, got {1}.",
     BaseType::Type},
    {"KALVEX:array:Condition", "actual",
     "A choice between two arrays needs a condition that is one logical value, got {0}.",
     BaseType::Value},
    {"KALVEX:array:MissingField", "row, value, type",
     "Row {0} is {1}, beyond 2^53, in a column of type {2} with missing values. Outside a column "
     "these are NaN and all values doubles, which skip whole numbers there. Give missing values a "
     "value, as in where(ismissing(x), 0, x), or multiply by 1.0 to round.",
     BaseType::Value},
    {"KALVEX:array:NeedsRows", "operation", "{0} needs an array with rows, got a value in memory.",
     BaseType::Value},
    {"KALVEX:array:NeedsColumn", "operation, actual", "{0} needs one column, got {1}.",
     BaseType::Type},
    {"KALVEX:array:SizesDiffer", "function, size, origin, other size, other origin",
     "{0}: the sizes {1} of {2} and {3} of {4} don't go together. Dimensions after the first must "
     "be the same, or 1.",
     BaseType::Value},
    {"KALVEX:array:TooManyColumns", "size, limit",
     "An array of size {0} has more than {1} columns after its first dimension, which is that of "
     "rows.",
     BaseType::Value},
    {"KALVEX:array:NeedsTable", "operation", "{0} needs a table, got an array.", BaseType::Type},
    {"KALVEX:array:UnknownColumn", "column, columns",
     "There is no column '{0:short}'. The columns are: {1}.", BaseType::Key},
    {"KALVEX:array:RowsDiffer", "origin, other origin, advice",
     "The rows of {0} and of {1} are not the same. Both must be rows of one source, filtered "
     "in the same way{2}.",
     BaseType::Value},
    {"KALVEX:array:WrongRowCount", "operation, rows, returned",
     "{0} must return as many rows as were asked for, {1}, but returned {2}.", BaseType::Value},
    {"KALVEX:array:PartitionIndex", "row, value, partitions",
     "The number of a partition must be whole, from 1 to {2}; that of row {0} is {1}.",
     BaseType::Index},
    {"KALVEX:array:OutputRows", "operation, rows, other rows",
     "{0} must return the same number of rows for all of its outputs, but returned {1} and {2}.",
     BaseType::Value},
    {"KALVEX:array:PartitionResult", "operation, expected, actual",
     "{0} must return {1}, but returned {2}.", BaseType::Value},
    {"KALVEX:array:UnusedRows", "operation, input, rows, returned",
     "{0} was given {2} rows of input {1} and may return some of these as unused, but returned {3} "
     "rows, or rows of another type.",
     BaseType::Value},
    {"KALVEX:array:NothingConsumed", "operation, rows",
     "{0} used none of the last {1} rows and isn't finished, but there are no more.",
     BaseType::Value},
    {"KALVEX:array:MissingOutput", "operation, output, outputs",
     "{0} returned nothing for output {1} of {2}.", BaseType::Value},
    {"KALVEX:array:ChunkTypes", "operation, type, rows, other type, other rows",
     "{0} must return one type for all rows, but returned {1} for {2} and {3} for {4}.",
     BaseType::Type},
    {"KALVEX:array:ChunkSizes", "operation, size, rows, other size, other rows",
     "{0} must return arrays of one size but for their rows, but returned {1} for {2} and {3} for "
     "{4}.",
     BaseType::Value},
    {"KALVEX:array:PartialSizes", "operation, size, other size",
     "The functions of {0} must return arrays of one size but for their rows, but returned {1} and "
     "{2}.",
     BaseType::Value},
    {"KALVEX:array:NoRows", "function", "There are no rows, and {0} of no rows has no value.",
     BaseType::Value},
    {"KALVEX:array:PartialTypes", "operation, type, other type",
     "The functions of {0} must return one type in all calls, but returned {1} and {2}.",
     BaseType::Type},
    {"KALVEX:executor:BadBytes", "what",
     "These bytes aren't {0} of this release: they are damaged, or another release wrote them.",
     BaseType::Value},
    {"KALVEX:executor:UnitLost", "partition, attempt, reason",
     "What ran partition {0} was lost in attempt {1}, the last one: {2}."},
    {"KALVEX:executor:Threads", "given, most",
     "The number of threads must be a whole number from 1 to {1}, got {0:short}.", BaseType::Value},
    {"KALVEX:memory:Limit", "given, least",
     "The memory limit must be a number of bytes, at least {1}, such as 512MB, 1.5GiB or 64000000, "
     "got {0:short}. The units are kB, MB, GB, TB, and KiB, MiB, GiB, TiB for powers of 1024.",
     BaseType::Value},
    {"KALVEX:executor:Partition", "strategy, partition, count, created, own, source",
     "{0} created partition {1} of {2} as {3}. It must be a SimplePartition, i of n, or a "
     "SourcePartition of the {4} partitions of {5:short}.",
     BaseType::Value},
    {"KALVEX:executor:PartitionCount", "strategy, count, most",
     "{0} has {1} partitions; it must have from 1 to {2}.", BaseType::Value},
    {"KALVEX:array:FunctionFailed", "operation, text", "{0} failed: {1}"},
    {"KALVEX:array:Unexpected", "operation, text",
     "{0} failed in a way that kvbigdata doesn't expect. This is a fault of kvbigdata, not of your "
     "data; please report it."},

    // Classes.
    {"KALVEX:bigdata:array:ConcatenatedPartitions", "property, count, expected",
     "{0} of joined arrays is {1}, but they have {2} partitions.", BaseType::Value},
    {"KALVEX:digraph:UnknownNode", "node", "An edge leads to {0}, which isn't a node of the graph.",
     BaseType::Value},
    {"KALVEX:Containers:CountMismatch", "keys, values",
     "A map needs a value for each key: {0} keys, {1} values.", BaseType::Value},
    {"KALVEX:Containers:NoKey", "key", "There is no key {0} in the map.", BaseType::Key},
    {"KALVEX:table:UnequalHeights", "rows, other rows",
     "Columns of a table must have the same number of rows: the first has {0}, another {1}.",
     BaseType::Value},
    {"KALVEX:table:CountMismatch", "names, columns",
     "A table needs a name for each column: {0} names, {1} columns.", BaseType::Value},
};

}  // namespace kv::errors

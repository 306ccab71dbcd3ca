#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of built-in functions that can't be applied to what they were given.
inline constexpr ErrorRow kFunctionRows[] = {
    {"KALVEX:function:BadArity", "function, expected, actual",
     "The number of inputs of {0} must be {1}, got {2}.", BaseType::Type},
    {"KALVEX:function:BadTime", "function, text",
     "{0} combines a time with the text '{1}', which isn't a date and time such as "
     "2013-06-01T05:15:30 or a duration such as PT1H30M.",
     BaseType::Value},
    {"KALVEX:function:BadTypes", "function, types", "{0} is not defined for {1}.", BaseType::Type},
    {"KALVEX:function:RowCounts", "function, expected, actual", "{0} expected {1} rows, got {2}.",
     BaseType::Value},
    {"KALVEX:function:OutOfRange", "function, constant, type",
     "{0}: the constant {1} doesn't fit the type {2}.", BaseType::Value},
    {"KALVEX:function:NegativePower", "function, exponent",
     "{0}: an integer to the power of the negative integer {1} isn't an integer. Make one of "
     "them a double, such as {1}.0.",
     BaseType::Value},
    {"KALVEX:function:Overflow", "function, sum, type",
     "{0}: {1} doesn't fit the type {2}. Multiply the values by 1.0 to add them up as doubles.",
     BaseType::Value},
    {"KALVEX:function:BadPartial", "reason", "The state of an aggregate can't be used: {0}.",
     BaseType::Value},
    {"KALVEX:array:NotExact", "number, nearest double",
     "{0} is beyond 2^53, where a double skips whole numbers. The nearest double is {1}.",
     BaseType::Value},
    {"KALVEX:memory:TextTooLarge", "",
     "The texts of one column are limited to 2 GiB in memory. Filter or reduce the column "
     "before it is gathered.",
     BaseType::Memory},
    {"KALVEX:spill:NoSpace", "folder, bytes",
     "There is no more space for what doesn't fit in memory in the scratch folder '{0}', where it "
     "has {1}. Set another folder (--scratch, KV_SCRATCH or kv.setScratch), or allow more memory.",
     BaseType::System},
    {"KALVEX:spill:Failed", "folder, reason",
     "The scratch folder '{0}', for what doesn't fit in memory, can't be used: {1}.",
     BaseType::System},
    {"KALVEX:memory:LimitTooSmall", "operation, need, limit",
     "{0} needs at least {1} of memory with what is in use already; the limit is {2}. Set a higher "
     "one: --memory, kv.options(memory_limit=), KV_MEMORY_LIMIT or kv.setMemoryLimit.",
     BaseType::Memory},
    {"KALVEX:memory:ResultTooLarge", "operation, need, limit",
     "The result of {0} needs at least {1} of memory; the limit is {2}. Write it to a file or take "
     "the first rows, or reduce it.",
     BaseType::Memory},
};

}  // namespace kv::errors

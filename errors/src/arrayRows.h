#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of the C++ front end and of the command.
inline constexpr ErrorRow kArrayRows[] = {
    {"KALVEX:array:NoArray", "", "At least one input must be an array.", BaseType::Value},
    {"KALVEX:array:TwoSessions", "", "The arrays belong to different sessions.", BaseType::Value},
    {"KALVEX:array:LengthsDiffer", "rows, other rows",
     "Arrays of {0} and of {1} rows can't be combined row by row.", BaseType::Value},
    {"KALVEX:array:BadShape", "shape, reason", "An array can't have the shape ({0}): {1}.",
     BaseType::Value},
    {"KALVEX:array:UnknownType", "type, types", "There is no type '{0:short}'. The types are: {1}.",
     BaseType::Value},
    {"KALVEX:array:WrongType", "function, returned, type",
     "{0} returned elements of type {1}, but its result was recorded as {2}; give the type of the "
     "result with the function.",
     BaseType::Type},
    {"KALVEX:array:WrongShape", "function, shape, returned",
     "{0} was recorded with rows of shape {1}, but returned rows of shape {2}; give the shape of a "
     "row of the result with the function.",
     BaseType::Value},
    {"KALVEX:array:NotBroadcast", "function, dimensions, other dimensions",
     "{0}: arrays of {1} and of {2} dimensions don't go together row by row. Give the one with "
     "fewer dimensions more of them, as in x[:, None].",
     BaseType::Value},
    {"KALVEX:array:NoFunction", "", "Expected a function, got an empty one.", BaseType::Type},
    {"KALVEX:array:UnknownFunction", "name, kind", "There is no {1} \"{0}\".", BaseType::Value},
    {"KALVEX:array:NameTaken", "name", "\"{0}\" can't be used as the name of a user function.",
     BaseType::Value},
    {"KALVEX:array:UnsupportedType", "what, type",
     "{0} has the type {1}, which arrays can't have; logicals, integers, floats of 32 and 64 bits, "
     "texts, moments and durations can be used.",
     BaseType::Type},
    {"KALVEX:array:UnsupportedOperand", "function, type",
     "{0} takes arrays, numbers, logicals and texts, got {1}.", BaseType::Type},
    {"KALVEX:array:NotSupported", "function, advice",
     "{0} isn't available for arrays that aren't computed. {1}", BaseType::Type},
    {"KALVEX:array:UnknownArgument", "function, argument, arguments",
     "{0} has no argument '{1}'. Its arguments are: {2}.", BaseType::Type},
    {"KALVEX:array:BadAxis", "function, axis, dimensions",
     "{0} along axis {1} isn't possible: the array has {2} dimension(s), counted from 0.",
     BaseType::Index},
    {"KALVEX:array:NotAnArray", "type, reason", "NumPy makes no array of this {0}: {1}",
     BaseType::Value},
    {"KALVEX:array:WrongResult", "function, expected, returned",
     "{0} must return {1}, but returned {2}.", BaseType::Type},
    {"KALVEX:array:WrongColumns", "function, returned, columns",
     "{0} returned the columns {1}, not {2}; dtypes= of map_chunks names those that it returns, "
     "with their types.",
     BaseType::Value},
    {"KALVEX:array:NoPlace", "rows",
     "An ndarray of {0} rows goes with rows of a file by position once their number is known: "
     "x.settle() counts them. Rows that a condition keeps have no positions; filter both by it.",
     BaseType::Value},
    {"KALVEX:array:BadIndex", "index, shape", "The index {0} doesn't fit {1}.", BaseType::Index},
    {"KALVEX:array:NoCompute", "",
     "Nothing may be computed here: the call is in kv.no_compute(), or KV_NO_COMPUTE is set."},
    {"KALVEX:array:UnknownLength", "",
     "The number of rows isn't known until they are counted: x.settle() counts them now, "
     "x.count_rows() together with other results.",
     BaseType::Type},
    {"KALVEX:array:TruthValue", "use",
     "{0} needs one value, but this has a row for each row of its source. Use x.any() or x.all().",
     BaseType::Value},
    {"KALVEX:array:NotAScalar", "use",
     "{0} needs one value, but this has a row for each row of its source. Reduce it first, as in "
     "x.max().",
     BaseType::Type},
    {"KALVEX:array:NotIterable", "use, advice",
     "{0} isn't available before the rows are computed. {1}", BaseType::Type},
    {"KALVEX:array:ReadOnly", "", "Arrays and tables never change: use x = kv.where(m, v, x).",
     BaseType::Type},
    {"KALVEX:array:CopyNeeded", "",
     "An array that isn't computed has no memory to share, so copy=False can't be met.",
     BaseType::Value},
    {"KALVEX:array:BadFormula", "formula, explanation", "{1}", BaseType::Value},
    {"KALVEX:array:UnknownColumnInFormula", "formula, explanation", "{1}", BaseType::Key},
    {"KALVEX:array:NotANumber", "type", "Expected numbers, got {0}.", BaseType::Type},
    {"KALVEX:array:NotAText", "type", "Expected a text, got {0}.", BaseType::Type},
    {"KALVEX:array:SameName", "name", "Two arrays are named \"{0}\".", BaseType::Value},
    {"KALVEX:array:NotArrays", "path", "The file '{0}' contains no arrays that were saved by name.",
     BaseType::Value},
    {"KALVEX:array:NotOneRow", "label, rows",
     "\"{0}\" has {1} rows; only answers of one row are printed. Open the file from C++ or Python.",
     BaseType::Value},
};

}  // namespace kv::errors

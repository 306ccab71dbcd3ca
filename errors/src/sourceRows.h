#pragma once

#include "kv/errors/ErrorRow.h"

namespace kv::errors {

/// Ids of input data that can't be used: a file, its form, a field, or a request that doesn't fit
/// it.
///
/// Rows of data are counted from 1, without the header; lines of a file from 1, with it. Texts of a
/// file and lists of its columns are cut for messages (see shownText()); the name of the one column
/// that an error is about is whole in the arguments.
inline constexpr ErrorRow kSourceRows[] = {
    // Paths.
    {"KALVEX:datastore:NoPaths", "", "At least one path is needed.", BaseType::Value, true},
    {"KALVEX:datastore:NoFiles", "path, reason", "'{0}' names no file to read: {1}.",
     BaseType::System, true},
    {"KALVEX:datastore:TwoForms", "path, other path",
     "The folder holds both '{0}' and '{1}', which may have the same rows; a pattern such as "
     "'folder/*.csv' selects the files to read.",
     BaseType::Value, true},
    {"KALVEX:datastore:FileNotFound", "path", "There is no file or folder '{0}'.", BaseType::System,
     true},
    {"KALVEX:datastore:FileNotReadable", "path, reason", "'{0}' can't be read: {1}.",
     BaseType::System, true},
    {"KALVEX:datastore:SourceChanged", "path, when, advice", "The file '{0}' has changed {1}; {2}.",
     BaseType::System, true},
    {"KALVEX:datastore:SourceGone", "path", "The file '{0}', which a saved array reads, is gone.",
     BaseType::System, true},

    // What is in a file.
    {"KALVEX:datastore:EmptyFile", "path, expected", "The file '{0}' is empty; {1} was expected.",
     BaseType::Value, true},
    {"KALVEX:datastore:NotText", "path, line, offset, byte",
     "'{0}', line {1}: the byte {3} at offset {2} isn't text in UTF-8.", BaseType::Value, true},
    {"KALVEX:datastore:OtherFormat", "path, format, advice",
     "The file '{0}' isn't CSV in UTF-8: it is {1}; {2}.", BaseType::Value, true},
    {"KALVEX:datastore:BadCompression", "path, compression, offset, fault",
     "'{0}' can't be uncompressed: near byte {2} of the file, its {1} stream {3}.", BaseType::Value,
     true},
    {"KALVEX:datastore:RaggedRow", "path, row, line, fields, expected, record, where, note",
     "'{0}', row {1} (line {2}): the number of fields must be {4}, as in the {6}, got {3}{7}: {5}",
     BaseType::Value, true},
    {"KALVEX:datastore:UnterminatedQuote", "path, line",
     "'{0}', line {1}: a quote that is opened in the record that begins here is never closed.",
     BaseType::Value, true},
    {"KALVEX:datastore:RecordTooLong", "path, line, limit",
     "'{0}', line {1}: the record that begins here is longer than {2} bytes; is there a quote that "
     "is never closed?",
     BaseType::Value, true},
    {"KALVEX:datastore:DifferentColumns",
     "path, columns, first path, its columns, difference, note",
     "Files of one table must have the same columns in the same order. '{0}' has: {1}. '{2}' has: "
     "{3}. The first difference: {4}{5}.",
     BaseType::Value, true},
    {"KALVEX:datastore:DifferentTypes", "path, column, type, first path, its type",
     "Files of one table must have the same types. Column '{1:short}' has the type {2:short} in "
     "'{0}' and {4:short} in '{3}'.",
     BaseType::Value, true},
    {"KALVEX:datastore:MixedFormats", "path, format, other path, other format",
     "Files of one table must have one format. '{0}' is {1}, '{2}' is {3}; a pattern such as "
     "'folder/*.csv' selects files of one.",
     BaseType::Value, true},
    {"KALVEX:datastore:BadParquet", "path, reason", "'{0}' can't be read as Parquet: {1}.",
     BaseType::Value, true},
    {"KALVEX:datastore:BadIpc", "path, reason", "'{0}' can't be read as Arrow IPC: {1}.",
     BaseType::Value, true},
    {"KALVEX:datastore:BadNpy", "path, reason", "'{0}' can't be read as a NumPy array: {1}.",
     BaseType::Value, true},
    {"KALVEX:datastore:DifferentArrays", "path, array, first path, its array",
     "Files of one array must have elements of one type and the same dimensions after that of "
     "rows. "
     "'{0}' has {1}, '{2}' has {3}.",
     BaseType::Value, true},
    {"KALVEX:datastore:BadColumnData", "path, column, first row, last row, reason",
     "'{0}', column '{1:short}', rows {2} to {3}: {4}.", BaseType::Value, true},
    {"KALVEX:datastore:BadText", "path, row, column",
     "'{0}', row {1}, column '{2:short}': the text isn't UTF-8.", BaseType::Value, true},
    {"KALVEX:datastore:BadField", "path, row, line, column, text, type, wider type, note",
     "'{0}', row {1} (line {2}), column '{3:short}': \"{4}\" isn't a value of type {5}, which the "
     "column has{7}; give the column the type {6} to read it.",
     BaseType::Value, true},
    {"KALVEX:datastore:MissingField", "path, row, line, column, text, type, wider type, note",
     "'{0}', row {1} (line {2}), column '{3:short}': \"{4}\" is a missing value, and a column of "
     "type {5} can't hold one{7}; give the column the type {6} to read it.",
     BaseType::Value, true},
    {"KALVEX:datastore:NumberTooLarge", "path, row, line, column, text, type, wider type, note",
     "'{0}', row {1} (line {2}), column '{3:short}': the whole number \"{4}\" is beyond 2^53, the "
     "limit of exact whole numbers in type {5}, which the column has{7}; give the column the type "
     "{6} to read it.",
     BaseType::Value, true},

    // Requests.
    {"KALVEX:datastore:UnknownColumn", "column, columns",
     "There is no column '{0:short}'. The columns are: {1}.", BaseType::Key, true},
    {"KALVEX:datastore:UnknownType", "column, type, types",
     "There is no type '{1:short}', which column '{0:short}' should have. The types are: {2}.",
     BaseType::Value, true},
    {"KALVEX:datastore:UnsupportedColumn", "column, type",
     "Column '{0:short}' has the type {1:short}, which can't be read yet. Numbers, logicals and "
     "texts can.",
     BaseType::Type, true},
    {"KALVEX:datastore:FixedType", "source, column, type, its type",
     "Column '{1:short}' can't be read as {2:short}: in '{0}' it has the type {3:short}. Types can "
     "be "
     "set for CSV files only.",
     BaseType::Value, true},
    {"KALVEX:datastore:FixedFormat", "source, format, option",
     "'{0}' is {1}; {2} can be set for CSV files only.", BaseType::Value, true},
    {"KALVEX:datastore:BadSeparator", "text",
     "A separator is one ASCII character other than a quote and a line end, or 'tab', got '{0}'.",
     BaseType::Value, true},
    {"KALVEX:datastore:BadPattern", "column, pattern, reason",
     "Column '{0:short}': '{1:short}' isn't a pattern of moments: {2}.", BaseType::Value, true},
    {"KALVEX:datastore:BadTypeOverride", "text",
     "Expected the type of a column as NAME=TYPE, got '{0}'.", BaseType::Value, true},
    {"KALVEX:datastore:UnknownSource", "path, files",
     "The saved arrays don't read '{0:short}'. Files that they read: {1}.", BaseType::Key, true},
    {"KALVEX:datastore:SourceGivenTwice", "path, replacement, other replacement",
     "'{0:short}' is given twice, to be replaced by '{1:short}' and by '{2:short}'.",
     BaseType::Value, true},
    {"KALVEX:datastore:MissingColumn", "source, column, columns",
     "'{0}' has no column '{1:short}', which a saved array reads; it has: {2}.", BaseType::Key,
     true},

    // Arrays in memory.
    {"KALVEX:datastore:TooManyRows", "rows, most",
     "An array has from 0 to {1} rows; {0} are asked for.", BaseType::Value},
    {"KALVEX:datastore:Partitions", "reason", "The rows can't be cut into partitions: {0}.",
     BaseType::Value},
    {"KALVEX:datastore:OutOfRange", "type, start, step, rows",
     "The type {0} can't hold {3} numbers from {1} in steps of {2}.", BaseType::Value},
    {"KALVEX:datastore:ZeroStep", "", "The step of a progression can't be 0.", BaseType::Value},
    {"KALVEX:datastore:EmptyRange", "low, high",
     "Random whole numbers need a low end below the high end, got {0} and {1}.", BaseType::Value},
    {"KALVEX:datastore:BadArrow", "reason", "The Arrow data can't be used: {0}.", BaseType::Value},
    {"KALVEX:datastore:NotSaveable", "source",
     "What reads {0} can't be saved, because the file would contain no rows. Write the rows to a "
     "file and read that, or gather the array: gathered values are saved.",
     BaseType::Value},

    // Datastores as objects.
    {"KALVEX:datastore:NotSupported", "class",
     "The executor reads objects of class kalvex.io.Datastore, got a {0}.", BaseType::Type},
    {"KALVEX:datastore:PartitionCount", "property, count, partitions",
     "{0} of a datastore is {1}, but it has {2} partitions.", BaseType::Value},
    {"KALVEX:datastore:BadDescription", "reason", "A saved description of a source is broken: {0}.",
     BaseType::Value},
};

}  // namespace kv::errors

#pragma once

#include "kv/runtime/IdentifiedError.h"

namespace kv::runtime {

/// Input data can't be used: a file, its format, a field, or a request that doesn't fit it.
///
/// `what()` is a full sentence that names the file and, if they apply, row, column, text and type.
/// Rows of data are counted from 1, without the header; lines of a file from 1, with it. Texts from
/// a file, and lists of its columns, are shortened for messages (shownText()); the name of the one
/// column that an error is about is complete in the arguments.
///
/// The ids, with their arguments in order:
///
///     KALVEX:datastore:FileNotFound       path
///     KALVEX:datastore:FileNotReadable    path, reason
///     KALVEX:datastore:NoFiles            path or pattern
///     KALVEX:datastore:EmptyFile          path
///     KALVEX:datastore:NotText            path, line, byte offset
///     KALVEX:datastore:RaggedRow          path, row, line, fields found, fields
///                                         expected, record
///     KALVEX:datastore:UnterminatedQuote  path, line
///     KALVEX:datastore:RecordTooLong      path, line, bytes allowed
///     KALVEX:datastore:OtherFormat        path, format
///     KALVEX:datastore:DifferentColumns   path, its columns, first path, its columns
///     KALVEX:datastore:BadField           path, row, line, column, text, type,
///                                         type that fits the text
///     KALVEX:datastore:MissingField       as BadField
///     KALVEX:datastore:NumberTooLarge     as BadField
///     KALVEX:datastore:UnknownColumn      column, existing columns
///     KALVEX:datastore:UnknownType        column, type, existing types
///     KALVEX:datastore:BadTypeOverride    text
///     KALVEX:datastore:SourceChanged      path
///     KALVEX:datastore:SourceGone         path
///     KALVEX:datastore:UnknownSource      path, files that saved arrays read
///     KALVEX:datastore:MissingColumn      source, column that a saved array reads, existing
///                                         columns
class DataError : public IdentifiedError {
 public:
  using IdentifiedError::IdentifiedError;
};

}  // namespace kv::runtime

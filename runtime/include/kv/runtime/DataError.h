#pragma once

#include "kv/runtime/IdentifiedError.h"

namespace kv::runtime {

/// Says that input data can't be used: a file, its form, a field, or a request that doesn't fit it.
///
/// `what()` is a full sentence that names the file, and where they apply row, column, text and
/// type. Rows of data are counted from 1, without the header; lines of a file from 1, with it.
///
/// The ids, with their arguments in order:
///
///     KALVEX:datastore:FileNotFound       path
///     KALVEX:datastore:FileNotReadable    path, reason
///     KALVEX:datastore:NoFiles            path or pattern
///     KALVEX:datastore:EmptyFile          path
///     KALVEX:datastore:NotText            path, line, byte offset
///     KALVEX:datastore:RaggedRow          path, row, fields found, fields expected, record
///     KALVEX:datastore:UnterminatedQuote  path, line
///     KALVEX:datastore:RecordTooLong      path, line, bytes allowed
///     KALVEX:datastore:DuplicateColumn    path, column
///     KALVEX:datastore:DifferentColumns   path, its columns, first path, its columns
///     KALVEX:datastore:BadField           path, row, line, column, text, type
///     KALVEX:datastore:MissingField       path, row, line, column, text, type
///     KALVEX:datastore:NumberTooLarge     path, row, line, column, text, type
///     KALVEX:datastore:UnknownColumn      column, columns there are
///     KALVEX:datastore:UnknownType        column, type, types there are
///     KALVEX:datastore:BadTypeOverride    text
///     KALVEX:datastore:SourceChanged      path
///     KALVEX:datastore:SourceGone         path
class DataError : public IdentifiedError {
 public:
  using IdentifiedError::IdentifiedError;
};

}  // namespace kv::runtime

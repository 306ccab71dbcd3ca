#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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
class DataError : public std::runtime_error {
 public:
  DataError(std::string id, std::vector<std::string> arguments, const std::string& message)
      : std::runtime_error(message), id_(std::move(id)), arguments_(std::move(arguments)) {}

  const std::string& id() const noexcept { return id_; }
  const std::vector<std::string>& arguments() const noexcept { return arguments_; }

 private:
  std::string id_;
  std::vector<std::string> arguments_;
};

}  // namespace kv::runtime

#pragma once

#include <boost/container/small_vector.hpp>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "RowSpace.h"
#include "kv/array.h"
#include "kv/callMode.h"
#include "kv/host/freeFunctions.h"
#include "kv/host/values.h"
#include "kv/runtime/ElementFunctions.h"
#include "publicCall.h"

namespace kv {

/// Holds its host object strongly. The host can release it from whichever thread drops it.
struct Array::Handle {
  std::weak_ptr<Session::Impl> session;
  host::Value value;
  /// The type of the elements, so that wrong types are refused at the line where the user wrote
  /// them.
  runtime::ElementType type;
  /// A weak scalar, if the array is a constant that the user wrote.
  std::optional<runtime::ColumnOperand> constant;
  RowTraits traits{};
};

/// The columns of a table, shared by all arrays that are made from it.
struct TableColumns : std::enable_shared_from_this<TableColumns> {
  TableColumns(std::vector<std::string> columnNames, std::vector<runtime::ElementType> columnTypes,
               std::vector<std::string> columnFileTypes);

  /// Of RowTraits, for the array of a column.
  std::shared_ptr<const std::string> sourceType(std::size_t column) const;

  std::vector<std::string> names;
  std::vector<runtime::ElementType> types;  ///< Unknown for a column that can't be read
  std::vector<std::string> fileTypes;       ///< the types in the files, where they are other ones
  std::unordered_map<std::string_view, std::size_t> positions;  ///< views of `names`
};

struct Table::Handle {
  std::weak_ptr<Session::Impl> session;
  host::Value value;  ///< an array of rows with all columns; null if it is made of arrays
  std::shared_ptr<const TableColumns> columns;
  std::shared_ptr<const RowSpace> rows;
  std::vector<Array> arrays{};  ///< the columns, if it is made of arrays
  std::size_t source = 0;       ///< identifies the values, where the rows alone don't
};

/// The names and types of the columns of a datastore of the host.
std::shared_ptr<const TableColumns> columnsOf(const kxArray* datastore);

Array makeArray(const std::weak_ptr<Session::Impl>& session, host::Value value,
                runtime::ElementType type, RowTraits traits);

/// An array that holds the constant, a weak scalar.
Array makeConstant(const std::weak_ptr<Session::Impl>& session,
                   const runtime::ColumnOperand& constant);

/// An input as the type rules see it: a column without rows for an array, otherwise a weak scalar.
runtime::ColumnOperand operandOf(const Operand& input);

/// The same without columns.
runtime::RecordedOperand recordedOperand(const Operand& input);

/// Inputs of a call by name, including values that were made for this call. A few need no
/// allocation.
class CallInputs {
 public:
  void lend(const kxArray* value) { list_.push_back(value); }
  void lend(const host::Value& value) { lend(value.get()); }
  void give(host::Value value) {
    list_.push_back(value.get());
    owned_.push_back(std::move(value));
  }
  std::span<const kxArray* const> list() const { return {list_.data(), list_.size()}; }

 private:
  boost::container::small_vector<host::Value, 4> owned_;
  boost::container::small_vector<const kxArray*, 4> list_;
};

/// The arrays of a call. A few need no allocation.
using Arrays = boost::container::small_vector<Array, 3>;

/// The session that the arrays in `arrays` share.
/// Errors: "KALVEX:array:NoArray" if there is none, "KALVEX:array:TwoSessions".
std::shared_ptr<Session::Impl> sessionOf(std::span<const Array> arrays);

[[noreturn]] void raiseTwoSessions();

/// The type of that name. Errors: "KALVEX:array:UnknownType".
runtime::ElementType requireType(std::string_view name);

inline host::CallMode hostMode(CallMode mode) {
  return mode == CallMode::AnyThread ? host::CallMode::AnyThread : host::CallMode::Session;
}

/// Errors: "KALVEX:array:NotLogical", "KALVEX:array:NeedsColumn".
void requireCondition(const Array& keep);

/// Errors: "KALVEX:array:NeedsColumn" with the operation for an array of several dimensions.
void requireColumn(std::string_view operation, const Array& array);

/// The same array with other traits.
Array withTraits(const Array& array, RowTraits traits);

}  // namespace kv

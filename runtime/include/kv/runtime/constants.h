#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "kv/host/values.h"
#include "kv/runtime/ElementFunctions.h"

/// Constants that users write, for front ends. A front end distinguishes them from computed values
/// and converts them (`adaptConstants`) when it records a call, because it knows the types with
/// which they are combined. The recorded value is an ordinary one.
namespace kv::runtime {

using WrittenConstant = std::variant<bool, std::int64_t, std::uint64_t, double, std::string>;

/// The constant as a weak scalar: Logical, Int64, UInt64, Double or String.
ColumnOperand writtenOperand(const WrittenConstant& constant);

/// The scalar that a front end saved as a constant.
///
/// Errors: "KALVEX:array:NotAColumn" for any other value.
ColumnOperand writtenOperand(const kxArray* saved);

/// A scalar as the host value that is recorded.
host::Value recordedValue(const ColumnOperand& scalar);

/// The same constant without a column; of a text only the type.
RecordedOperand recordedOperand(const WrittenConstant& constant);
RecordedOperand recordedOperand(const ColumnOperand& constant);

/// A number as the host value that is recorded. Requires: it isn't a text.
host::Value recordedValue(const RecordedOperand& number);

}  // namespace kv::runtime

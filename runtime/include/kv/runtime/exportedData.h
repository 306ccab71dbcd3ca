#pragma once

#include <arrow/type_fwd.h>

#include <memory>

#include "kv/runtime/Column.h"

namespace kv::runtime {

/// Arrow's type of a column's elements as other programs expect it: logicals are bits.
std::shared_ptr<arrow::DataType> exportedTypeOf(ElementType type);

/// A column as an array of that type, in which NaT is a null. Shares buffers where the layout is
/// the same. Errors: std::bad_alloc if memory runs out.
std::shared_ptr<arrow::ArrayData> exportedData(const Column& column);

}  // namespace kv::runtime

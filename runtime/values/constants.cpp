#include "kv/runtime/constants.h"

#include <fmt/core.h>

#include <type_traits>

#include "column/allocate.h"
#include "kv/host/errors.h"
#include "values/columnValues.h"

namespace kv::runtime {

namespace {

struct ColumnOf {
  Column operator()(bool value) const {
    return scalarColumn(ElementType::Logical, static_cast<std::uint8_t>(value));
  }
  Column operator()(std::int64_t value) const { return scalarColumn(ElementType::Int64, value); }
  Column operator()(std::uint64_t value) const { return scalarColumn(ElementType::UInt64, value); }
  Column operator()(double value) const { return scalarColumn(ElementType::Double, value); }
  Column operator()(const std::string& value) const {
    return toColumn(host::makeString(value).get());
  }
};

bool isWritable(ElementType type) {
  return type == ElementType::Logical || type == ElementType::Int64 ||
         type == ElementType::UInt64 || type == ElementType::Double || type == ElementType::String;
}

}  // namespace

ColumnOperand writtenOperand(const WrittenConstant& constant) {
  return {std::visit(ColumnOf(), constant), true, true};
}

ColumnOperand writtenOperand(const kxArray* saved) {
  Column column = toColumn(saved);
  if (column.rows() != 1 || !isWritable(column.type())) {
    host::raise("KALVEX:array:NotAColumn",
                {fmt::format("{}x{}", kxGetM(saved), kxGetN(saved)), kxGetClassName(saved)});
  }
  return {std::move(column), true, true};
}

host::Value recordedValue(const ColumnOperand& scalar) { return toValue(scalar.column); }

}  // namespace kv::runtime

#include "handles.h"

#include <fmt/format.h>

#include <utility>

#include "kv/runtime/Column.h"
#include "kv/runtime/constants.h"

namespace kv {

namespace {

using runtime::ElementType;

struct ToOperand {
  runtime::Operand operator()(const Array& array) const {
    const auto& handle = array.handle();
    return handle.constant ? *handle.constant : runtime::Operand{emptyColumn(handle.type)};
  }
  runtime::Operand operator()(const auto& constant) const {
    return runtime::writtenOperand(constant);
  }
};

}  // namespace

runtime::Operand operandOf(const Operand& input) { return std::visit(ToOperand(), input.value()); }

Array makeArray(const std::weak_ptr<Session::Impl>& session, host::Value value, ElementType type) {
  return Array(
      std::make_shared<const Array::Handle>(session, std::move(value), type, std::nullopt));
}

Array makeConstant(const std::weak_ptr<Session::Impl>& session, const runtime::Operand& constant) {
  const host::Value value = runtime::recordedValue(constant);
  return Array(std::make_shared<const Array::Handle>(
      session, host::call("createFromConstantBuiltin", {value.get()}), constant.column.type(),
      constant));
}

std::shared_ptr<Session::Impl> sessionOf(std::span<const Array> arrays) {
  if (arrays.empty()) {
    throw Error("KALVEX:array:NoArray", "At least one input must be an array.");
  }
  auto session = live(arrays.front().handle().session);
  for (const Array& array : arrays) {
    if (live(array.handle().session) != session) {
      raiseTwoSessions();
    }
  }
  return session;
}

void raiseTwoSessions() {
  throw Error("KALVEX:array:TwoSessions", "The arrays belong to different sessions.");
}

void requireLogical(const Array& keep) {
  if (keep.handle().type == ElementType::Logical) {
    return;
  }
  throw Error(
      "KALVEX:array:NotLogical",
      fmt::format("A filter keeps the rows where a logical array is true; this array is {}.",
                  keep.type()),
      {std::string(keep.type())});
}

std::string_view Array::type() const { return runtime::elementTypeName(handle_->type); }

}  // namespace kv

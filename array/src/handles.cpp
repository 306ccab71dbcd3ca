#include "handles.h"

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
    raiseError("KALVEX:array:NoArray");
  }
  auto session = live(arrays.front().handle().session);
  for (const Array& array : arrays) {
    if (live(array.handle().session) != session) {
      raiseTwoSessions();
    }
  }
  return session;
}

void raiseTwoSessions() { raiseError("KALVEX:array:TwoSessions"); }

void requireLogical(const Array& keep) {
  if (keep.handle().type == ElementType::Logical) {
    return;
  }
  raiseError("KALVEX:array:NotLogical", {"A filter", std::string(keep.type())});
}

std::string_view Array::type() const { return runtime::elementTypeName(handle_->type); }

}  // namespace kv

#include "handles.h"

#include <fmt/format.h>

#include <utility>

#include "kv/errors/shownText.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/constants.h"

namespace kv {

namespace {

using runtime::ElementType;

struct ToOperand {
  runtime::ColumnOperand operator()(const Array& array) const {
    const auto& handle = array.handle();
    return handle.constant ? *handle.constant : runtime::ColumnOperand{emptyColumn(handle.type)};
  }
  runtime::ColumnOperand operator()(const auto& constant) const {
    return runtime::writtenOperand(constant);
  }
};

struct ToRecorded {
  runtime::RecordedOperand operator()(const Array& array) const {
    const auto& handle = array.handle();
    return handle.constant ? runtime::recordedOperand(*handle.constant)
                           : runtime::RecordedOperand{handle.type};
  }
  runtime::RecordedOperand operator()(const std::string&) const {
    return {ElementType::String, true};
  }
  runtime::RecordedOperand operator()(auto number) const {
    return runtime::recordedOperand(number);
  }
};

/// True if both are of one session, closed or not.
bool areOfOneSession(const Array& a, const Array& b) {
  const auto& first = a.handle().session;
  const auto& second = b.handle().session;
  return !first.owner_before(second) && !second.owner_before(first);
}

}  // namespace

runtime::ColumnOperand operandOf(const Operand& input) {
  return std::visit(ToOperand(), input.value());
}

runtime::RecordedOperand recordedOperand(const Operand& input) {
  return std::visit(ToRecorded(), input.value());
}

Array makeArray(const std::weak_ptr<Session::Impl>& session, host::Value value, ElementType type,
                RowTraits traits) {
  return Array(std::make_shared<const Array::Handle>(session, std::move(value), type, std::nullopt,
                                                     std::move(traits)));
}

Array makeConstant(const std::weak_ptr<Session::Impl>& session,
                   const runtime::ColumnOperand& constant) {
  const host::Value value = runtime::recordedValue(constant);
  return Array(std::make_shared<const Array::Handle>(
      session, host::call("createFromConstantBuiltin", {value.get()}), constant.column.type(),
      constant, RowTraits{.isScalar = true, .made = uniqueKey()}));
}

std::shared_ptr<Session::Impl> sessionOf(std::span<const Array> arrays) {
  if (arrays.empty()) {
    raiseError("KALVEX:array:NoArray");
  }
  auto session = live(arrays.front().handle().session);
  for (const Array& array : arrays) {
    if (!areOfOneSession(array, arrays.front())) {
      live(array.handle().session);  // the error of a closed session comes first
      raiseTwoSessions();
    }
  }
  return session;
}

void raiseTwoSessions() { raiseError("KALVEX:array:TwoSessions"); }

ElementType requireType(std::string_view name) {
  const auto type = runtime::elementTypeNamed(name);
  if (!type) {
    std::vector<std::string> names;
    for (const ElementType each : runtime::allElementTypes()) {
      names.emplace_back(runtime::elementTypeName(each));
    }
    raiseError("KALVEX:array:UnknownType", {std::string(name), errors::shownNames(names)});
  }
  return *type;
}

void requireCondition(const Array& keep) {
  if (keep.handle().type != ElementType::Logical) {
    raiseError("KALVEX:array:NotLogical", {"A filter", std::string(keep.type())});
  }
  requireColumn("A filter", keep);
}

void requireColumn(std::string_view operation, const Array& array) {
  if (!array.trailing().empty()) {
    const std::size_t dimensions = array.trailing().size() + 1;
    raiseError("KALVEX:array:NeedsColumn",
               {std::string(operation), fmt::format("an array of {} dimensions", dimensions)});
  }
}

Array withTraits(const Array& array, RowTraits traits) {
  const Array::Handle& handle = array.handle();
  return Array(
      std::make_shared<const Array::Handle>(handle.session, matrix::sharedCopy(handle.value.get()),
                                            handle.type, handle.constant, std::move(traits)));
}

std::string_view Array::type() const { return runtime::elementTypeName(handle_->type); }

std::optional<std::int64_t> Array::rows() const {
  const RowTraits& traits = handle_->traits;
  return traits.isScalar ? 1 : traits.rows != nullptr ? traits.rows->count() : std::nullopt;
}

const std::vector<std::int64_t>& Array::trailing() const { return handle_->traits.trailing; }

bool Array::isScalar() const { return handle_->traits.isScalar; }

bool Array::isColumn() const { return handle_->traits.isColumn; }

}  // namespace kv

#include "handles.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include "kv/runtime/Column.h"

namespace kv {

namespace {

using runtime::ElementType;

constexpr long long kLargestExactWhole = 1LL << 53;

[[noreturn]] void raiseNotExact(const std::string& number) {
  throw Error("KALVEX:array:NotExact",
              fmt::format("{} is beyond 2^53, where a double skips whole numbers.", number),
              {number});
}

struct MakeHostValue {
  host::Value operator()(double number) const { return host::makeDouble(number); }
  host::Value operator()(bool logical) const { return host::makeLogical(logical); }
  host::Value operator()(const std::string& text) const { return host::makeString(text); }
  host::Value operator()(const Array& array) const {
    return matrix::sharedCopy(array.handle().value.get());
  }
};

/// The type of a constant: it adapts to the columns that it meets, unless it is a text.
struct TypeOfOperand {
  runtime::OperandType operator()(const Array& array) const { return array.handle().type; }
  runtime::OperandType operator()(bool) const { return {ElementType::Logical, true}; }
  runtime::OperandType operator()(const std::string&) const { return {ElementType::String, false}; }
  runtime::OperandType operator()(double number) const {
    const bool isWhole =
        std::trunc(number) == number && std::abs(number) <= static_cast<double>(kLargestExactWhole);
    return {isWhole ? ElementType::Int64 : ElementType::Double, true};
  }
};

}  // namespace

runtime::OperandType typeOf(const Operand& operand) {
  return std::visit(TypeOfOperand(), operand.value());
}

double Operand::exactInteger(long long number) {
  if (number > kLargestExactWhole || number < -kLargestExactWhole) {
    raiseNotExact(fmt::format("{}", number));
  }
  return static_cast<double>(number);
}

double Operand::exactUnsigned(unsigned long long number) {
  if (number > kLargestExactWhole) raiseNotExact(fmt::format("{}", number));
  return static_cast<double>(number);
}

Array makeArray(const std::weak_ptr<Session::Impl>& session, host::Value value,
                runtime::OperandType type) {
  return Array(std::make_shared<const Array::Handle>(session, std::move(value), type));
}

void CallInputs::add(const Operand& operand) { give(std::visit(MakeHostValue(), operand.value())); }

std::shared_ptr<Session::Impl> sessionOf(std::span<const Array> arrays) {
  if (arrays.empty()) {
    throw Error("KALVEX:array:NoArray", "At least one input must be an array.");
  }
  auto session = live(arrays.front().handle().session);
  for (const Array& array : arrays) {
    if (live(array.handle().session) != session) raiseTwoSessions();
  }
  return session;
}

void raiseTwoSessions() {
  throw Error("KALVEX:array:TwoSessions", "The arrays belong to different sessions.");
}

void requireLogical(const Array& keep) {
  if (keep.handle().type.type == ElementType::Logical) return;
  throw Error(
      "KALVEX:array:NotLogical",
      fmt::format("A filter keeps the rows where a logical array is true; this array is {}.",
                  keep.type()),
      {std::string(keep.type())});
}

std::string_view Array::type() const { return runtime::elementTypeName(handle_->type.type); }

}  // namespace kv

// A user's block function sees plain spans of doubles. This file converts each call of the host
// into such spans, without a copy where the column is double already, and turns whatever the
// function throws into an error of the host that keeps its id.

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "handles.h"
#include "hostValues.h"
#include "kv/host/errors.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

/// The inputs of one call as numbers, all of the same length.
class Block {
 public:
  explicit Block(const host::Call& call) : stores_(static_cast<std::size_t>(call.nrhs)) {
    for (int i = 0; i < call.nrhs; ++i) {
      columns_.push_back(numbersOf(call.in(i), stores_[columns_.size()]));
      rows_ = std::max(rows_, columns_.back().size());
    }
    const bool isEmpty = std::ranges::any_of(columns_, [](auto& column) { return column.empty(); });
    if (isEmpty) {
      rows_ = 0;
    }
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      spread(i);
    }
  }

  std::size_t rows() const { return rows_; }
  std::span<const std::span<const double>> columns() const { return columns_; }

 private:
  /// An input of one row, such as an aggregate, is repeated for every row.
  void spread(std::size_t i) {
    if (columns_[i].size() != 1 || rows_ == 1) {
      return;
    }
    stores_[i] = std::vector<double>(rows_, columns_[i].front());
    columns_[i] = stores_[i];
  }

  std::vector<std::vector<double>> stores_;
  std::vector<std::span<const double>> columns_;
  std::size_t rows_ = 0;
};

host::Value columnOf(std::vector<double> numbers) {
  const auto shared = std::make_shared<const std::vector<double>>(std::move(numbers));
  const std::array<std::size_t, 2> dimensions = {shared->size(), 1};
  return matrix::from_kalvex(
      kxCreateBorrowedArray(dimensions, kxDOUBLE_CLASS, shared->data(), shared));
}

std::vector<double> callUser(const BlockFunction& function, const Block& block) {
  std::vector<double> result = function(block.columns());
  if (result.size() != block.rows()) {
    host::raise("KALVEX:array:WrongRowCount",
                {"The function", std::to_string(block.rows()), std::to_string(result.size())});
  }
  return result;
}

/// The user's function as the host calls it. Errors that it throws keep their id.
host::NativeBody bodyOf(BlockFunction function) {
  return [function = std::move(function)](const host::Call& call) {
    try {
      call.out(0, columnOf(callUser(function, Block(call))));
    } catch (const Error& error) {
      host::raiseWithMessage(error.identifier(), error.what(), error.arguments());
    } catch (const Interrupted&) {
      throw runtime::Interrupted();
    }
  };
}

void requireFunction(const BlockFunction& function) {
  if (!function) {
    raiseError("KALVEX:array:NoFunction");
  }
}

void requireNumbers(std::span<const Array> inputs) {
  using enum runtime::ElementType;
  for (const Array& input : inputs) {
    const runtime::ElementType type = input.handle().type;
    if (type == String || type == DateTime || type == Duration) {
      raiseError("KALVEX:array:NotANumber", {std::string(input.type())});
    }
  }
}

}  // namespace

Array map(BlockFunction function, std::span<const Array> inputs, Where where) {
  return map("kv.map", std::move(function), inputs, where);
}

Array map(std::string name, BlockFunction function, std::span<const Array> inputs, Where where) {
  return map(std::move(name), std::move(function), inputs, CallMode::Session, where);
}

Array map(std::string name, BlockFunction function, std::span<const Array> inputs, CallMode mode,
          Where where) {
  const auto session = sessionOf(inputs);
  requireFunction(function);
  requireNumbers(inputs);
  return publicCall(*session, where, [&] {
    CallInputs call;
    call.give(host::makeFunctionHandle(name, bodyOf(std::move(function)), hostMode(mode)));
    for (const Array& input : inputs) {
      call.lend(input.handle().value);
    }
    // A user's function isn't evaluated while it is recorded, even if its inputs are there.
    return makeArray(session, host::call("slicefun", call.list()), runtime::ElementType::Double,
                     traitsOfUnique(inputs, where));
  });
}

void Session::define(std::string_view name, BlockFunction function, Where where) {
  requireFunction(function);
  publicCall(*impl_, where, [&] {
    if (name.empty() || host::isLibraryFunction(name)) {
      raiseError("KALVEX:array:NameTaken", {std::string(name)});
    }
    impl_->host.defineFunction(name, bodyOf(std::move(function)));
  });
}

}  // namespace kv

// A function of a front end takes elements and returns elements. The types of what it returns are
// declared when it is recorded, because later operations rely on them, and checked at every call.

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "elementValues.h"
#include "handles.h"
#include "kv/host/errors.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

using runtime::ElementType;

using Trailing = std::vector<std::int64_t>;

/// What is known of an input or an output when a function is recorded.
struct ValueType {
  std::string type;
  Trailing trailing;
};

std::vector<Elements> inputsOf(const host::Call& call, const std::vector<ValueType>& types) {
  std::vector<Elements> inputs;
  for (std::size_t i = 0; i < types.size(); ++i) {
    const kxArray* input = call.in(static_cast<int>(i));
    inputs.push_back(
        toElements(matrix::sharedCopy(input), types[i].type, types[i].trailing, false));
  }
  return inputs;
}

/// The dimensions of a row, as Python shows them: `(3, 2)`.
std::string shapeOf(std::span<const std::int64_t> trailing) {
  return fmt::format("({}{})", fmt::join(trailing, ", "), trailing.size() == 1 ? "," : "");
}

std::size_t rowsOf(const std::vector<Elements>& inputs) {
  std::size_t rows = 1;
  for (const Elements& input : inputs) {
    const std::size_t own = input.dimensions.front();
    rows = own == 1 ? rows : own;
  }
  return rows;
}

/// A user's function with what is known of it when it is recorded.
struct Mapped {
  std::string name;
  TableFunction function;
  std::vector<ValueType> inputs;
  std::vector<ValueType> outputs;
  CallMode mode;
  ReturnedRows rows;

  void operator()(const host::Call& call) const {
    try {
      std::vector<Elements> given = inputsOf(call, inputs);
      const std::size_t givenRows = rowsOf(given);
      const std::vector<Elements> results = function(std::move(given));
      for (std::size_t i = 0; i < outputs.size(); ++i) {
        check(results.at(i), outputs[i], givenRows);
        call.out(static_cast<int>(i), toValue(results[i]));
      }
    } catch (const Error& error) {
      host::raiseWithMessage(error.identifier(), error.what(), error.arguments());
    } catch (const Interrupted&) {
      throw runtime::Interrupted();
    }
  }

 private:
  void check(const Elements& result, const ValueType& expected, std::size_t givenRows) const {
    const std::size_t returnedRows = result.dimensions.front();
    if (rows == ReturnedRows::Same && returnedRows != givenRows) {
      raiseError("KALVEX:array:WrongRowCount",
                 {name, std::to_string(givenRows), std::to_string(returnedRows)});
    }
    if (result.type != expected.type) {
      raiseError("KALVEX:array:WrongType", {name, std::string(result.type), expected.type});
    }
    const Trailing returned(result.dimensions.begin() + 1, result.dimensions.end());
    if (returned != expected.trailing) {
      raiseError("KALVEX:array:WrongShape", {name, shapeOf(expected.trailing), shapeOf(returned)});
    }
  }
};

std::vector<ValueType> typesOf(std::span<const Array> arrays) {
  std::vector<ValueType> types;
  for (const Array& array : arrays) {
    types.push_back({std::string(array.type()), array.trailing()});
  }
  return types;
}

/// Those of rows that a function makes of its own.
RowTraits traitsOfNew(const RowTraits& inputs, const std::string& name) {
  const std::size_t key = uniqueKey();
  return {.isColumn = inputs.isColumn,
          .rows = std::make_shared<const RowSpace>(
              fmt::format("rows {}", key), fmt::format("what {} returned", name), std::nullopt),
          .made = key};
}

/// Records the function; an array for each output.
std::vector<Array> record(Mapped mapped, std::span<const Array> inputs, const Where& where) {
  const auto session = sessionOf(inputs);
  std::vector<ElementType> elements;
  for (const ValueType& output : mapped.outputs) {
    elements.push_back(requireType(output.type));
  }
  return publicCall(*session, where, [&] {
    const bool isSame = mapped.rows == ReturnedRows::Same;
    const std::vector<ValueType> outputs = mapped.outputs;
    RowTraits traits = traitsOfUnique(inputs, where);
    traits = isSame ? std::move(traits) : traitsOfNew(traits, mapped.name);
    CallInputs call;
    const std::string name = mapped.name;
    const host::CallMode mode = hostMode(mapped.mode);
    call.give(host::makeFunctionHandle(name, std::move(mapped), mode));
    for (const Array& input : inputs) {
      call.lend(input.handle().value);
    }
    // A user's function isn't evaluated while it is recorded, even if its inputs are there.
    std::vector<host::Value> values =
        host::callMany(isSame ? kcos::NameRef("slicefun") : kcos::NameRef("chunkfun"),
                       static_cast<int>(outputs.size()), call.list());
    std::vector<Array> arrays;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
      RowTraits own = traits;
      own.made = uniqueKey();
      own.trailing = outputs[i].trailing;
      arrays.push_back(makeArray(session, std::move(values[i]), elements[i], std::move(own)));
    }
    return arrays;
  });
}

}  // namespace

Array mapElements(MappedFunction function, std::span<const Array> inputs, Where where) {
  const TableFunction body = [single = std::move(function.function)](std::vector<Elements> given) {
    return std::vector<Elements>{single(std::move(given))};
  };
  return record({function.name,
                 body,
                 typesOf(inputs),
                 {{function.type, function.trailing}},
                 function.mode,
                 function.rows},
                inputs, where)
      .front();
}

Table mapTable(MappedTable function, const Table& table, Where where) {
  std::vector<Array> inputs;
  for (const std::string& column : table.columns()) {
    inputs.push_back(table.column(column, where));
  }
  std::vector<ValueType> outputs;
  for (const MappedColumn& column : function.columns) {
    outputs.push_back({column.type, {}});
  }
  std::vector<Array> arrays = record({function.name, std::move(function.function), typesOf(inputs),
                                      std::move(outputs), function.mode, function.rows},
                                     inputs, where);
  std::vector<NamedArray> columns;
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    columns.push_back({function.columns[i].name, std::move(arrays[i])});
  }
  return tableOf(columns, where);
}

Array withDimension(const Array& array) {
  RowTraits traits = array.handle().traits;
  traits.trailing.push_back(1);
  return withTraits(array, std::move(traits));
}

void requireSameDimensions(std::string_view function, std::span<const Operand> inputs,
                           Where where) {
  const Array* first = nullptr;
  for (const Operand& input : inputs) {
    const auto* array = std::get_if<Array>(&input.value());
    if (array == nullptr || (array->isScalar() && array->trailing().empty())) {
      continue;
    }
    if (first != nullptr && first->trailing().size() != array->trailing().size()) {
      const auto dimensions = [](const Array& each) {
        return std::to_string(each.trailing().size() + (each.isScalar() ? 0 : 1));
      };
      const StackFrame line{where.file_name(), where.function_name(),
                            static_cast<int>(where.line())};
      raiseError("KALVEX:array:NotBroadcast",
                 {std::string(function), dimensions(*first), dimensions(*array)}, {line});
    }
    first = array;
  }
}

}  // namespace kv

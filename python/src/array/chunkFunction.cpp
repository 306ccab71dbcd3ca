// An exception of a user's function is passed on by the runtime as a plain value, perhaps as bytes.
// So the call that evaluates keeps it, under a number that its error has as an argument.

#include "array/chunkFunction.h"

#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "array/results.h"
#include "host/errors.h"
#include "host/evaluation.h"
#include "host/interpreter.h"
#include "host/pyObjects.h"
#include "host/texts.h"

namespace kv::python {

namespace {

constexpr std::string_view kPrefix = "KALVEX:python:";

[[noreturn]] void throwIntoArrays(nb::python_error& error, CallContext* caller) {
  const nb::handle exception = error.value();
  if (PyObject_IsInstance(exception.ptr(), PyExc_Exception) != 1) {
    throw PythonPassThrough(share(exception));
  }
  const std::string type = toUtf8(exception.type().attr("__name__"), "__name__");
  std::string text;
  try {
    text = toUtf8(nb::str(exception), "text");
  } catch (nb::python_error& failure) {
    failure.discard_as_unraisable("an exception that can't be converted to text");
  }
  std::vector<std::string> arguments;
  if (caller != nullptr) {
    arguments.push_back(std::to_string(caller->keep(exception)));
  }
  throw Error(std::string(kPrefix) + type, text, std::move(arguments));
}

/// The memory of a NumPy array, column-major.
class Buffer {
 public:
  explicit Buffer(nb::handle array) {
    if (PyObject_GetBuffer(array.ptr(), &view_, PyBUF_F_CONTIGUOUS | PyBUF_FORMAT) != 0) {
      throw nb::python_error();
    }
  }
  ~Buffer() { PyBuffer_Release(&view_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  const void* data() const { return view_.buf; }
  std::vector<std::size_t> dimensions() const { return {view_.shape, view_.shape + view_.ndim}; }
  template <class T>
  std::span<const T> elements() const {
    return {static_cast<const T*>(view_.buf), static_cast<std::size_t>(view_.len) / sizeof(T)};
  }

 private:
  Py_buffer view_{};
};

/// `array` is one that no one else changes.
NumberElements numbersOf(nb::handle array, std::vector<std::size_t>& dimensions) {
  const Buffer buffer(array);
  dimensions = buffer.dimensions();
  return {"", buffer.data(), share(array)};
}

template <class T>
std::vector<T> vectorOf(nb::handle array) {
  const Buffer buffer(array);
  const auto elements = buffer.elements<T>();
  return {elements.begin(), elements.end()};
}

}  // namespace

Elements toElements(nb::handle returned) {
  const auto result = nb::cast<nb::tuple>(returned);
  Elements elements;
  const std::string type = toUtf8(result[0], "a type");
  elements.type = nameOfType(type);
  if (type == "string") {
    const auto parts = nb::cast<nb::tuple>(result[1]);
    const auto bytes = vectorOf<std::uint8_t>(parts[1]);
    TextElements texts{vectorOf<std::int64_t>(parts[0]), std::string(bytes.begin(), bytes.end()),
                       vectorOf<std::uint8_t>(parts[2])};
    elements.dimensions = {texts.offsets.size() - 1};
    elements.elements = std::move(texts);
    return elements;
  }
  NumberElements numbers = numbersOf(result[1], elements.dimensions);
  numbers.type = elements.type;
  elements.elements = std::move(numbers);
  return elements;
}

namespace {

/// What a Python function returns for some inputs, by way of a function of `_chunks` that converts
/// both and takes `kind` as well.
class PythonCall {
 public:
  PythonCall(Known call, nb::handle function, nb::handle kind)
      : call_(call), function_(share(function)), kind_(share(kind)) {}

  /// `convert` gets what was returned.
  template <class Convert>
  auto operator()(const std::vector<Elements>& inputs, const Convert& convert) const {
    const ModuleScope scope;
    keepThreadState();
    const Lock lock;
    const UserCall userCall;
    try {
      nb::list values;
      for (const Elements& input : inputs) {
        values.append(toPython(input));
      }
      const nb::handle call = known(call_);
      const nb::object result = inUserCode(
          [&] { return call(nb::handle(function_.get()), values, nb::handle(kind_.get())); });
      return convert(result);
    } catch (nb::python_error& error) {
      throwIntoArrays(error, userCall.caller());
    }
  }

 private:
  Known call_;
  SharedPyObject function_;
  SharedPyObject kind_;
};

}  // namespace

ElementsFunction chunkFunction(nb::handle function, const std::string& type) {
  const PythonCall call(Known::CallChunkFunction, function, toPython(type));
  return [call](const std::vector<Elements>& inputs) { return call(inputs, toElements); };
}

TableFunction tableFunction(nb::handle function, std::vector<std::string> names,
                            const std::vector<MappedColumn>& columns) {
  nb::list returned;
  for (const MappedColumn& column : columns) {
    returned.append(nb::make_tuple(toPython(column.name), toPython(column.type)));
  }
  const nb::tuple kind = nb::make_tuple(names, returned);
  const PythonCall call(Known::CallTableFunction, function, kind);
  return [call](const std::vector<Elements>& inputs) {
    return call(inputs, [](nb::handle result) {
      std::vector<Elements> made;
      for (const nb::handle column : result) {
        made.push_back(toElements(column));
      }
      return made;
    });
  };
}

nb::object originalOf(const Error& error) {
  if (!std::string_view(error.identifier()).starts_with(kPrefix) || error.arguments().empty()) {
    return {};
  }
  const std::string& token = error.arguments().back();
  std::size_t number = 0;
  std::from_chars(token.data(), token.data() + token.size(), number);
  const CallContext* caller = CallContext::current();
  return caller != nullptr ? caller->raised(number) : nb::object();
}

}  // namespace kv::python

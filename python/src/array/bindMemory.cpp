// Arrays over the memory of NumPy and Arrow, and generated ones.

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "array/arrayCalls.h"
#include "array/chunkFunction.h"
#include "array/operands.h"
#include "array/results.h"
#include "host/interpreter.h"
#include "host/pyObjects.h"
#include "host/texts.h"
#include "kv/memory.h"

namespace kv::python {

namespace {

/// The memory of an array through Python's buffer protocol, held as long as it is read.
class Lent {
 public:
  explicit Lent(nb::handle array) {
    if (PyObject_GetBuffer(array.ptr(), &view_, PyBUF_RECORDS_RO) != 0) {
      throw nb::python_error();
    }
  }
  ~Lent() {
    ifAlive([this] { inUserCode([this] { PyBuffer_Release(&view_); }); });
  }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;

  const Py_buffer& view() const { return view_; }

 private:
  Py_buffer view_{};
};

Partitions cutInto(std::int64_t rows) { return {rows, {}}; }

Array fromNumpy(const ArraySession& self, nb::handle array, const std::string& type,
                std::int64_t chunkRows) {
  const auto lent = std::make_shared<const Lent>(array);
  const Py_buffer& view = lent->view();
  Memory memory;
  memory.type = nameOfType(type);
  memory.data = view.buf;
  memory.shape.assign(view.shape, view.shape + view.ndim);
  memory.strides.assign(view.strides, view.strides + view.ndim);
  memory.owner = lent;
  return inArrays(Line::Live, [&] {
    return self.session()->fromMemory(std::move(memory), cutInto(chunkRows));
  });
}

Array fromTexts(const ArraySession& self, const nb::list& texts, std::int64_t chunkRows) {
  std::vector<std::optional<std::string>> values;
  for (const nb::handle text : texts) {
    values.push_back(text.is_none() ? std::nullopt : std::optional(toUtf8(text, "a text")));
  }
  return inArrays(Line::Live, [&] {
    return self.session()->fromMemory(std::move(values), cutInto(chunkRows));
  });
}

Array generate(const ArraySession& self, nb::handle start, nb::handle stop, nb::handle step,
               const std::string& type) {
  const GeneratedOptions options{.type = type};
  if (PyLong_Check(start.ptr()) && PyLong_Check(stop.ptr()) && PyLong_Check(step.ptr())) {
    const auto first = nb::cast<std::int64_t>(start), last = nb::cast<std::int64_t>(stop);
    const auto by = nb::cast<std::int64_t>(step);
    return inArrays(Line::Live, [&] { return self.session()->arange(first, last, by, options); });
  }
  const auto first = nb::cast<double>(start), last = nb::cast<double>(stop);
  const auto by = nb::cast<double>(step);
  return inArrays(Line::Live, [&] { return self.session()->arange(first, last, by, options); });
}

Array linspace(const ArraySession& self, double start, double stop, std::int64_t rows,
               bool hasEndpoint) {
  return inArrays(Line::Live,
                  [&] { return self.session()->linspace(start, stop, rows, hasEndpoint); });
}

Array row(const ArraySession& self, nb::handle elements) {
  const Elements one = toElements(elements);
  return inArrays(Line::Live, [&] { return constantRow(*self.session(), one); });
}

Array fill(const ArraySession& self, std::int64_t rows, nb::handle value, const std::string& type,
           const std::vector<std::int64_t>& trailing) {
  const Operand operand = toOperand(value);
  const GeneratedOptions options{.type = type, .trailing = trailing};
  return inArrays(Line::Live, [&] { return self.session()->full(rows, operand, options); });
}

Table fromStream(const ArraySession& self, const nb::capsule& stream, bool isCollected) {
  auto* const arrow = static_cast<ArrowArrayStream*>(stream.data("arrow_array_stream"));
  const auto memory = isCollected ? StreamMemory::Collected : StreamMemory::Borrowed;
  return inArrays(Line::Live, [&] { return self.session()->fromArrow(arrow, {}, memory); });
}

}  // namespace

void bindMemory(nb::class_<ArraySession>& session) {
  session
      .def("from_numpy", fromNumpy,
           nb::sig("def from_numpy(self, array: object, type: str, chunk_rows: int) -> "
                   "ArrayHandle"))
      .def("from_texts", fromTexts,
           nb::sig("def from_texts(self, texts: list[str | None], chunk_rows: int) -> "
                   "ArrayHandle"))
      .def("arange", generate,
           nb::sig("def arange(self, start: float, stop: float, step: float, type: str) -> "
                   "ArrayHandle"))
      .def("full", fill,
           nb::sig("def full(self, rows: int, value: object, type: str, trailing: Sequence[int]) "
                   "-> ArrayHandle"))
      .def("linspace", linspace, nb::arg("start"), nb::arg("stop"), nb::arg("rows"),
           nb::arg("has_endpoint"))
      .def("row", row, nb::sig("def row(self, elements: tuple[str, object]) -> ArrayHandle"))
      .def("from_stream", fromStream,
           nb::sig("def from_stream(self, stream: object, is_collected: bool) -> TableHandle"));
}

}  // namespace kv::python

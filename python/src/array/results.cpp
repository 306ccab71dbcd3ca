#include "array/results.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <span>
#include <utility>
#include <variant>

#include "host/pyObjects.h"
#include "host/texts.h"

namespace kv::python {

namespace {

/// The read-only memory of a result, to which NumPy's arrays refer.
struct ElementMemory {
  const void* data = nullptr;
  std::size_t bytes = 0;
  std::shared_ptr<const void> owner;
};

int lendMemory(PyObject* self, Py_buffer* view, int flags) {
  if (!nb::inst_ready(self)) {
    view->obj = nullptr;
    PyErr_SetString(PyExc_BufferError, "an ElementMemory made by Python code has no elements");
    return -1;
  }
  const ElementMemory& memory = *nb::inst_ptr<ElementMemory>(self);
  return PyBuffer_FillInfo(view, self, const_cast<void*>(memory.data),
                           static_cast<Py_ssize_t>(memory.bytes), 1, flags);
}

struct NumberType {
  std::string_view name;
  const char* numpyName;
  std::size_t bytes;
};

constexpr NumberType kNumberTypes[] = {
    {"double", "float64", 8},
    {"single", "float32", 4},
    {"logical", "bool", 1},
    {"int8", "int8", 1},
    {"uint8", "uint8", 1},
    {"int16", "int16", 2},
    {"uint16", "uint16", 2},
    {"int32", "int32", 4},
    {"uint32", "uint32", 4},
    {"int64", "int64", 8},
    {"uint64", "uint64", 8},
    {"datetime", "datetime64[us]", 8},
    {"duration", "timedelta64[us]", 8},
};

const NumberType& numberType(std::string_view name) {
  const auto* found = std::ranges::find(kNumberTypes, name, &NumberType::name);
  assert(found != std::end(kNumberTypes));
  return *found;
}

/// A column-major array over memory that `owner` keeps.
nb::object arrayOver(const void* data, std::span<const std::size_t> dimensions,
                     const NumberType& type, std::shared_ptr<const void> owner) {
  nb::list shape;
  std::size_t bytes = type.bytes;
  for (const std::size_t extent : dimensions) {
    shape.append(extent);
    bytes *= extent;
  }
  const nb::tuple extents(shape);
  return bytes == 0 ? known(Known::EmptyArray)(extents, type.numpyName)
                    : known(Known::ArrayOf)(extents, type.numpyName,
                                            ElementMemory{data, bytes, std::move(owner)});
}

nb::object payloadOf(const NumberElements& numbers, std::span<const std::size_t> dimensions) {
  return arrayOver(numbers.data, dimensions, numberType(numbers.type), numbers.owner);
}

nb::object payloadOf(const TextElements& given, std::span<const std::size_t>) {
  const auto texts = std::make_shared<const TextElements>(given);
  const auto over = [&](const void* data, std::size_t count, std::string_view type) {
    return arrayOver(data, std::span(&count, 1), numberType(type), texts);
  };
  return nb::make_tuple(over(texts->offsets.data(), texts->offsets.size(), "int64"),
                        over(texts->bytes.data(), texts->bytes.size(), "uint8"),
                        over(texts->validity.data(), texts->validity.size(), "uint8"));
}

}  // namespace

std::string_view nameOfType(std::string_view type) {
  return type == "string" ? std::string_view("string") : numberType(type).name;
}

nb::tuple toPython(const Elements& elements) {
  const auto payload = [&](const auto& each) { return payloadOf(each, elements.dimensions); };
  return nb::make_tuple(toPython(elements.type), elements.isScalar,
                        std::visit(payload, elements.elements));
}

nb::tuple toPython(const Facts& facts) {
  return nb::make_tuple(facts.rows, facts.passes, facts.seconds, facts.peakBytes,
                        facts.memoryPeakBytes, facts.memoryLimitBytes, facts.skippedRows,
                        facts.spilledBytes, facts.spillLevels);
}

void bindResults(nb::module_& module) {
  static PyType_Slot slots[] = {{Py_bf_getbuffer, reinterpret_cast<void*>(lendMemory)},
                                {0, nullptr}};
  nb::class_<ElementMemory>(module, "ElementMemory", nb::type_slots(slots),
                            "The elements of a result, to which arrays refer.");
}

}  // namespace kv::python

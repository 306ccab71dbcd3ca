// Arrays are shared between NumPy and the host without a copy whenever that is safe, that is, when
// nothing can write the memory. Proving this takes most of the code: NumPy's own flags are not
// enough, because the owner of a read-only view may be writable. From the host to NumPy no copy is
// needed: host values are immutable, and a Memory object keeps the value alive as long as the
// array.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "interpreter.h"
#include "kv/host/elementTypes.h"
#include "kv/host/errors.h"
#include "kv/runtime/timeValues.h"
#include "pyObjects.h"
#include "values.h"

namespace kv::python {

namespace {

struct NumberType {
  kxClassID classId;
  const char* name;  ///< in NumPy
  char kind;         ///< 'b' logical, 'i' signed, 'u' unsigned, 'f' floating
  std::uint8_t bytes;
};

template <class T>
constexpr NumberType numberType(const char* name) {
  const char kind = std::is_same_v<T, bool>       ? 'b'
                    : std::is_floating_point_v<T> ? 'f'
                    : std::is_signed_v<T>         ? 'i'
                                                  : 'u';
  return {host::kClassOf<T>, name, kind, sizeof(T)};
}

constexpr std::array kNumberTypes = {
    numberType<bool>("bool"),
    numberType<double>("float64"),
    numberType<float>("float32"),
    numberType<std::int8_t>("int8"),
    numberType<std::int16_t>("int16"),
    numberType<std::int32_t>("int32"),
    numberType<std::int64_t>("int64"),
    numberType<std::uint8_t>("uint8"),
    numberType<std::uint16_t>("uint16"),
    numberType<std::uint32_t>("uint32"),
    numberType<std::uint64_t>("uint64"),
};

const NumberType& typeOf(kxClassID classId) {
  for (const NumberType& type : kNumberTypes) {
    if (type.classId == classId) {
      return type;
    }
  }
  throw nb::type_error("the value isn't numeric");
}

/// The read-only elements of a host value, to which NumPy's arrays refer.
struct Memory {
  host::Value value;
};

int lendMemory(PyObject* self, Py_buffer* view, int flags) {
  if (!nb::inst_ready(self)) {
    view->obj = nullptr;
    PyErr_SetString(PyExc_BufferError, "a Memory made by Python code has no elements");
    return -1;
  }
  const kxArray* value = nb::inst_ptr<Memory>(self)->value.get();
  const std::size_t bytes = kxGetNumberOfElements(value) * typeOf(kxGetClassID(value)).bytes;
  return PyBuffer_FillInfo(view, self, const_cast<void*>(kxGetData(value)),
                           static_cast<Py_ssize_t>(bytes), 1, flags);
}

/// An array's memory through Python's buffer protocol.
class Buffer {
 public:
  explicit Buffer(nb::handle array) {
    if (PyObject_GetBuffer(array.ptr(), &view_, PyBUF_RECORDS_RO) != 0) {
      PyErr_Clear();
      refuse(array);
    }
  }
  ~Buffer() {
    ifAlive([this] { inUserCode([this] { PyBuffer_Release(&view_); }); });
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  const Py_buffer& view() const { return view_; }
  [[noreturn]] static void refuse(nb::handle array) {
    const nb::object type = array.attr("dtype");
    PyErr_Format(PyExc_TypeError,
                 "an array or scalar of type %S isn't accepted; expected bool, int8 to int64, "
                 "uint8 to uint64, float32, float64, datetime64 or timedelta64 (which need the "
                 "runtime)",
                 type.ptr());
    throw nb::python_error();
  }

 private:
  Py_buffer view_{};
};

char kindOf(char format) {
  constexpr std::string_view kSigned = "bhilqn";
  constexpr std::string_view kUnsigned = "BHILQN";
  return format == '?'                                      ? 'b'
         : kSigned.find(format) != std::string_view::npos   ? 'i'
         : kUnsigned.find(format) != std::string_view::npos ? 'u'
         : format == 'f' || format == 'd'                   ? 'f'
                                                            : '\0';
}

bool isForeignOrder(std::string_view format) {
  return !format.empty() && (format.front() == '>' || format.front() == '!');
}

/// The class of a buffer's elements; null if there is none.
const NumberType* typeOf(const Py_buffer& view) {
  std::string_view format = view.format != nullptr ? view.format : "B";
  if (!format.empty() && std::string_view("@=<>!").find(format.front()) != std::string_view::npos) {
    format.remove_prefix(1);
  }
  const char kind = format.size() == 1 ? kindOf(format.front()) : '\0';
  for (const NumberType& type : kNumberTypes) {
    if (type.kind == kind && type.bytes == view.itemsize) {
      return &type;
    }
  }
  return nullptr;
}

/// At least two dimensions: a scalar is 1-by-1, a vector a column.
std::vector<std::size_t> dimensionsOf(const Py_buffer& view) {
  std::vector<std::size_t> dimensions(view.shape, view.shape + view.ndim);
  dimensions.resize(dimensions.size() < 2 ? 2 : dimensions.size(), 1);
  return dimensions;
}

bool isColumnMajor(const Py_buffer& view) {
  const auto address = reinterpret_cast<std::uintptr_t>(view.buf);
  return PyBuffer_IsContiguous(&view, 'F') != 0 &&
         address % static_cast<std::uintptr_t>(view.itemsize) == 0;
}

/// A view of other numbers may claim to be bool. Bytes other than 0 and 1 are refused.
void requireLogicals(const Py_buffer& view) {
  const std::span bytes(static_cast<const std::uint8_t*>(view.buf),
                        static_cast<std::size_t>(view.len));
  unsigned largest = 0;
  for (const std::uint8_t byte : bytes) {
    largest = std::max<unsigned>(largest, byte);
  }
  if (largest > 1) {
    const std::string text =
        "elements of a bool array must be the bytes 0 or 1, got " + std::to_string(largest);
    throw nb::value_error(text.c_str());
  }
}

host::Value copied(const Py_buffer& view, kxClassID classId) {
  host::Value array = matrix::from_kalvex(kxCreateNumericArray(dimensionsOf(view), classId));
  if (view.len > 0) {
    std::memcpy(kxGetMutableData(array.get()), view.buf, static_cast<std::size_t>(view.len));
  }
  return array;
}

/// True if the memory of a read-only array can't be written: it belongs to that array or to one of
/// which it is a view, all of them read-only; to `bytes`; or to a value of the host.
bool isFixed(nb::handle array) {
  const nb::object owner = known(Known::OwnerOf)(array);
  return PyBytes_CheckExact(owner.ptr()) || isA(owner, Known::NumpyArray) ||
         instanceOf<Memory>(owner) != nullptr;
}

/// `mayBorrow`: nothing else changes the memory.
host::Value arrayToHost(nb::handle array, bool mayBorrow) {
  auto buffer = std::make_shared<const Buffer>(array);
  const Py_buffer& view = buffer->view();
  const NumberType* type = typeOf(view);
  if (type == nullptr) {
    Buffer::refuse(array);
  }
  if (isForeignOrder(view.format) || !isColumnMajor(view)) {
    return arrayToHost(known(Known::CopyToColumns)(array), true);
  }
  if (type->classId == kxLOGICAL_CLASS) {
    requireLogicals(view);
  }
  const bool hasOneElement = view.len <= view.itemsize;
  if (!hasOneElement && (mayBorrow || (view.readonly != 0 && isFixed(array)))) {
    return matrix::from_kalvex(
        kxCreateBorrowedArray(dimensionsOf(view), type->classId, view.buf, std::move(buffer)));
  }
  return copied(view, type->classId);
}

/// Their classes are the runtime's, so a session without it refuses them.
host::Value timesToHost(runtime::ElementType type, nb::handle array) {
  host::Value microseconds = arrayToHost(known(Known::Microseconds)(array), false);
  try {
    return runtime::makeTimes(type, std::move(microseconds));
  } catch (const Torvane::KException::KExceptionEnvelope& error) {
    if (host::errorRecord(error).identifier == "KALVEX:UndefinedFunction") {
      Buffer::refuse(array);
    }
    throw;
  }
}

nb::object scalarToPython(const kxArray* value) {
  switch (kxGetClassID(value)) {
    case kxDOUBLE_CLASS:
      return nb::float_(kxGetScalar(value));
    case kxLOGICAL_CLASS:
      return nb::bool_(kxGetScalar(value) != 0);
    default:
      break;
  }
  const NumberType& type = typeOf(kxGetClassID(value));
  return known(Known::NumpyScalar)(
      type.name, nb::bytes(static_cast<const char*>(kxGetData(value)), type.bytes));
}

nb::tuple shapeOf(const kxArray* value) {
  nb::list dimensions;
  for (const std::size_t extent : kxGetDimensions(value)) {
    dimensions.append(extent);
  }
  return nb::tuple(dimensions);
}

}  // namespace

host::Value numbersToHost(nb::handle array) {
  const bool isPlain = array.type().is(known(Known::NumpyArray));
  if (!isPlain && isA(array, Known::MaskedArray)) {
    throw nb::type_error("a masked array isn't accepted: fill it first");
  }
  const nb::object elements =
      isA(array, Known::NumpyGeneric) ? array.attr("__array__")() : nb::borrow(array);
  const std::string kind = nb::cast<std::string>(elements.attr("dtype").attr("kind"));
  if (kind == "M") {
    return timesToHost(runtime::ElementType::DateTime, elements);
  }
  return kind == "m" ? timesToHost(runtime::ElementType::Duration, elements)
                     : arrayToHost(elements, false);
}

nb::object numbersToPython(const kxArray* value) {
  if (kxIsScalar(value)) {
    return scalarToPython(value);
  }
  const char* type = typeOf(kxGetClassID(value)).name;
  if (kxIsEmpty(value)) {
    return known(Known::EmptyArray)(shapeOf(value), type);
  }
  return known(Known::ArrayOf)(shapeOf(value), type, Memory{matrix::sharedCopy(value)});
}

nb::object timesToPython(const runtime::TimeArray& times) {
  const bool isMoment = times.type == runtime::ElementType::DateTime;
  return numbersToPython(times.microseconds.get()).attr("view")(isMoment ? "M8[us]" : "m8[us]");
}

void bindNumbers(nb::module_& module) {
  static PyType_Slot slots[] = {{Py_bf_getbuffer, reinterpret_cast<void*>(lendMemory)},
                                {0, nullptr}};
  nb::class_<Memory>(module, "Memory", nb::type_slots(slots),
                     "The elements of a value of the host, to which arrays refer.");
}

}  // namespace kv::python

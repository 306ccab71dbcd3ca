// Conversion runs user code at almost every step: iterating a container, asking for a shape,
// converting an element. That code may change the container. So containers are copied first, sizes
// are checked after the copy, and exact types are tested without `isinstance`, which could run user
// code as well.

#include <algorithm>
#include <functional>
#include <numeric>

#include "Function.h"
#include "Object.h"
#include "callables.h"
#include "errors.h"
#include "pyObjects.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

using host::Value;

Value intToHost(nb::handle value) {
  const double number = PyLong_AsDouble(value.ptr());
  if (number == -1.0 && PyErr_Occurred() != nullptr) {
    throw nb::python_error();
  }
  const nb::object exact = nb::steal(PyLong_FromDouble(number));
  if (PyObject_RichCompareBool(exact.ptr(), value.ptr(), Py_EQ) != 1) {
    PyErr_Format(PyExc_OverflowError, "the int %S has no exact value as a double", value.ptr());
    throw nb::python_error();
  }
  return host::makeDouble(number);
}

Value stringToHost(nb::handle text) { return matrix::create(toUtf16(text)); }

Value charsToHost(nb::handle text) { return matrix::createChars(toUtf16(text)); }

/// The shape of an array-like; an array of one dimension is a row.
class Shape {
 public:
  explicit Shape(nb::handle object) {
    const nb::object shape = object.attr("shape");
    for (const nb::handle extent : shape) {
      extents_.push_back(nb::cast<std::size_t>(extent));
    }
    while (extents_.size() < 2) {
      extents_.insert(extents_.begin(), 1);
    }
  }

  std::size_t rows() const { return extents_[0]; }
  /// The product of all extents but the first.
  std::size_t columns() const {
    return std::accumulate(extents_.begin() + 1, extents_.end(), std::size_t{1},
                           std::multiplies<>());
  }
  /// True if the shape has `count` elements. Computes no product, which could overflow.
  bool hasElements(std::size_t count) const {
    if (std::ranges::find(extents_, 0u) != extents_.end()) {
      return count == 0;
    }
    for (const std::size_t extent : extents_) {
      if (count % extent != 0) {
        return false;
      }
      count /= extent;
    }
    return count == 1;
  }
  /// Applies the shape to an array that was made with this number of rows and columns.
  void giveTo(const Value& array) const {
    if (extents_.size() > 2) {
      kxSetDimensions(array.get(), extents_);
    }
  }

 private:
  std::vector<std::size_t> extents_;
};

/// Elements of an object of that shape, column by column, in a tuple that nothing else changes.
/// Errors: ValueError if the number of elements differs from the shape.
nb::tuple elementsOf(nb::handle object, const Shape& shape) {
  nb::tuple elements(object.attr("_columnwise")());
  if (!shape.hasElements(nb::len(elements))) {
    PyErr_Format(PyExc_ValueError, "a value of type %s has %zu elements, which isn't its shape",
                 Py_TYPE(object.ptr())->tp_name, nb::len(elements));
    throw nb::python_error();
  }
  return elements;
}

Value charMatrixToHost(nb::handle chars) {
  std::vector<std::u16string> rows;
  for (const nb::handle row : chars) {
    rows.push_back(toUtf16(row));
  }
  const std::size_t width = rows.empty() ? 0 : rows.front().size();
  if (std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.size() != width; })) {
    throw nb::value_error("rows of Chars must have the same length in UTF-16");
  }
  const std::size_t dimensions[] = {rows.size(), width};
  Value array = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxCHAR_CLASS));
  if (!kxIsEmpty(array.get())) {
    auto* units = static_cast<char16_t*>(kxGetMutableData(array.get()));
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (std::size_t j = 0; j < width; ++j) {
        units[j * rows.size() + i] = rows[i][j];
      }
    }
  }
  return array;
}

Value stringArrayToHost(nb::handle strings) {
  const Shape shape(strings);
  const nb::tuple elements = elementsOf(strings, shape);
  Value array = Torvane::String::createStringArray(shape.rows(), shape.columns());
  shape.giveTo(array);
  std::size_t index = 0;
  for (const nb::handle text : elements) {
    if (!text.is_none()) {
      Torvane::String::setString(array.get(), index, toUtf16(text));
    }
    ++index;
  }
  return array;
}

Value cellToHost(std::size_t rows, std::size_t columns, const nb::tuple& elements) {
  Value cell = matrix::from_kalvex(kxCreateCellMatrix(rows, columns));
  std::size_t index = 0;
  for (const nb::handle element : elements) {
    kxSetCell(cell.get(), index++, toHost(element).release());
  }
  return cell;
}

Value rowToHost(const nb::tuple& elements) { return cellToHost(1, nb::len(elements), elements); }

Value shapedCellToHost(nb::handle cell) {
  const Shape shape(cell);
  const nb::tuple elements = elementsOf(cell, shape);
  Value made = cellToHost(shape.rows(), shape.columns(), elements);
  shape.giveTo(made);
  return made;
}

std::vector<std::string> fieldNames(nb::handle names) {
  std::vector<std::string> fields;
  for (const nb::handle name : names) {
    fields.push_back(toUtf8(name, "a key of a dict for a structure"));
  }
  return fields;
}

Value emptyStructure(std::size_t rows, std::size_t columns,
                     const std::vector<std::string>& fields) {
  const std::vector<std::string_view> names(fields.begin(), fields.end());
  return matrix::from_kalvex(kxCreateStructMatrix(rows, columns, names));
}

/// A copy. It can't change, whatever code the conversion of its values runs.
nb::dict recordOf(nb::handle dict) {
  if (!PyDict_Check(dict.ptr())) {
    PyErr_Format(PyExc_TypeError, "a record of a StructArray must be a dict, not %s",
                 Py_TYPE(dict.ptr())->tp_name);
    throw nb::python_error();
  }
  PyObject* copy = PyDict_Copy(dict.ptr());
  if (copy == nullptr) {
    throw nb::python_error();
  }
  return nb::steal<nb::dict>(copy);
}

void fillStructure(const Value& structure, std::size_t index, const nb::dict& record) {
  for (const auto [key, value] : record) {
    const std::string field = toUtf8(key, "a key of a dict for a structure");
    kxSetField(structure.get(), index, field, toHost(value).release());
  }
}

Value dictToHost(nb::handle dict) {
  const nb::dict record = recordOf(dict);
  Value structure = emptyStructure(1, 1, fieldNames(record));
  fillStructure(structure, 0, record);
  return structure;
}

Value structArrayToHost(nb::handle records) {
  const Shape shape(records);
  const nb::tuple elements = elementsOf(records, shape);
  Value structure =
      emptyStructure(shape.rows(), shape.columns(), fieldNames(records.attr("fields")));
  shape.giveTo(structure);
  std::size_t index = 0;
  for (const nb::handle record : elements) {
    fillStructure(structure, index++, recordOf(record));
  }
  return structure;
}

Value objectArrayToHost(nb::handle objects) {
  const std::string className = toUtf8(objects.attr("class_name"), "class_name");
  const Shape shape(objects);
  const nb::tuple elements = elementsOf(objects, shape);
  Value array = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
      shape.rows(), shape.columns(), kcos::internal::makeInterned(kcos::NameRef::of(className))));
  std::size_t index = 0;
  for (const nb::handle element : elements) {
    if (!element.is_none()) {
      const kxArray* object = lentObject(element);
      if (object == nullptr || !kxIsA(object, kcos::NameRef::of(className))) {
        PyErr_Format(PyExc_TypeError, "element %zu of the ObjectArray isn't a host.Object of %s",
                     index, className.c_str());
        throw nb::python_error();
      }
      kcos::omSetArrayElement(array.get(), index, kcos::omGetArrayElement(object, 0).get());
    }
    ++index;
  }
  return array;
}

/// The conversions by Python class, in the order in which they are tried.
struct Conversion {
  Known type;
  Value (*toHost)(nb::handle);
};

constexpr Conversion kConversions[] = {
    {Known::Cell, shapedCellToHost},         {Known::NumpyArray, numbersToHost},
    {Known::NumpyGeneric, numbersToHost},    {Known::Chars, charMatrixToHost},
    {Known::StringArray, stringArrayToHost}, {Known::StructArray, structArrayToHost},
    {Known::ObjectArray, objectArrayToHost},
};

Value otherToHost(nb::handle value) {
  if (const Function* function = instanceOf<Function>(value)) {
    return function->toHost();
  }
  for (const Conversion& conversion : kConversions) {
    if (isA(value, conversion.type)) {
      return conversion.toHost(value);
    }
  }
  if (PyCallable_Check(value.ptr()) != 0) {
    return callableToHost(value);
  }
  PyErr_Format(PyExc_TypeError,
               "a value of type %s isn't accepted; expected None, bool, int, float, str, a NumPy "
               "array or scalar of bool or real numbers, list, tuple, dict, a callable, or a value "
               "of kvbigdata.host",
               Py_TYPE(value.ptr())->tp_name);
  throw nb::python_error();
}

}  // namespace

const kxArray* lentObject(nb::handle value) {
  const Object* object = instanceOf<Object>(value);
  if (object != nullptr && object->session() != Use::current()) {
    raiseInPython("KALVEX:session:OtherSession");
  }
  return object != nullptr ? object->array() : nullptr;
}

Value toHost(nb::handle value) {
  PyObject* object = value.ptr();
  if (object == Py_None) {
    return nullptr;
  }
  if (PyBool_Check(object)) {
    return host::makeLogical(object == Py_True);
  }
  if (PyFloat_Check(object)) {
    return host::makeDouble(PyFloat_AS_DOUBLE(object));
  }
  if (PyLong_Check(object)) {
    return intToHost(value);
  }
  if (const kxArray* lent = lentObject(value)) {
    return matrix::sharedCopy(lent);
  }
  if (PyUnicode_Check(object)) {
    return isA(value, Known::String) ? stringToHost(value) : charsToHost(value);
  }
  const Nesting nesting;
  if (PyList_Check(object)) {
    return rowToHost(nb::tuple(value));
  }
  if (PyTuple_Check(object)) {
    return rowToHost(nb::borrow<nb::tuple>(value));
  }
  if (PyDict_Check(object)) {
    return dictToHost(value);
  }
  return otherToHost(value);
}

}  // namespace kv::python

#include "texts.h"

#include <algorithm>

namespace kv::python {

namespace {

template <class T>
std::u16string widened(PyObject* text, const T* units) {
  return std::u16string(units, units + PyUnicode_GET_LENGTH(text));
}

void appendCodePoint(std::u16string& text, Py_UCS4 point) {
  if (point < 0x10000) {
    text.push_back(static_cast<char16_t>(point));
    return;
  }
  text.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
  text.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

nb::str checked(PyObject* made) {
  if (made == nullptr) {
    throw nb::python_error();
  }
  return nb::steal<nb::str>(made);
}

}  // namespace

std::u16string toUtf16(nb::handle handle) {
  PyObject* text = handle.ptr();
  if (!PyUnicode_Check(text)) {
    PyErr_Format(PyExc_TypeError, "a text must be a str, not %s", Py_TYPE(text)->tp_name);
    throw nb::python_error();
  }
  const void* data = PyUnicode_DATA(text);
  switch (PyUnicode_KIND(text)) {
    case PyUnicode_1BYTE_KIND:
      return widened(text, static_cast<const Py_UCS1*>(data));
    case PyUnicode_2BYTE_KIND:
      return widened(text, static_cast<const Py_UCS2*>(data));
    default:
      break;
  }
  std::u16string result;
  const auto* points = static_cast<const Py_UCS4*>(data);
  std::for_each(points, points + PyUnicode_GET_LENGTH(text),
                [&](Py_UCS4 point) { appendCodePoint(result, point); });
  return result;
}

nb::str toPython(std::u16string_view text) {
  const bool isPlain = std::none_of(text.begin(), text.end(),
                                    [](char16_t unit) { return unit >= 0xD800 && unit < 0xE000; });
  const auto size = static_cast<Py_ssize_t>(text.size());
  if (isPlain) {
    return checked(PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, text.data(), size));
  }
  int littleEndian = -1;
  return checked(PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()), 2 * size,
                                       "surrogatepass", &littleEndian));
}

std::string toUtf8(nb::handle text, const char* role) {
  if (!PyUnicode_Check(text.ptr())) {
    PyErr_Format(PyExc_TypeError, "%s must be a str, not %s", role, Py_TYPE(text.ptr())->tp_name);
    throw nb::python_error();
  }
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (utf8 == nullptr) {
    throw nb::python_error();
  }
  return {utf8, static_cast<std::size_t>(size)};
}

nb::str toPython(std::string_view utf8) {
  return checked(
      PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "replace"));
}

}  // namespace kv::python

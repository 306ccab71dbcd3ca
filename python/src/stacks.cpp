#include "stacks.h"

#include <algorithm>
#include <string_view>

namespace kv::python {
namespace {

std::string_view textOf(PyObject* text) {
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(text, &size);
  if (utf8 == nullptr) {
    PyErr_Clear();
    return "?";
  }
  return {utf8, static_cast<std::size_t>(size)};
}

/// The folder of this package with its separator; kept for good.
std::string_view packageFolder() {
  static const std::string& folder = *new std::string([] {
    const auto file = nb::cast<nb::str>(nb::module_::import_("kvbigdata").attr("__file__"));
    const std::string_view path = textOf(file.ptr());
    return std::string(path.substr(0, path.rfind('/') + 1));
  }());
  return folder;
}

void addFrame(std::vector<host::Frame>& frames, PyCodeObject* code, int line) {
  const std::string_view file = textOf(code->co_filename);
  if (!file.starts_with(packageFolder())) {
    frames.push_back({std::string(file), std::string(textOf(code->co_name)), line});
  }
}

template <class T>
nb::object owned(T* object) {
  return nb::steal(reinterpret_cast<PyObject*>(object));
}

PyFrameObject* frameOf(const nb::object& object) {
  return reinterpret_cast<PyFrameObject*>(object.ptr());
}

}  // namespace

std::vector<host::Frame> pythonStack() {
  std::vector<host::Frame> frames;
  const nb::detail::cleanup_guard python;
  if (!python) {
    return frames;
  }
  nb::object frame = owned(PyThreadState_GetFrame(PyThreadState_Get()));
  while (frame.is_valid()) {
    const nb::object code = owned(PyFrame_GetCode(frameOf(frame)));
    addFrame(frames, reinterpret_cast<PyCodeObject*>(code.ptr()),
             PyFrame_GetLineNumber(frameOf(frame)));
    frame = owned(PyFrame_GetBack(frameOf(frame)));
  }
  return frames;
}

std::vector<host::Frame> tracebackFrames(nb::handle exception) {
  std::vector<host::Frame> frames;
  nb::object traceback = nb::steal(PyException_GetTraceback(exception.ptr()));
  while (traceback.is_valid() && !traceback.is_none()) {
    const nb::object frame = traceback.attr("tb_frame");
    const nb::object code = owned(PyFrame_GetCode(frameOf(frame)));
    addFrame(frames, reinterpret_cast<PyCodeObject*>(code.ptr()),
             nb::cast<int>(traceback.attr("tb_lineno")));
    traceback = traceback.attr("tb_next");
  }
  std::reverse(frames.begin(), frames.end());
  return frames;
}

}  // namespace kv::python

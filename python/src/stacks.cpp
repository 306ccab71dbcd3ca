#include "stacks.h"

#include <algorithm>
#include <string_view>

#include "pyObjects.h"

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

bool isOurs(PyCodeObject* code) { return textOf(code->co_filename).starts_with(packageFolder()); }

void addFrame(std::vector<host::Frame>& frames, PyCodeObject* code, int line) {
  if (!isOurs(code)) {
    frames.push_back(
        {std::string(textOf(code->co_filename)), std::string(textOf(code->co_name)), line});
  }
}

template <class T>
nb::object owned(T* object) {
  return nb::steal(reinterpret_cast<PyObject*>(object));
}

PyFrameObject* frameOf(const nb::object& object) {
  return reinterpret_cast<PyFrameObject*>(object.ptr());
}

/// Calls `visit(code, frame)` from the innermost frame outwards.
template <class Visit>
void walkFrames(Visit&& visit) {
  nb::object frame = owned(PyThreadState_GetFrame(PyThreadState_Get()));
  while (frame.is_valid()) {
    const nb::object code = owned(PyFrame_GetCode(frameOf(frame)));
    visit(reinterpret_cast<PyCodeObject*>(code.ptr()), frameOf(frame));
    frame = owned(PyFrame_GetBack(frameOf(frame)));
  }
}

/// A place is a code object and an offset in it.
class PythonFrames : public host::StackSource {
 public:
  void capture(std::vector<host::StackPlace>& places) override {
    if (const nb::detail::cleanup_guard python{}) {
      walkFrames([&](PyCodeObject* code, PyFrameObject* frame) {
        if (!isOurs(code)) {
          places.push_back({code, PyFrame_GetLasti(frame)});
        }
      });
    }
  }

  host::Frame resolve(const host::StackPlace& place) override {
    const nb::gil_scoped_acquire python;
    const nb::handle object =
        static_cast<PyObject*>(const_cast<void*>(place.code));  // captured as one
    kept_.push_back(share(object));
    auto* code = reinterpret_cast<PyCodeObject*>(object.ptr());
    return {std::string(textOf(code->co_filename)), std::string(textOf(code->co_name)),
            PyCode_Addr2Line(code, place.position)};
  }

 private:
  std::vector<SharedPyObject> kept_;  ///< so that no other code gets the address of a known one
};

}  // namespace

std::unique_ptr<host::StackSource> makeStackSource() { return std::make_unique<PythonFrames>(); }

std::vector<host::Frame> pythonStack() {
  std::vector<host::Frame> frames;
  walkFrames([&](PyCodeObject* code, PyFrameObject* frame) {
    addFrame(frames, code, PyFrame_GetLineNumber(frame));
  });
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

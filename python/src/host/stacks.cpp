// The user's stack is captured whenever an operation is recorded, so a capture must cost far less
// than building frames with names and lines. It records only the identity of each code object and
// the offset in it. The host asks for names and lines only for a stack that it hasn't seen before,
// right after the capture, while the frames are still alive.

#include "stacks.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "interpreter.h"
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

std::string fileOf(const char* module) {
  const auto file = nb::cast<nb::str>(nb::module_::import_(module).attr("__file__"));
  return std::string(textOf(file.ptr()));
}

/// The folder of a package with its separator.
std::string folderOf(const char* package) {
  const std::string path = fileOf(package);
  return path.substr(0, path.rfind('/') + 1);
}

bool isOurs(PyCodeObject* code) {
  static const std::string& folder = *new std::string(folderOf("kvbigdata"));  // never freed
  return textOf(code->co_filename).starts_with(folder);
}

/// False for code that only passes a user's call on to this package: NumPy, whose functions may
/// call methods of arrays, and the decorators in it.
bool isUsers(PyCodeObject* code) {
  static const std::string& numpy = *new std::string(folderOf("numpy"));
  static const std::string& decorators = *new std::string(fileOf("contextlib"));
  const std::string_view file = textOf(code->co_filename);
  return !isOurs(code) && !file.starts_with(numpy) && file != decorators;
}

void addFrame(std::vector<host::Frame>& frames, PyCodeObject* code, int line) {
  frames.push_back(
      {std::string(textOf(code->co_filename)), std::string(textOf(code->co_name)), line});
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

/// A number, as a pointer, that identifies a code object forever; null for code that isn't the
/// user's. (An address can be reused for other code, and keeping all captured code alive would be a
/// leak.)
const void* idOf(PyCodeObject* code) {
#if PY_VERSION_HEX >= 0x030C0000
  static const Py_ssize_t index = PyUnstable_Eval_RequestCodeExtraIndex(nullptr);
  const auto get = PyUnstable_Code_GetExtra;
  const auto set = PyUnstable_Code_SetExtra;
#else
  static const Py_ssize_t index = _PyEval_RequestCodeExtraIndex(nullptr);
  const auto get = _PyCode_GetExtra;
  const auto set = _PyCode_SetExtra;
#endif
  static constexpr std::uintptr_t kNotUsers = 1;
  static std::uintptr_t last = kNotUsers;
  auto* const object = reinterpret_cast<PyObject*>(code);
  void* id = nullptr;
  if (get(object, index, &id) != 0 || id == nullptr) {
    id = reinterpret_cast<void*>(isUsers(code) ? ++last : kNotUsers);
    if (set(object, index, id) != 0) {
      PyErr_Clear();  // the next capture assigns another number
    }
  }
  return reinterpret_cast<std::uintptr_t>(id) == kNotUsers ? nullptr : id;
}

/// A place is the number of a code object and an offset in it.
class PythonFrames : public host::StackSource {
 public:
  void capture(std::vector<host::StackPlace>& places) override {
    latest_.clear();
    ifAlive([&] {
      walkFrames([&](PyCodeObject* code, PyFrameObject* frame) {
        if (const void* id = idOf(code)) {
          latest_.emplace_back(id, code);
          places.push_back({id, PyFrame_GetLasti(frame)});
        }
      });
    });
  }

  host::Frame resolve(const host::StackPlace& place) override {
    const Lock lock;
    PyCodeObject* code = std::ranges::find(latest_, place.code, &Captured::first)->second;
    return {std::string(textOf(code->co_filename)), std::string(textOf(code->co_name)),
            PyCode_Addr2Line(code, place.position)};
  }

 private:
  using Captured = std::pair<const void*, PyCodeObject*>;

  std::vector<Captured> latest_;  ///< frames of the last capture, alive until they return
};

}  // namespace

std::unique_ptr<host::StackSource> makeStackSource() { return std::make_unique<PythonFrames>(); }

std::vector<host::Frame> pythonStack() {
  std::vector<host::Frame> frames;
  walkFrames([&](PyCodeObject* code, PyFrameObject* frame) {
    if (isUsers(code)) {
      addFrame(frames, code, PyFrame_GetLineNumber(frame));
    }
  });
  return frames;
}

std::vector<host::Frame> tracebackFrames(nb::handle exception) {
  std::vector<host::Frame> frames;
  nb::object traceback = nb::steal(PyException_GetTraceback(exception.ptr()));
  while (traceback.is_valid() && !traceback.is_none()) {
    const nb::object frame = traceback.attr("tb_frame");
    const nb::object code = owned(PyFrame_GetCode(frameOf(frame)));
    auto* const called = reinterpret_cast<PyCodeObject*>(code.ptr());
    if (!isOurs(called)) {
      addFrame(frames, called, nb::cast<int>(traceback.attr("tb_lineno")));
    }
    traceback = traceback.attr("tb_next");
  }
  std::reverse(frames.begin(), frames.end());
  return frames;
}

}  // namespace kv::python

#include "array/userStack.h"

#include <utility>
#include <vector>

#include "host/stacks.h"

namespace kv::python {

namespace {

class PythonStack : public UserStack {
 public:
  void capture(std::vector<CodePlace>& places) override {
    captured_.clear();
    source_->capture(captured_);
    for (const host::StackPlace& place : captured_) {
      places.push_back({place.code, place.position});
    }
  }

  StackFrame resolve(const CodePlace& place) override {
    host::Frame frame = source_->resolve({place.code, place.position});
    return {std::move(frame.file), std::move(frame.name), frame.line};
  }

 private:
  std::unique_ptr<host::StackSource> source_ = makeStackSource();
  std::vector<host::StackPlace> captured_;
};

}  // namespace

std::unique_ptr<UserStack> makeUserStack() { return std::make_unique<PythonStack>(); }

}  // namespace kv::python

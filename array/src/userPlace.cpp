#include "kv/userPlace.h"

#include <utility>
#include <vector>

#include "publicCall.h"

namespace kv {

namespace {

/// A front end's stack as the host asks for it.
class HostStack : public host::StackSource {
 public:
  explicit HostStack(std::unique_ptr<UserStack> stack) : stack_(std::move(stack)) {}

  void capture(std::vector<host::StackPlace>& places) override {
    captured_.clear();
    stack_->capture(captured_);
    for (const CodePlace& place : captured_) {
      places.push_back({place.code, place.position});
    }
  }

  host::Frame resolve(const host::StackPlace& place) override {
    StackFrame frame = stack_->resolve({place.code, place.position});
    return {std::move(frame.file), std::move(frame.name), frame.line};
  }

 private:
  std::unique_ptr<UserStack> stack_;
  std::vector<CodePlace> captured_;
};

}  // namespace

UserPlace::UserPlace(Session& session, StackFrame place) : session_(session) {
  const std::lock_guard lease(session_.impl().mutex);
  translated([&] {
    const host::Frame frame = {std::move(place.file), std::move(place.name), place.line};
    session_.impl().host.setStackProvider([frame] { return std::vector<host::Frame>{frame}; });
  });
}

UserPlace::~UserPlace() {
  const std::lock_guard lease(session_.impl().mutex);
  session_.impl().host.setStackProvider(nullptr);
}

UserStack::~UserStack() = default;

void setUserStack(Session& session, std::unique_ptr<UserStack> stack) {
  const std::lock_guard lease(session.impl().mutex);
  translated(
      [&] { session.impl().host.setStackSource(std::make_unique<HostStack>(std::move(stack))); });
}

}  // namespace kv

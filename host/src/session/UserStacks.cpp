// Each recorded operation keeps the user's stack, so capturing one must be a walk and a few look-
// ups. Frames are interned, and so are stacks: a stack is a node in a tree whose parent is the
// stack without its innermost frame. A place in code (an address or a code object, and a line)
// leads from a node to the next without building its text. The array that users see is built once
// per distinct stack.

#include "session/UserStacks.h"

#include <string_view>

#include "kv/host/StackHold.h"
#include "session/SessionState.h"

namespace kv::host {

namespace {

/// The name in a function's signature: "int kv::Foo::bar(double) const" gives "kv::Foo::bar".
std::string_view functionNameOf(std::string_view signature) {
  const std::string_view head = signature.substr(0, signature.find('('));
  const std::size_t blank = head.rfind(' ');
  const std::string_view name = blank == std::string_view::npos ? head : head.substr(blank + 1);
  return name.empty() ? signature : name;
}

std::size_t mix(std::size_t hash, std::size_t more) {
  return (hash ^ more) * 0x9E3779B97F4A7C15ull;
}

template <class T>
std::size_t bitsOf(const T* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer) >> 3;
}

}  // namespace

std::size_t UserStacks::Hash::operator()(const Step& step) const noexcept {
  return mix(mix(0, bitsOf(step.from)), bitsOf(step.frame));
}

std::size_t UserStacks::Hash::operator()(const Place& place) const noexcept {
  return mix(mix(mix(mix(0, bitsOf(place.from)), bitsOf(place.file)), bitsOf(place.function)),
             place.line);
}

std::size_t UserStacks::Hash::operator()(const Frame& frame) const noexcept {
  const std::hash<std::string_view> text;
  return mix(mix(text(frame.file), text(frame.name)), static_cast<std::size_t>(frame.line));
}

UserStacks::UserStacks() : current_(&nodes_.emplace_back()) {}

UserStacks::Node* UserStacks::step(Node* from, const Frame& frame) {
  const Frame& interned = *frames_.insert(frame).first;
  Node*& to = steps_[{from, &interned}];
  if (to == nullptr) {
    to = &nodes_.emplace_back(Node{from, &interned, nullptr});
  }
  return to;
}

void UserStacks::open(const std::source_location& where) {
  Node*& to = places_[{current_, where.file_name(), where.function_name(), where.line()}];
  if (to == nullptr) {
    to = step(current_, {where.file_name(), std::string(functionNameOf(where.function_name())),
                         static_cast<int>(where.line())});
  }
  current_ = to;
}

void UserStacks::close() noexcept {
  if (current_->parent != nullptr) {
    current_ = current_->parent;
  }
}

UserStacks::Node* UserStacks::liveOf(StackSource& source) {
  captured_.clear();
  source.capture(captured_);
  Node* stack = &nodes_.front();
  if (places_.size() > kMaxPlaces) {
    places_.clear();  // dropped code never comes back
  }
  for (auto place = captured_.rbegin(); place != captured_.rend(); ++place) {
    Node*& to = places_[{stack, place->code, nullptr, static_cast<unsigned>(place->position)}];
    if (to == nullptr) {
      to = step(stack, source.resolve(*place));
    }
    stack = to;
  }
  return stack;
}

bool UserStacks::hold() {
  if (held_ != nullptr) {
    return false;
  }
  held_ = live();
  return true;
}

UserStacks::Node* UserStacks::live() {
  if (held_ != nullptr) {
    return held_;
  }
  if ((!provider_ && !source_) || isAsking_) {
    return current_;
  }
  isAsking_ = true;
  const std::unique_ptr<bool, void (*)(bool*)> asked(&isAsking_, [](bool* flag) { *flag = false; });
  if (source_ != nullptr) {
    return liveOf(*source_);
  }
  const std::vector<Frame> frames = provider_();
  Node* stack = &nodes_.front();
  for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
    stack = step(stack, *frame);
  }
  return stack;
}

std::vector<Frame> UserStacks::frames() { return framesOf(*live()); }

std::vector<Frame> UserStacks::framesOf(const Node& stack) {
  std::vector<Frame> frames;
  for (const Node* at = &stack; at->frame != nullptr; at = at->parent) {
    frames.push_back(*at->frame);
  }
  return frames;
}

Value UserStacks::array() {
  Node* stack = live();
  if (stack->array == nullptr) {
    stack->array = arrayOf(framesOf(*stack));
  }
  return matrix::sharedCopy(stack->array.get());
}

Value UserStacks::arrayOf(const std::vector<Frame>& stack) {
  static constexpr std::string_view kFields[] = {"file", "name", "line"};
  Value array = matrix::from_kalvex(kxCreateStructMatrix(stack.size(), 1, kFields));
  for (std::size_t i = 0; i < stack.size(); ++i) {
    kxSetField(array.get(), i, "file", makeChars(stack[i].file).release());
    kxSetField(array.get(), i, "name", makeChars(stack[i].name).release());
    kxSetField(array.get(), i, "line", makeDouble(stack[i].line).release());
  }
  return array;
}

void UserStacks::clear() noexcept {
  provider_ = nullptr;
  source_ = nullptr;
  for (Node& node : nodes_) {
    node.array = nullptr;
  }
}

CallSite::CallSite(const std::source_location& where) : session_(currentSession()) {
  if (session_ != nullptr) {
    session_->stacks.open(where);
  }
}

CallSite::~CallSite() {
  if (session_ != nullptr) {
    session_->stacks.close();
  }
}

StackHold::StackHold() : session_(&requireSession()) {
  if (!session_->stacks.hold()) {
    session_ = nullptr;
  }
}

StackHold::~StackHold() {
  if (session_ != nullptr) {
    session_->stacks.release();
  }
}

}  // namespace kv::host

kxArray* inGetKfunctionStack(int /*skipInternal*/, int /*withNames*/, int /*flags*/) {
  return matrix::to_kalvex(kv::host::requireSession().stacks.array());
}

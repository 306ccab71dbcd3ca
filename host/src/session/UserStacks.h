#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <source_location>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kv/host/errors.h"
#include "kv/host/session.h"
#include "kv/host/values.h"

namespace kv::host {

/// The user stacks of a session.
///
/// Frames are interned, and so are stacks: a stack is a node whose parent is the stack without its
/// innermost frame. The array of a stack is made once, when it is first asked for.
class UserStacks {
 public:
  using Provider = std::function<std::vector<Frame>()>;

  UserStacks();
  UserStacks(const UserStacks&) = delete;
  UserStacks& operator=(const UserStacks&) = delete;

  void setProvider(Provider provider) { provider_ = std::move(provider); }
  void setSource(std::unique_ptr<StackSource> source) { source_ = std::move(source); }

  /// Pushes a frame on the stack of open call sites.
  void open(const std::source_location& where);
  void close() noexcept;

  /// The live stack stays as it is until `release`.
  /// Result: false if it is held already.
  bool hold();
  void release() noexcept { held_ = nullptr; }

  /// The live stack, innermost frame first.
  std::vector<Frame> frames();
  /// The live stack as an n-by-1 structure with the fields "file", "name" and "line".
  Value array();

  /// A stack as such a structure.
  static Value arrayOf(const std::vector<Frame>& stack);

  /// Drops all values and the provider.
  void clear() noexcept;

 private:
  /// Beyond it places are forgotten, and looked up by their frames when they occur again.
  static constexpr std::size_t kMaxPlaces = 64 * 1024;

  struct Node {
    Node* parent = nullptr;
    const Frame* frame = nullptr;  ///< innermost; null for the empty stack
    Value array;
  };
  /// A step from a stack to the one with one more frame.
  struct Step {
    const Node* from;
    const Frame* frame;
    bool operator==(const Step&) const = default;
  };
  /// The same, before the frame is known: by the addresses that the compiler gave it, or by a
  /// source's code.
  struct Place {
    const Node* from;
    const void* file;
    const void* function;
    unsigned line;
    bool operator==(const Place&) const = default;
  };
  struct Hash {
    std::size_t operator()(const Step& step) const noexcept;
    std::size_t operator()(const Place& place) const noexcept;
    std::size_t operator()(const Frame& frame) const noexcept;
  };
  struct SameFrame {
    bool operator()(const Frame& a, const Frame& b) const noexcept {
      return a.line == b.line && a.name == b.name && a.file == b.file;
    }
  };

  Node* step(Node* from, const Frame& frame);
  Node* live();
  Node* liveOf(StackSource& source);
  static std::vector<Frame> framesOf(const Node& stack);

  Provider provider_;
  std::unique_ptr<StackSource> source_;
  std::vector<StackPlace> captured_;  ///< reused memory
  bool isAsking_ = false;             ///< the provider runs; an error in it must not call it again
  std::unordered_set<Frame, Hash, SameFrame> frames_;
  std::deque<Node> nodes_;
  std::unordered_map<Step, Node*, Hash> steps_;
  std::unordered_map<Place, Node*, Hash> places_;
  Node* current_;
  Node* held_ = nullptr;
};

}  // namespace kv::host

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "kv/host/session.h"
#include "kv/host/values.h"

namespace kv::runtime {

/// The lazy graph among the objects of a file, as numbers: each object is identified by its
/// position in the list of objects. Read through properties, as any code of the host would.
///
/// Lives: independently. Threads: that of the session, while it is read.
class LoadedGraph {
 public:
  /// No object, or an object that isn't from the file.
  static constexpr std::size_t kNothing = static_cast<std::size_t>(-1);
  static constexpr std::size_t kElsewhere = static_cast<std::size_t>(-2);

  struct Closure {
    std::size_t object = 0;
    std::size_t firstLink = 0;  ///< its inputs, then its outputs, are in `links` from here on
    std::size_t numInputs = 0;
    std::size_t numOutputs = 0;
    double numOperationOutputs = 0;
  };
  struct Promise {
    std::size_t object = 0;
    std::size_t closure = kNothing;
    std::size_t future = kNothing;
    double outputIndex = 0;
    bool isDone = false;
  };
  struct Future {
    std::size_t object = 0;
    std::size_t promise = kNothing;
  };

  /// Result: the refusal of the first object that lacks a required one, or has one of the wrong
  ///         class instead.
  /// Cost:   linear; no recursion.
  std::optional<host::LoadRefusal> read(std::span<const kxArray* const> objects);

  std::span<const Closure> closures() const { return closures_; }
  std::span<const Promise> promises() const { return promises_; }
  std::span<const Future> futures() const { return futures_; }

  /// The futures that a closure reads; the promises that it makes.
  std::span<const std::size_t> inputsOf(const Closure& closure) const {
    return std::span(links_).subspan(closure.firstLink, closure.numInputs);
  }
  std::span<const std::size_t> outputsOf(const Closure& closure) const {
    return std::span(links_).subspan(closure.firstLink + closure.numInputs, closure.numOutputs);
  }

  /// By the number of an object; null for no object, or one of another kind.
  const Closure* closureAt(std::size_t object) const { return at(closures_, object); }
  const Promise* promiseAt(std::size_t object) const { return at(promises_, object); }
  const Future* futureAt(std::size_t object) const { return at(futures_, object); }

 private:
  class Reader;

  template <class Node>
  const Node* at(const std::vector<Node>& nodes, std::size_t object) const {
    if (object >= positions_.size() || positions_[object] >= nodes.size()) {
      return nullptr;
    }
    const Node& node = nodes[positions_[object]];
    return node.object == object ? &node : nullptr;
  }

  std::vector<Closure> closures_;
  std::vector<Promise> promises_;
  std::vector<Future> futures_;
  std::vector<std::size_t> links_;
  std::vector<std::size_t> positions_;  ///< of each object, among those of its kind
};

}  // namespace kv::runtime

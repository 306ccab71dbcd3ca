#pragma once

#include "RawFile.h"

namespace kv::test {

/// A lazy graph in a file: a future of the one output of a closure, whose input is a completed
/// promise. Everything that a hostile file may change is a member.
///
/// Objects have fixed positions, so any member may refer to any of them.
struct RawGraph {
  static constexpr Reference kFuture = Reference::object(0);
  static constexpr Reference kPromise = Reference::object(1);
  static constexpr Reference kClosure = Reference::object(2);
  static constexpr Reference kOperation = Reference::object(3);
  static constexpr Reference kInput = Reference::object(4);
  static constexpr Reference kInputPromise = Reference::object(5);
  static constexpr Reference kThing = Reference::object(6);

  Reference futurePromise = kPromise;
  Reference promiseClosure = kClosure;
  Reference promiseFuture = kFuture;
  double outputIndex = 1;
  Reference operation = kOperation;
  Reference input = kInput;
  Reference output = kPromise;

  /// Adds the graph to an empty file.
  void addTo(RawFile& file) const;
};

}  // namespace kv::test

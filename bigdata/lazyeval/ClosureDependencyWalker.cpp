// The walk must visit every node of a closure (its promises and their futures) exactly once, in an
// order that is the same on every run, and must survive a chain of a million operations. So it
// keeps its own stack, and each entry records why the node was pushed: from its producer (only the
// way down remains), from its consumer (only the way up remains), as a root (both), or to be listed
// now that its dependencies are. A closure is open between its first and its last visit; reaching
// an open closure again means that it depends on itself.

#include "lazyeval/ClosureDependencyWalker.h"

#include <utility>

#include "foundation/i18n.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;

namespace {

/// Address of the native object of a node, which must be live.
const void* address(const ClosureGraphNode& node) {
  return std::visit([](const auto& pointer) -> const void* { return &*pointer; }, node);
}

}  // namespace

void ClosureDependencyWalker::walk(ClosureGraphNode root) {
  pushUnlessVisited(std::move(root), Phase::Start);
  run();
}

void ClosureDependencyWalker::run() {
  while (!stack_.empty()) {
    const Entry entry = std::move(stack_.back());
    stack_.pop_back();
    if (!isFinished(address(entry.node))) {
      std::visit([&](const auto& node) { visit(node, entry.phase); }, entry.node);
    }
  }
}

void ClosureDependencyWalker::visit(const KalvexManagedPtr<Closure>& closure, Phase phase) {
  if (phase == Phase::Finish) {
    finish(closure);
    return;
  }
  if (states_.contains(closure.get())) {
    throwInternalError("Closure " + fl::i18n::to_string(closure->getIdStr()) +
                       " depends on itself");
  }
  for (const auto& promise : closure->getOutputPromises()) {
    pushUnlessVisited(promise.lock(), Phase::Forward);
  }
  bool hasPendingInputs = false;
  for (const auto& input : closure->getInputFutures()) {
    KalvexManagedPtr<ClosureFuture> future = input.lock();
    if (isFinished(&*future)) {
      continue;
    }
    if (!hasPendingInputs) {
      hasPendingInputs = true;
      states_.emplace(closure.get(), State::Open);
      push(closure, Phase::Finish);
    }
    push(std::move(future), Phase::Backward);
  }
  if (!hasPendingInputs) {
    finish(closure);
  }
}

void ClosureDependencyWalker::visit(const KalvexManagedPtr<ClosureFuture>& future, Phase phase) {
  if (phase == Phase::Forward || phase == Phase::Finish) {
    finish(future);
    return;
  }
  KalvexManagedPtr<ClosurePromise> promise = future->getPromise().lock();
  if (isFinished(&*promise)) {
    finish(future);
    return;
  }
  push(future, Phase::Finish);
  push(std::move(promise), Phase::Backward);
}

void ClosureDependencyWalker::visit(const KalvexManagedPtr<ClosurePromise>& promise, Phase phase) {
  // A root needs both this and what follows. A promise that was reached from its consumer needs
  // only the latter: its future is already on the stack.
  if (phase == Phase::Start || phase == Phase::Forward) {
    pushUnlessVisited(promise->getFuture().lock(), Phase::Forward);
  }
  if (phase == Phase::Forward || phase == Phase::Finish || promise->isDone()) {
    finish(promise);
    return;
  }
  KalvexManagedPtr<Closure> closure = promise->getClosure().lock();
  if (isFinished(&*closure)) {
    finish(promise);
    return;
  }
  push(promise, Phase::Finish);
  push(std::move(closure), Phase::Backward);
}

bool ClosureDependencyWalker::isFinished(const void* node) const {
  const auto state = states_.find(node);
  return state != states_.end() && state->second == State::Finished;
}

void ClosureDependencyWalker::push(ClosureGraphNode node, Phase phase) {
  stack_.push_back(Entry{std::move(node), phase});
}

void ClosureDependencyWalker::pushUnlessVisited(ClosureGraphNode node, Phase phase) {
  if (!isFinished(address(node))) {
    push(std::move(node), phase);
  }
}

void ClosureDependencyWalker::finish(ClosureGraphNode node) {
  states_[address(node)] = State::Finished;
  nodes_.push_back(std::move(node));
}

}  // namespace bigdata::lazyeval

#pragma once

/// The kinds of objects in the lazy graph, for headers that only refer to them.
///
/// Edges: a closure leads through its inputs to futures, a future to its promise, and a promise to
/// the closure that completes it, until the promise releases it.
namespace bigdata::lazyeval {

class Closure;
class ClosureFuture;
class ClosurePromise;
class Operation;

}  // namespace bigdata::lazyeval

#pragma once

/// The kinds of objects that the lazy graph is made of, for headers that only refer to them.
///
/// Edges: a closure leads by its inputs to futures, a future to its promise, a promise to the
/// closure that completes it, until the promise lets go of it.
namespace bigdata::lazyeval {

class Closure;
class ClosureFuture;
class ClosurePromise;
class Operation;

}  // namespace bigdata::lazyeval

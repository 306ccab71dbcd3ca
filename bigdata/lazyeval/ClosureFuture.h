#pragma once

#include <string>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyPtr.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata::lazyeval {

/// A consumer's handle to a value that may not exist yet.
///
/// Its only state is its promise, which `ClosurePromise::swap` can exchange without telling any
/// consumer. So its id is the promise's.
///
/// Errors: each read raises "KALVEX:class:InvalidHandle" if the promise was deleted.
class ClosureFuture final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.ClosureFuture";

  /// Without a promise, for load.
  explicit ClosureFuture(const ki::KalvexManagedConstructInfo& info);
  ClosureFuture(const ki::KalvexManagedConstructInfo& info,
                ki::KalvexManagedPtr<ClosurePromise> promise);

  const ki::PropertyPtr<ClosurePromise>& getPromise() const { return promise_; }
  void setPromise(ki::KalvexManagedPtr<ClosurePromise> promise);

  std::u16string getIdStr() const;
  bool isDone() const;
  /// The promise's value; null until it is done.
  const kxArray* getValue() const;

 private:
  ki::PropertyPtr<ClosurePromise> promise_;
};

}  // namespace bigdata::lazyeval

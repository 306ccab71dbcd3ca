#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"
#include "lazyeval/lazyGraph.h"
#include "util/UniqueIdFactory.h"

namespace bigdata::lazyeval {

/// One output of a closure: the slot for its value, and whether the value is there yet.
///
/// | state               | IsDone | IsPartitionIndependent | Closure |
/// |---------------------|--------|------------------------|---------|
/// | pending, independent| false  | true                   | set     |
/// | pending, dependent  | false  | false                  | set     |
/// | done, cut           | true   | true                   | null    |
/// | done, kept          | true   | false                  | set     |
///
/// 1. A value is stored once. A done promise stays done, except for the load of a kept promise.
/// 2. A done promise that is partition independent releases its closure, and so everything
///    upstream. The closure still refers to the promise.
/// 3. Property setters store without checks: they serve load. `setValue` and
///    `setPartitionIndependent` enforce the rules.
class ClosurePromise final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.ClosurePromise";
  static constexpr std::string_view kIdPrefix = "ClosurePromise";

  /// Pending and empty, for load.
  explicit ClosurePromise(const ki::KalvexManagedConstructInfo& info);

  /// Pending, with a future of its own. `argoutIndex` counts the closure's outputs from 1.
  ClosurePromise(const ki::KalvexManagedConstructInfo& info, ki::KalvexManagedPtr<Closure> closure,
                 std::size_t argoutIndex, bool isPartitionIndependent);

  /// Done and partition independent, with a future of its own.
  ClosurePromise(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr value);

  std::u16string getId() const;
  void setId(std::u16string id);
  std::u16string getIdStr() const;

  const ki::PropertyPtr<Closure>& getClosure() const { return closure_; }
  void setClosure(ki::KalvexManagedPtr<Closure> closure);

  std::size_t getArgoutIndex() const { return argoutIndex_; }
  void setArgoutIndex(std::size_t index) { argoutIndex_ = index; }

  const ki::PropertyPtr<ClosureFuture>& getFuture() const { return future_; }
  void setFuture(ki::KalvexManagedPtr<ClosureFuture> future);

  const kxArray* getCachedValue() const { return cachedValue_.get(); }
  void setCachedValue(matrix::ArrayPtr value);

  bool isDone() const { return isDone_; }
  void setIsDone(bool isDone) { isDone_ = isDone; }

  bool isPartitionIndependent() const { return isPartitionIndependent_; }
  void setIsPartitionIndependent(bool flag) { isPartitionIndependent_ = flag; }

  const kxArray* getMetadata() const { return metadata_.get(); }
  void setMetadata(matrix::ArrayPtr metadata);

  /// Completes the promise.
  /// Errors: an internal error if it is done already; nothing changes then.
  void setValue(matrix::ArrayPtr value);

  /// Errors: an internal error if `flag` is false and the promise is done.
  void setPartitionIndependent(bool flag);

  /// Exchanges futures with `other`, so that each takes over the other's consumers. Everything else
  /// stays where it is, including `Metadata`.
  void swap(ki::KalvexManagedPtr<ClosurePromise> other);

  /// Restores a legal state after load: a value that depends on partitions is dropped.
  void onLoaded();

 private:
  void releaseClosure() { closure_.reset(); }

  util::UniqueId id_;
  ki::PropertyPtr<Closure> closure_;
  std::size_t argoutIndex_ = 0;
  bool isPartitionIndependent_ = true;
  bool isDone_ = false;
  ki::PropertyArrayPtr cachedValue_;
  ki::PropertyPtr<ClosureFuture> future_;
  ki::PropertyArrayPtr metadata_;
};

}  // namespace bigdata::lazyeval

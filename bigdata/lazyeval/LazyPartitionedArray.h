#pragma once

#include <cstddef>
#include <tuple>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"
#include "lazyeval/lazyGraph.h"

namespace bigdata {
class PartitionMetadata;
}

namespace bigdata::lazyeval {

/// The parts of an array; none of them is null.
struct ArrayConstructionArgs {
  ki::KalvexManagedPtr<ClosureFuture> future;
  ki::KalvexManagedPtr<PartitionMetadata> metadata;
  matrix::ArrayPtr executor;
};

/// A partitioned array that may not have been computed yet: its future value, its partitioning, and
/// the executor that will run it. It holds no data.
///
/// A chain of array, future, promise, closure, input future and so on lives for as long as the host
/// holds an array at its end.
///
/// Errors: every use raises "KALVEX:class:InvalidHandle" if a link leads to a deleted object or, in
///         a default-constructed array, nowhere.
class LazyPartitionedArray final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";

  /// An empty shell, for the host's class system.
  explicit LazyPartitionedArray(const ki::KalvexManagedConstructInfo& info);

  /// Notifies the executor that it is in use ("keepAlive").
  LazyPartitionedArray(const ki::KalvexManagedConstructInfo& info, ArrayConstructionArgs args);

  const ki::PropertyPtr<ClosureFuture>& getValueFuture() const { return valueFuture_; }
  void setValueFuture(ki::KalvexManagedPtr<ClosureFuture> future);

  /// How the value is partitioned.
  /// Errors: "KALVEX:class:InvalidHandle" if the metadata was deleted.
  ki::KalvexManagedPtr<PartitionMetadata> getPartitionMetadata() const;
  /// The property, which can be read even if the metadata was deleted.
  const ki::PropertyPtr<PartitionMetadata>& partitionMetadata() const { return partitionMetadata_; }
  void setPartitionMetadata(ki::KalvexManagedPtr<PartitionMetadata> metadata);

  /// The executor given at construction.
  const kxArray* getStoredExecutor() const { return executor_.get(); }

  /// The executor in force: the host's override if there is one, else the stored one. Not cached.
  matrix::ArrayPtr getExecutor() const;

  /// Whether the executor in force can still run this array.
  bool isValid() const;

  /// The number of partitions that the executor in force chooses for the array's strategy.
  std::size_t numpartitions() const;

  /// Metadata of the value, stored in its promise; null until set.
  const kxArray* hGetMetadata() const;
  void hSetMetadata(matrix::ArrayPtr metadata);

  // A preview of the value, set once while the value is pending. It belongs to this array alone and
  // remains readable as a property when the value is there.

  const kxArray* getPreviewData() const { return previewData_.get(); }
  bool isPreviewTruncated() const { return isPreviewTruncated_; }
  bool hasCachedPreviewData() const { return hasPreviewData_; }

  /// The preview, null if there is none, and whether it is only the head of the value.
  /// Errors: an internal error if the value is there.
  std::tuple<const kxArray*, bool> getCachedPreviewData() const;

  /// Errors: an internal error if the value is there, or a preview is; nothing changes then.
  void setCachedPreviewData(matrix::ArrayPtr data, bool isTruncated);

  /// The promise of the array's future.
  ClosurePromise& promise() const;

 private:
  ki::PropertyPtr<ClosureFuture> valueFuture_;
  ki::PropertyPtr<PartitionMetadata> partitionMetadata_;
  ki::PropertyArrayPtr executor_;
  bool hasPreviewData_ = false;
  bool isPreviewTruncated_ = false;
  ki::PropertyArrayPtr previewData_;
};

}  // namespace bigdata::lazyeval

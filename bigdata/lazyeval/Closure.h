#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ki/KalvexManagedObject.h"
#include "ki/KalvexManagedPtr.h"
#include "ki/PropertyPtr.h"
#include "ki/conversions.h"
#include "lazyeval/lazyGraph.h"
#include "util/UniqueIdFactory.h"

namespace bigdata::lazyeval {

/// A node of the lazy graph: an operation bound to the futures that it reads, with one promise for
/// each of its outputs. Creating one moves no data.
///
/// All links are PropertyPtrs: a closure lives while the host can reach it, usually from an array
/// through its future and promise. It is complete when its constructor ends and immutable from then
/// on, except for the setters, which serve load and copy.
class Closure final : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.lazyeval.Closure";
  static constexpr std::string_view kIdPrefix = "Closure";

  /// An operation with more outputs than this is taken for a mistake.
  static constexpr std::size_t kMaxOutputs = std::size_t{1} << 20;

  /// An empty closure, for load.
  explicit Closure(const ki::KalvexManagedConstructInfo& info);

  /// All outputs are partition independent.
  Closure(const ki::KalvexManagedConstructInfo& info,
          std::vector<ki::KalvexManagedPtr<ClosureFuture>> inputFutures,
          ki::KalvexManagedPtr<Operation> operation);

  /// `isPartitionIndependent` has one flag for all outputs or one per output; "not given" means
  /// `true`.
  ///
  /// Errors: an internal error for any other number of flags;
  ///         "KALVEX:CountTooLarge" if the operation has more than `kMaxOutputs` outputs.
  Closure(const ki::KalvexManagedConstructInfo& info,
          std::vector<ki::KalvexManagedPtr<ClosureFuture>> inputFutures,
          ki::KalvexManagedPtr<Operation> operation,
          ki::typed_row_vector<bool> isPartitionIndependent);

  const util::UniqueId& uniqueId() const { return id_; }
  std::u16string getId() const;
  void setId(std::u16string id);
  std::u16string getIdStr() const;

  const ki::PropertyPtr<Operation>& getOperation() const { return operation_; }
  void setOperation(ki::KalvexManagedPtr<Operation> operation);

  const std::vector<ki::PropertyPtr<ClosureFuture>>& getInputFutures() const {
    return inputFutures_;
  }
  void setInputFutures(std::vector<ki::KalvexManagedPtr<ClosureFuture>> futures);

  const std::vector<ki::PropertyPtr<ClosurePromise>>& getOutputPromises() const {
    return outputPromises_;
  }
  void setOutputPromises(std::vector<ki::KalvexManagedPtr<ClosurePromise>> promises);

  /// The distinct closures that must run before this one: the producers of inputs that aren't done.
  /// A set in unspecified order.
  ///
  /// Errors: "KALVEX:class:InvalidHandle" for a deleted object on the way.
  std::vector<ki::KalvexManagedPtr<Closure>> getDirectDependencies() const;

 private:
  util::UniqueId id_;
  ki::PropertyPtr<Operation> operation_;
  std::vector<ki::PropertyPtr<ClosureFuture>> inputFutures_;
  std::vector<ki::PropertyPtr<ClosurePromise>> outputPromises_;
};

}  // namespace bigdata::lazyeval

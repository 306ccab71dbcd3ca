#pragma once

#include "ki/KalvexManagedObject.h"
#include "ki/PropertyArrayPtr.h"

namespace bigdata {

/// Settings of an operation.
class PartitionedArrayOptions : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName = "kalvex.bigdata.internal.PartitionedArrayOptions";

  /// The defaults.
  explicit PartitionedArrayOptions(const ki::KalvexManagedConstructInfo& info);
  /// From name-value pairs: "RequiresRandState", "RandStreamFactory", "PassTaggedInputs".
  /// Errors: those of the name-value list and of the logical conversion.
  PartitionedArrayOptions(const ki::KalvexManagedConstructInfo& info, int nrhs,
                          const kxArray** prhs);

  /// The operation uses the global random stream.
  bool getRequiresRandState() const { return requiresRandState_; }
  void setRequiresRandState(bool value) { requiresRandState_ = value; }

  /// An alias of the same flag.
  bool getRequiresGlobalState() const { return requiresRandState_; }

  /// A host object that makes a random stream for each partition; null for none.
  const kxArray* getRandStreamFactory() const { return randStreamFactory_.get(); }
  void setRandStreamFactory(matrix::ArrayPtr value);

  /// Stored for host code; not used here.
  bool getPassTaggedInputs() const { return passTaggedInputs_; }
  void setPassTaggedInputs(bool value) { passTaggedInputs_ = value; }

 private:
  bool requiresRandState_ = false;
  ki::PropertyArrayPtr randStreamFactory_;
  bool passTaggedInputs_ = false;
};

}  // namespace bigdata

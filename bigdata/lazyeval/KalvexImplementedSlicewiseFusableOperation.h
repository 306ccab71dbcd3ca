#pragma once

#include "lazyeval/SlicewiseFusableOperation.h"

namespace kcos {
class COSClient;
}

namespace bigdata::lazyeval {

struct OperationArguments;

/// The native part of a slicewise fusable operation class that is written in the host's language.
/// Direct evaluation is always refused, whatever the class defines.
///
/// Errors: both questions raise an internal error if the class lacks the method, and
///         "KALVEX:validateattributes:invalidType" if the method returns a value of the wrong type.
class KalvexImplementedSlicewiseFusableOperation final : public SlicewiseFusableOperation {
 public:
  /// `client` has the rights of the class; it lives as long as the class.
  KalvexImplementedSlicewiseFusableOperation(const ki::KalvexManagedConstructInfo& info,
                                             const OperationArguments& arguments,
                                             const kcos::COSClient* client);

  matrix::ArrayPtr createExecutionTasks(const kxArray* first, const kxArray* second) override;
  ki::KalvexManagedPtr<FunctionHandle> getCheckedFunctionHandle() const override;
  bool isSlicewiseFusable() const override;

 private:
  matrix::ArrayPtr ask(kcos::NameRef method) const;

  const kcos::COSClient* client_;
};

}  // namespace bigdata::lazyeval

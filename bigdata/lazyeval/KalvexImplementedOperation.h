#pragma once

#include "lazyeval/Operation.h"

namespace kcos {
class COSClient;
}

namespace bigdata::lazyeval {

struct OperationArguments;

/// The native part of an operation class that is written in the host's language. Each virtual
/// operation calls the host object's method of the same name.
class KalvexImplementedOperation final : public Operation {
 public:
  /// `client` has the rights of the class; it lives as long as the class.
  KalvexImplementedOperation(const ki::KalvexManagedConstructInfo& info,
                             const OperationArguments& arguments, const kcos::COSClient* client);

  matrix::ArrayPtr createExecutionTasks(const kxArray* first, const kxArray* second) override;

 protected:
  /// A class that claims direct evaluation but lacks the method gets empty outputs and no error.
  void directEvaluateImpl(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) override;

 private:
  const kcos::COSClient* client_;
};

}  // namespace bigdata::lazyeval

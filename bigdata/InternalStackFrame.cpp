#include "InternalStackFrame.h"

#include <utility>

#include "kcos/calls.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/checkCounts.h"
#include "kv/bigdata.h"
#include "util/SessionSlot.h"

namespace bigdata {

namespace {

using matrix::ArrayPtr;

/// The session's snapshot; null if there is none.
struct UserStack {
  ArrayPtr snapshot;
};

/// Null if there is none.
const kxArray* snapshot() {
  const UserStack* stack = util::findSessionSlot<UserStack, UserStack>();
  return stack == nullptr ? nullptr : stack->snapshot.get();
}

void setSnapshot(ArrayPtr stack) {
  util::sessionSlot<UserStack, UserStack>([] { return UserStack{}; }).snapshot = std::move(stack);
}

ArrayPtr liveStack() { return matrix::from_kalvex(inGetKfunctionStack(1, 1, 0)); }

/// Stores a snapshot unless there is one already: `stack`, or the live stack for null.
/// Result: whether it was stored.
bool claimSnapshot(ArrayPtr stack) {
  if (snapshot() != nullptr) {
    return false;
  }
  setSnapshot(stack != nullptr ? std::move(stack) : liveStack());
  return true;
}

class InternalStackFrameCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<InternalStackFrame> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    ki::CosClassBuilder<InternalStackFrame>(cls)
        .constructor(ki::Access::Public)
        .constructor<ArrayPtr>(ki::Access::Public);
  }
};

const ki::ClassKcosRegistration<InternalStackFrameCosClassInfo> registration;

}  // namespace

ArrayPtr getUserStack() {
  const kxArray* standing = snapshot();
  return standing != nullptr ? matrix::sharedCopy(standing) : liveStack();
}

InternalStackFrame::InternalStackFrame(const ki::KalvexManagedConstructInfo& info)
    : InternalStackFrame(info, nullptr) {}

InternalStackFrame::InternalStackFrame(const ki::KalvexManagedConstructInfo& info, ArrayPtr stack)
    : KalvexManagedObject(info), isOutermostFrame_(claimSnapshot(std::move(stack))) {}

InternalStackFrame::~InternalStackFrame() {
  if (isOutermostFrame_) {
    setSnapshot(nullptr);
  }
}

void hasInternalStackFramesBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray**) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 0, 0);
  plhs[0] = ki::toArray(snapshot() != nullptr);
}

void userStackBuiltin(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray**) {
  ki::checkOutputs(nlhs, 1);
  ki::checkInputs(nrhs, 0, 0);
  plhs[0] = getUserStack();
}

}  // namespace bigdata

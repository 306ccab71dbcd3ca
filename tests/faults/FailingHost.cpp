#include "faults/FailingHost.h"

#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "foundation/exception.h"
#include "foundation/usm.h"
#include "kcos/calls.h"
#include "kcos/class.h"
#include "kv/host/errors.h"
#include "kv/host/values.h"

namespace kv::test {

namespace {

struct Plan {
  bool isActive = false;
  std::string_view inside;  ///< the innermost call by name in progress; empty if there is none
  HostFault fault = HostFault::Raises;
  std::uint64_t asked = 0;
  FaultPlaces failing;
  std::string failed;
};

Plan plan;

bool isNextToFail(HostFault fault, const char* operation, std::string_view with) {
  if (!plan.isActive || plan.fault != fault || !plan.failing.holds(++plan.asked)) {
    return false;
  }
  plan.failed += plan.failed.empty() ? "" : ", then ";
  plan.failed.append(operation).append(" ").append(with).append(" in ").append(plan.inside);
  return true;
}

struct FaultId {
  static constexpr const char *category = "test", *key = "Fault";
};

/// Called at the start of each operation that isn't a call: raises a native exception, as the host
/// itself does.
void mayRaise(const char* operation) {
  if (isNextToFail(HostFault::Raises, operation, {})) {
    throw foundation::core::except::Exception<FaultId>();
  }
}

/// Called at the start of each call: raises the error of a callee.
void mayRaise(const char* operation, std::string_view name) {
  if (isNextToFail(HostFault::Raises, operation, name)) {
    host::raiseWithMessage("test:Fault", "a test lets the host fail");
  }
}

/// A value of a different class than `value`.
kxArray* otherThan(const kxArray* value) {
  return Torvane::String::isString(value) ? kxCreateDoubleScalar(13)
                                          : matrix::to_kalvex(host::makeString("of another class"));
}

/// The result that an operation returns instead of `answer`, which it takes over.
kxArray* maybeOther(kxArray* answer, const char* operation, std::string_view with) {
  if (answer == nullptr) {
    return nullptr;
  }
  if (isNextToFail(HostFault::AnswersNull, operation, with)) {
    matrix::from_kalvex(answer);
    return nullptr;
  }
  if (isNextToFail(HostFault::AnswersOther, operation, with)) {
    const host::Value old = matrix::from_kalvex(answer);
    return otherThan(old.get());
  }
  return answer;
}

/// Marks a call by name in progress.
class RunningCall {
 public:
  explicit RunningCall(std::string_view name) : outer_(std::exchange(plan.inside, name)) {}
  ~RunningCall() { plan.inside = outer_; }
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;

 private:
  std::string_view outer_;
};

/// Called at the start of a call by code that lives in the host. Calls of the work itself, which
/// aren't nested in another call, neither count nor fail.
void mayRaiseInside(const char* operation, std::string_view name) {
  if (!plan.inside.empty()) {
    mayRaise(operation, name);
  }
}

}  // namespace

const char* nameOf(HostFault fault) {
  switch (fault) {
    case HostFault::Raises:
      return "raises";
    case HostFault::AnswersNull:
      return "answers null";
    case HostFault::AnswersOther:
      return "answers a value of another class";
  }
  return "";
}

FailingHost::FailingHost(FaultPlaces places, HostFault fault) noexcept {
  plan = {true, {}, fault, 0, places, ""};
}

FailingHost::~FailingHost() { plan.isActive = false; }

std::uint64_t FailingHost::asked() const noexcept { return plan.asked; }

const char* FailingHost::failed() const noexcept { return plan.failed.c_str(); }

}  // namespace kv::test

// The operations, under the names that the linker gives them, one row per operation: result, name,
// the linker's name, parameters, arguments. The build reads the linker's names from the rows, so
// each row must be one long line.
// clang-format off

using kcos::COSInternedBase;
using kcos::COSInterfacePtr;
using kcos::NameRef;
using kcos::RootRecordPtr;
using kv::test::maybeOther;
using kv::test::mayRaise;
using kv::test::mayRaiseInside;
using kv::test::RunningCall;
using Extents = std::span<const std::size_t>;
using Inputs = std::span<const kxArray* const>;
using Names = std::span<const std::string_view>;
using Slot = foundation::usm::Slot;
using Tag = std::type_info;
using Text = std::string_view;
using Value = kv::host::Value;
using Values = std::vector<Value>;
using WideText = std::u16string_view;

/// The body that follows replaces the operation; `name##Real` is the original operation.
#define KV_STAND_IN(Result, name, symbol, parameters) \
  Result name##Real parameters asm("__real_" #symbol); \
  Result name##Wrap parameters asm("__wrap_" #symbol); \
  Result name##Wrap parameters

#define KV_RAISES(Result, name, symbol, parameters, arguments) \
  KV_STAND_IN(Result, name, symbol, parameters) { \
    mayRaise(#name); \
    return name##Real arguments; \
  }

KV_RAISES(kxArray*, kxCreateDoubleScalar, _Z20kxCreateDoubleScalard, (double value), (value))
KV_RAISES(kxArray*, kxCreateLogicalScalar, _Z21kxCreateLogicalScalarb, (bool value), (value))
KV_RAISES(kxArray*, kxCreateDoubleMatrix, _Z20kxCreateDoubleMatrixmmi, (std::size_t rows, std::size_t columns, int complexity), (rows, columns, complexity))
KV_RAISES(kxArray*, kxCreateNumericArray, _Z20kxCreateNumericArraySt4spanIKmLm18446744073709551615EE9kxClassID, (Extents dimensions, kxClassID classId), (dimensions, classId))
KV_RAISES(kxArray*, kxCreateCellMatrix, _Z18kxCreateCellMatrixmm, (std::size_t rows, std::size_t columns), (rows, columns))
KV_RAISES(kxArray*, kxCreateStructMatrix, _Z20kxCreateStructMatrixmmSt4spanIKSt17basic_string_viewIcSt11char_traitsIcEELm18446744073709551615EE, (std::size_t rows, std::size_t columns, Names fields), (rows, columns, fields))
KV_RAISES(kxArray*, inGetKfunctionStack, _Z19inGetKfunctionStackiii, (int skip, int names, int flags), (skip, names, flags))
KV_RAISES(kxArray*, do_shared_copy, _ZN6matrix6detail14do_shared_copyEPK7kxArray, (const kxArray* array), (array))
KV_RAISES(Value, createText, _ZN6matrix6createESt17basic_string_viewIcSt11char_traitsIcEE, (Text text), (text))
KV_RAISES(Value, createWideText, _ZN6matrix6createESt17basic_string_viewIDsSt11char_traitsIDsEE, (WideText text), (text))
KV_RAISES(Value, createStringArray, _ZN7Torvane6String17createStringArrayEmm, (std::size_t rows, std::size_t columns), (rows, columns))
KV_RAISES(void, setString, _ZN7Torvane6String9setStringEP7kxArraymSt17basic_string_viewIDsSt11char_traitsIDsEE, (kxArray* array, std::size_t index, WideText text), (array, index, text))
KV_RAISES(Value, convertStringsToChars, _ZN7Torvane6String21convertStringsToCharsEPK7kxArray, (const kxArray* array), (array))
KV_RAISES(std::string, kxGetClassName, _Z14kxGetClassNameB5cxx11PK7kxArray, (const kxArray* array), (array))
KV_RAISES(kxArray*, omCreateKCOSScalar, _ZN4kcos18omCreateKCOSScalarERKNS_15COSInterfacePtrE, (const COSInterfacePtr& object), (object))
KV_RAISES(kxArray*, omCreateKCOSMatrix, _ZN4kcos18omCreateKCOSMatrixEmmNS_15COSInternedBaseE, (std::size_t rows, std::size_t columns, COSInternedBase key), (rows, columns, key))
KV_RAISES(void, omSetArrayElement, _ZN4kcos17omSetArrayElementEP7kxArraymPNS_12COSInterfaceE, (kxArray* array, std::size_t index, kcos::COSInterface* object), (array, index, object))
KV_RAISES(COSInterfacePtr, omGetArrayElement, _ZN4kcos17omGetArrayElementEPK7kxArraym, (const kxArray* array, std::size_t index), (array, index))
KV_RAISES(void, kxAddParentRoot, _Z15kxAddParentRootN4kcos13RootRecordPtrES0_, (RootRecordPtr child, RootRecordPtr parent), (child, parent))
KV_RAISES(void, kxSetParentRoot, _Z15kxSetParentRootN4kcos13RootRecordPtrES0_, (RootRecordPtr array, RootRecordPtr parent), (array, parent))
KV_RAISES(void, kcosConvertArrayToInternalInPlace, _ZN4kcos33kcosConvertArrayToInternalInPlaceEP7kxArrayb, (kxArray* array, bool flag), (array, flag))
KV_RAISES(void*, utAllocatePart, _ZN4kcos14utAllocatePartEm, (std::size_t bytes), (bytes))
KV_RAISES(kcos::COSClass*, getClass, _ZN4kcos8COSClass8getClassENS_15COSInternedBaseE, (COSInternedBase key), (key))
KV_RAISES(Slot&, findOrFail, _ZN10foundation3usm6DetailINS0_5scope3KvmEE10findOrFailEmRKSt9type_info, (std::size_t id, const Tag& tag), (id, tag))
KV_RAISES(Slot&, findOrInsert, _ZN10foundation3usm6DetailINS0_5scope3KvmEE12findOrInsertEmRKSt9type_infoOSt10unique_ptrIvPFvPvEE, (std::size_t id, const Tag& tag, Slot&& slot), (id, tag, std::move(slot)))

// Values that the core reads and calls by name: these return values of any class.

KV_STAND_IN(kxArray*, kxGetPropertyShared, _Z19kxGetPropertySharedPK7kxArraymN4kcos7NameRefE, (const kxArray* array, std::size_t index, NameRef name)) {
  mayRaise("kxGetPropertyShared", name.text());
  return maybeOther(kxGetPropertySharedReal(array, index, name), "kxGetPropertyShared", name.text());
}

KV_STAND_IN(void, inCallFcn, _Z9inCallFcniPP7kxArrayiPKPKS_N4kcos7NameRefE, (int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, NameRef name)) {
  mayRaise("inCallFcn", name.text());
  const RunningCall running(name.text());
  inCallFcnReal(nlhs, plhs, nrhs, prhs, name);
  plhs[0] = maybeOther(plhs[0], "inCallFcn", name.text());
}

KV_STAND_IN(bool, omCallMethod, _ZN4kcos12omCallMethodENS_15COSInternedBaseES0_PKNS_9COSClientEiPP7kxArrayiPKPKS4_b, (COSInternedBase className, COSInternedBase method, const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last)) {
  mayRaise("omCallMethod", method.text());
  const RunningCall running(method.text());
  const bool isCalled = omCallMethodReal(className, method, client, nlhs, plhs, nrhs, prhs, last);
  plhs[0] = maybeOther(plhs[0], "omCallMethod", method.text());
  return isCalled;
}

// The same for the runtime, which reads values that the core has checked.

#define KV_RAISES_INSIDE(Result, name, symbol, parameters, arguments) \
  KV_STAND_IN(Result, name, symbol, parameters) { \
    mayRaiseInside(#name, by.text()); \
    const RunningCall running(by.text()); \
    return name##Real arguments; \
  }

KV_RAISES_INSIDE(Values, callMany, _ZN2kv4host8callManyEN4kcos7NameRefEiSt4spanIKPK7kxArrayLm18446744073709551615EE, (NameRef by, int nlhs, Inputs inputs), (by, nlhs, inputs))
KV_RAISES_INSIDE(Value, call, _ZN2kv4host4callEN4kcos7NameRefESt4spanIKPK7kxArrayLm18446744073709551615EE, (NameRef by, Inputs inputs), (by, inputs))
KV_RAISES_INSIDE(Value, getProperty, _ZN2kv4host11getPropertyEPK7kxArrayN4kcos7NameRefE, (const kxArray* object, NameRef by), (object, by))

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
  std::string_view inside;  ///< the innermost call by name that runs; empty outside of all
  HostFault fault = HostFault::Raises;
  std::uint64_t asked = 0;
  std::uint64_t failing = 0;
  char failed[200] = "";
};

constinit Plan plan;

bool isNextToFail(HostFault fault, const char* operation, std::string_view with) {
  if (!plan.isActive || plan.fault != fault || ++plan.asked != plan.failing) {
    return false;
  }
  const std::string said =
      std::string(operation) + " " + std::string(with) + " in " + std::string(plan.inside);
  said.copy(plan.failed, sizeof(plan.failed) - 1);
  return true;
}

struct FaultId {
  static constexpr const char *category = "test", *key = "Fault";
};

/// At the start of each operation that isn't a call: a native exception, as of the host itself.
void mayRaise(const char* operation) {
  if (isNextToFail(HostFault::Raises, operation, {})) {
    throw foundation::core::except::Exception<FaultId>();
  }
}

/// At the start of each call: the error of a callee.
void mayRaise(const char* operation, std::string_view name) {
  if (isNextToFail(HostFault::Raises, operation, name)) {
    host::raiseWithMessage("test:Fault", "a test lets the host fail");
  }
}

/// A value of another class than `value`.
kxArray* otherThan(const kxArray* value) {
  return Torvane::String::isString(value) ? kxCreateDoubleScalar(13)
                                          : matrix::to_kalvex(host::makeString("of another class"));
}

/// What an operation answers in place of `answer`, which it takes over.
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

/// A call by name that runs.
class RunningCall {
 public:
  explicit RunningCall(std::string_view name) : outer_(std::exchange(plan.inside, name)) {}
  ~RunningCall() { plan.inside = outer_; }
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;

 private:
  std::string_view outer_;
};

/// At the start of a call by code that lives in the host. Those of the work itself, which aren't
/// made inside another, neither count nor fail.
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

FailingHost::FailingHost(std::uint64_t number, HostFault fault) noexcept {
  plan = {true, {}, fault, 0, number, ""};
}

FailingHost::~FailingHost() { plan.isActive = false; }

std::uint64_t FailingHost::asked() const noexcept { return plan.asked; }

const char* FailingHost::failed() const noexcept { return plan.failed; }

}  // namespace kv::test

// --- The operations, under the names that the linker gives them ----------------------------------
// The build reads the names from here, so each stays in one piece.
// clang-format off

using kv::test::maybeOther;
using kv::test::mayRaise;
using kv::test::mayRaiseInside;
using kv::test::RunningCall;
using Names = std::span<const std::string_view>;
using Extents = std::span<const std::size_t>;

kxArray* realCreateDoubleScalar(double value) asm("__real__Z20kxCreateDoubleScalard");
kxArray* wrapCreateDoubleScalar(double value) asm("__wrap__Z20kxCreateDoubleScalard");
kxArray* wrapCreateDoubleScalar(double value) {
  mayRaise("kxCreateDoubleScalar");
  return realCreateDoubleScalar(value);
}

kxArray* realCreateLogicalScalar(bool value) asm("__real__Z21kxCreateLogicalScalarb");
kxArray* wrapCreateLogicalScalar(bool value) asm("__wrap__Z21kxCreateLogicalScalarb");
kxArray* wrapCreateLogicalScalar(bool value) {
  mayRaise("kxCreateLogicalScalar");
  return realCreateLogicalScalar(value);
}

kxArray* realCreateDoubleMatrix(std::size_t rows, std::size_t columns,
                                int complexity) asm("__real__Z20kxCreateDoubleMatrixmmi");
kxArray* wrapCreateDoubleMatrix(std::size_t rows, std::size_t columns,
                                int complexity) asm("__wrap__Z20kxCreateDoubleMatrixmmi");
kxArray* wrapCreateDoubleMatrix(std::size_t rows, std::size_t columns, int complexity) {
  mayRaise("kxCreateDoubleMatrix");
  return realCreateDoubleMatrix(rows, columns, complexity);
}

kxArray* realCreateNumericArray(Extents dimensions, kxClassID classId) asm(
    "__real__Z20kxCreateNumericArraySt4spanIKmLm18446744073709551615EE9kxClassID");
kxArray* wrapCreateNumericArray(Extents dimensions, kxClassID classId) asm(
    "__wrap__Z20kxCreateNumericArraySt4spanIKmLm18446744073709551615EE9kxClassID");
kxArray* wrapCreateNumericArray(Extents dimensions, kxClassID classId) {
  mayRaise("kxCreateNumericArray");
  return realCreateNumericArray(dimensions, classId);
}

kxArray* realCreateCellMatrix(std::size_t rows,
                              std::size_t columns) asm("__real__Z18kxCreateCellMatrixmm");
kxArray* wrapCreateCellMatrix(std::size_t rows,
                              std::size_t columns) asm("__wrap__Z18kxCreateCellMatrixmm");
kxArray* wrapCreateCellMatrix(std::size_t rows, std::size_t columns) {
  mayRaise("kxCreateCellMatrix");
  return realCreateCellMatrix(rows, columns);
}

kxArray* realCreateStructMatrix(std::size_t rows, std::size_t columns, Names fields) asm(
    "__real__Z20kxCreateStructMatrixmmSt4spanIKSt17basic_string_viewIcSt11char_traitsIcEELm18446744073709551615EE");
kxArray* wrapCreateStructMatrix(std::size_t rows, std::size_t columns, Names fields) asm(
    "__wrap__Z20kxCreateStructMatrixmmSt4spanIKSt17basic_string_viewIcSt11char_traitsIcEELm18446744073709551615EE");
kxArray* wrapCreateStructMatrix(std::size_t rows, std::size_t columns, Names fields) {
  mayRaise("kxCreateStructMatrix");
  return realCreateStructMatrix(rows, columns, fields);
}

kxArray* realGetKfunctionStack(int skip, int names,
                               int flags) asm("__real__Z19inGetKfunctionStackiii");
kxArray* wrapGetKfunctionStack(int skip, int names,
                               int flags) asm("__wrap__Z19inGetKfunctionStackiii");
kxArray* wrapGetKfunctionStack(int skip, int names, int flags) {
  mayRaise("inGetKfunctionStack");
  return realGetKfunctionStack(skip, names, flags);
}

kxArray* realSharedCopy(const kxArray* array) asm(
    "__real__ZN6matrix6detail14do_shared_copyEPK7kxArray");
kxArray* wrapSharedCopy(const kxArray* array) asm(
    "__wrap__ZN6matrix6detail14do_shared_copyEPK7kxArray");
kxArray* wrapSharedCopy(const kxArray* array) {
  mayRaise("do_shared_copy");
  return realSharedCopy(array);
}

matrix::ArrayPtr realCreateText(std::string_view text) asm(
    "__real__ZN6matrix6createESt17basic_string_viewIcSt11char_traitsIcEE");
matrix::ArrayPtr wrapCreateText(std::string_view text) asm(
    "__wrap__ZN6matrix6createESt17basic_string_viewIcSt11char_traitsIcEE");
matrix::ArrayPtr wrapCreateText(std::string_view text) {
  mayRaise("matrix::create");
  return realCreateText(text);
}

matrix::ArrayPtr realCreateWideText(std::u16string_view text) asm(
    "__real__ZN6matrix6createESt17basic_string_viewIDsSt11char_traitsIDsEE");
matrix::ArrayPtr wrapCreateWideText(std::u16string_view text) asm(
    "__wrap__ZN6matrix6createESt17basic_string_viewIDsSt11char_traitsIDsEE");
matrix::ArrayPtr wrapCreateWideText(std::u16string_view text) {
  mayRaise("matrix::create");
  return realCreateWideText(text);
}

matrix::ArrayPtr realCreateStringArray(std::size_t rows, std::size_t columns) asm(
    "__real__ZN7Torvane6String17createStringArrayEmm");
matrix::ArrayPtr wrapCreateStringArray(std::size_t rows, std::size_t columns) asm(
    "__wrap__ZN7Torvane6String17createStringArrayEmm");
matrix::ArrayPtr wrapCreateStringArray(std::size_t rows, std::size_t columns) {
  mayRaise("createStringArray");
  return realCreateStringArray(rows, columns);
}

void realSetString(kxArray* array, std::size_t index, std::u16string_view text) asm(
    "__real__ZN7Torvane6String9setStringEP7kxArraymSt17basic_string_viewIDsSt11char_traitsIDsEE");
void wrapSetString(kxArray* array, std::size_t index, std::u16string_view text) asm(
    "__wrap__ZN7Torvane6String9setStringEP7kxArraymSt17basic_string_viewIDsSt11char_traitsIDsEE");
void wrapSetString(kxArray* array, std::size_t index, std::u16string_view text) {
  mayRaise("setString");
  return realSetString(array, index, text);
}

matrix::ArrayPtr realStringsToChars(const kxArray* array) asm(
    "__real__ZN7Torvane6String21convertStringsToCharsEPK7kxArray");
matrix::ArrayPtr wrapStringsToChars(const kxArray* array) asm(
    "__wrap__ZN7Torvane6String21convertStringsToCharsEPK7kxArray");
matrix::ArrayPtr wrapStringsToChars(const kxArray* array) {
  mayRaise("convertStringsToChars");
  return realStringsToChars(array);
}

std::string realGetClassName(const kxArray* array) asm(
    "__real__Z14kxGetClassNameB5cxx11PK7kxArray");
std::string wrapGetClassName(const kxArray* array) asm(
    "__wrap__Z14kxGetClassNameB5cxx11PK7kxArray");
std::string wrapGetClassName(const kxArray* array) {
  mayRaise("kxGetClassName");
  return realGetClassName(array);
}

kxArray* realCreateKCOSScalar(const kcos::COSInterfacePtr& object) asm(
    "__real__ZN4kcos18omCreateKCOSScalarERKNS_15COSInterfacePtrE");
kxArray* wrapCreateKCOSScalar(const kcos::COSInterfacePtr& object) asm(
    "__wrap__ZN4kcos18omCreateKCOSScalarERKNS_15COSInterfacePtrE");
kxArray* wrapCreateKCOSScalar(const kcos::COSInterfacePtr& object) {
  mayRaise("omCreateKCOSScalar");
  return realCreateKCOSScalar(object);
}

kxArray* realCreateKCOSMatrix(std::size_t rows, std::size_t columns, kcos::COSInternedBase key) asm(
    "__real__ZN4kcos18omCreateKCOSMatrixEmmNS_15COSInternedBaseE");
kxArray* wrapCreateKCOSMatrix(std::size_t rows, std::size_t columns, kcos::COSInternedBase key) asm(
    "__wrap__ZN4kcos18omCreateKCOSMatrixEmmNS_15COSInternedBaseE");
kxArray* wrapCreateKCOSMatrix(std::size_t rows, std::size_t columns, kcos::COSInternedBase key) {
  mayRaise("omCreateKCOSMatrix");
  return realCreateKCOSMatrix(rows, columns, key);
}

void realSetArrayElement(kxArray* array, std::size_t index, kcos::COSInterface* object) asm(
    "__real__ZN4kcos17omSetArrayElementEP7kxArraymPNS_12COSInterfaceE");
void wrapSetArrayElement(kxArray* array, std::size_t index, kcos::COSInterface* object) asm(
    "__wrap__ZN4kcos17omSetArrayElementEP7kxArraymPNS_12COSInterfaceE");
void wrapSetArrayElement(kxArray* array, std::size_t index, kcos::COSInterface* object) {
  mayRaise("omSetArrayElement");
  return realSetArrayElement(array, index, object);
}

kcos::COSInterfacePtr realGetArrayElement(const kxArray* array, std::size_t index) asm(
    "__real__ZN4kcos17omGetArrayElementEPK7kxArraym");
kcos::COSInterfacePtr wrapGetArrayElement(const kxArray* array, std::size_t index) asm(
    "__wrap__ZN4kcos17omGetArrayElementEPK7kxArraym");
kcos::COSInterfacePtr wrapGetArrayElement(const kxArray* array, std::size_t index) {
  mayRaise("omGetArrayElement");
  return realGetArrayElement(array, index);
}

void realAddParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) asm(
    "__real__Z15kxAddParentRootN4kcos13RootRecordPtrES0_");
void wrapAddParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) asm(
    "__wrap__Z15kxAddParentRootN4kcos13RootRecordPtrES0_");
void wrapAddParentRoot(kcos::RootRecordPtr child, kcos::RootRecordPtr parent) {
  mayRaise("kxAddParentRoot");
  return realAddParentRoot(child, parent);
}

void realSetParentRoot(kcos::RootRecordPtr array, kcos::RootRecordPtr parent) asm(
    "__real__Z15kxSetParentRootN4kcos13RootRecordPtrES0_");
void wrapSetParentRoot(kcos::RootRecordPtr array, kcos::RootRecordPtr parent) asm(
    "__wrap__Z15kxSetParentRootN4kcos13RootRecordPtrES0_");
void wrapSetParentRoot(kcos::RootRecordPtr array, kcos::RootRecordPtr parent) {
  mayRaise("kxSetParentRoot");
  return realSetParentRoot(array, parent);
}

void realConvertToInternal(kxArray* array, bool flag) asm(
    "__real__ZN4kcos33kcosConvertArrayToInternalInPlaceEP7kxArrayb");
void wrapConvertToInternal(kxArray* array, bool flag) asm(
    "__wrap__ZN4kcos33kcosConvertArrayToInternalInPlaceEP7kxArrayb");
void wrapConvertToInternal(kxArray* array, bool flag) {
  mayRaise("kcosConvertArrayToInternalInPlace");
  return realConvertToInternal(array, flag);
}

void* realAllocatePart(std::size_t bytes) asm("__real__ZN4kcos14utAllocatePartEm");
void* wrapAllocatePart(std::size_t bytes) asm("__wrap__ZN4kcos14utAllocatePartEm");
void* wrapAllocatePart(std::size_t bytes) {
  mayRaise("utAllocatePart");
  return realAllocatePart(bytes);
}

kcos::COSClass* realGetClass(kcos::COSInternedBase key) asm(
    "__real__ZN4kcos8COSClass8getClassENS_15COSInternedBaseE");
kcos::COSClass* wrapGetClass(kcos::COSInternedBase key) asm(
    "__wrap__ZN4kcos8COSClass8getClassENS_15COSInternedBaseE");
kcos::COSClass* wrapGetClass(kcos::COSInternedBase key) {
  mayRaise("COSClass::getClass");
  return realGetClass(key);
}

foundation::usm::Slot& realFindOrFail(std::size_t id, const std::type_info& tag) asm(
    "__real__ZN10foundation3usm6DetailINS0_5scope3KvmEE10findOrFailEmRKSt9type_info");
foundation::usm::Slot& wrapFindOrFail(std::size_t id, const std::type_info& tag) asm(
    "__wrap__ZN10foundation3usm6DetailINS0_5scope3KvmEE10findOrFailEmRKSt9type_info");
foundation::usm::Slot& wrapFindOrFail(std::size_t id, const std::type_info& tag) {
  mayRaise("findOrFail");
  return realFindOrFail(id, tag);
}

foundation::usm::Slot&
realFindOrInsert(std::size_t id, const std::type_info& tag, foundation::usm::Slot&& slot) asm(
    "__real__ZN10foundation3usm6DetailINS0_5scope3KvmEE12findOrInsertEmRKSt9type_infoOSt10unique_ptrIvPFvPvEE");
foundation::usm::Slot&
wrapFindOrInsert(std::size_t id, const std::type_info& tag, foundation::usm::Slot&& slot) asm(
    "__wrap__ZN10foundation3usm6DetailINS0_5scope3KvmEE12findOrInsertEmRKSt9type_infoOSt10unique_ptrIvPFvPvEE");
foundation::usm::Slot& wrapFindOrInsert(std::size_t id, const std::type_info& tag,
                                        foundation::usm::Slot&& slot) {
  mayRaise("findOrInsert");
  return realFindOrInsert(id, tag, std::move(slot));
}

// What the core reads and calls by name: it answers a value of whatever class.

kxArray* realGetProperty(const kxArray* array, std::size_t index, kcos::NameRef name) asm(
    "__real__Z19kxGetPropertySharedPK7kxArraymN4kcos7NameRefE");
kxArray* wrapGetProperty(const kxArray* array, std::size_t index, kcos::NameRef name) asm(
    "__wrap__Z19kxGetPropertySharedPK7kxArraymN4kcos7NameRefE");
kxArray* wrapGetProperty(const kxArray* array, std::size_t index, kcos::NameRef name) {
  mayRaise("kxGetPropertyShared", name.text());
  return maybeOther(realGetProperty(array, index, name), "kxGetPropertyShared", name.text());
}

void realCall(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs,
              kcos::NameRef name) asm("__real__Z9inCallFcniPP7kxArrayiPKPKS_N4kcos7NameRefE");
void wrapCall(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs,
              kcos::NameRef name) asm("__wrap__Z9inCallFcniPP7kxArrayiPKPKS_N4kcos7NameRefE");
void wrapCall(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, kcos::NameRef name) {
  mayRaise("inCallFcn", name.text());
  const RunningCall running(name.text());
  realCall(nlhs, plhs, nrhs, prhs, name);
  plhs[0] = maybeOther(plhs[0], "inCallFcn", name.text());
}

using kcos::COSInternedBase;

bool realCallMethod(COSInternedBase className, COSInternedBase method, const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last) asm(
    "__real__ZN4kcos12omCallMethodENS_15COSInternedBaseES0_PKNS_9COSClientEiPP7kxArrayiPKPKS4_b");
bool wrapCallMethod(COSInternedBase className, COSInternedBase method, const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs, bool last) asm(
    "__wrap__ZN4kcos12omCallMethodENS_15COSInternedBaseES0_PKNS_9COSClientEiPP7kxArrayiPKPKS4_b");
bool wrapCallMethod(COSInternedBase className, COSInternedBase method,
                    const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                    const kxArray* const* prhs, bool last) {
  mayRaise("omCallMethod", method.text());
  const RunningCall running(method.text());
  const bool isCalled = realCallMethod(className, method, client, nlhs, plhs, nrhs, prhs, last);
  plhs[0] = maybeOther(plhs[0], "omCallMethod", method.text());
  return isCalled;
}

// The same from the runtime, which reads what the core vouches for.

using Inputs = std::span<const kxArray* const>;

std::vector<kv::host::Value> realCallMany(kcos::NameRef name, int nlhs, Inputs inputs) asm(
    "__real__ZN2kv4host8callManyEN4kcos7NameRefEiSt4spanIKPK7kxArrayLm18446744073709551615EE");
std::vector<kv::host::Value> wrapCallMany(kcos::NameRef name, int nlhs, Inputs inputs) asm(
    "__wrap__ZN2kv4host8callManyEN4kcos7NameRefEiSt4spanIKPK7kxArrayLm18446744073709551615EE");
std::vector<kv::host::Value> wrapCallMany(kcos::NameRef name, int nlhs, Inputs inputs) {
  mayRaiseInside("callMany", name.text());
  const RunningCall running(name.text());
  return realCallMany(name, nlhs, inputs);
}

kv::host::Value realHostCall(kcos::NameRef name, Inputs inputs) asm(
    "__real__ZN2kv4host4callEN4kcos7NameRefESt4spanIKPK7kxArrayLm18446744073709551615EE");
kv::host::Value wrapHostCall(kcos::NameRef name, Inputs inputs) asm(
    "__wrap__ZN2kv4host4callEN4kcos7NameRefESt4spanIKPK7kxArrayLm18446744073709551615EE");
kv::host::Value wrapHostCall(kcos::NameRef name, Inputs inputs) {
  mayRaiseInside("call", name.text());
  const RunningCall running(name.text());
  return realHostCall(name, inputs);
}

kv::host::Value realHostProperty(const kxArray* object, kcos::NameRef name) asm(
    "__real__ZN2kv4host11getPropertyEPK7kxArrayN4kcos7NameRefE");
kv::host::Value wrapHostProperty(const kxArray* object, kcos::NameRef name) asm(
    "__wrap__ZN2kv4host11getPropertyEPK7kxArrayN4kcos7NameRefE");
kv::host::Value wrapHostProperty(const kxArray* object, kcos::NameRef name) {
  mayRaiseInside("getProperty", name.text());
  const RunningCall running(name.text());
  return realHostProperty(object, name);
}

#pragma once

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <functional>
#include <memory>
#include <utility>

#include "kcos/class.h"
#include "ki/TypeAwareKalvexManagedConstructInfo.h"
#include "ki/detail/checkHandle.h"
#include "kv/host/rawOutputs.h"

namespace bigdata::ki::detail {

/// The lists of one raw call: inputs, copied from the host's form, and output slots. Up to five of
/// each need no allocation.
class RawLists {
 public:
  RawLists(int nlhs, int nrhs, const kcos::COSValue* rhs);

  kxArray** outputs() { return outputs_.data(); }
  const kxArray** inputs() { return inputs_.data(); }

  /// Gives the output slots to the host: the requested ones, and the first if it was set anyway.
  void handOver(int& nlhs, kcos::COSValue* lhs);

 private:
  boost::container::small_vector<const kxArray*, 5> inputs_;
  kv::host::RawOutputs outputs_;
};

/// The common part of all methods with the raw signature.
class VariadicCosMethodBase : public kcos::COSMethodBase {
 public:
  using COSMethodBase::COSMethodBase;
  void getMethodSignature(kcos::COSMethodSignature& signature) const override;
};

/// A member of the native class `T` with the raw signature. The object is the first input and isn't
/// passed on.
template <class T, class Member>
class VariadicCosMemberInfo final : public VariadicCosMethodBase {
 public:
  VariadicCosMemberInfo(kcos::COSInternedBase name, Member member, kcos::MemberAccess access)
      : VariadicCosMethodBase(name, access), member_(member) {}

  void invoke(const kcos::COSClient* /*client*/, int& nlhs, kcos::COSValue* lhs, int nrhs,
              const kcos::COSValue* rhs) const override {
    RawLists lists(nlhs, nrhs, rhs);
    const kcos::COSInterfacePtr object = kcos::omGetArrayElement(rhs[0].array, 0);
    T& target = *static_cast<T*>(requireInstanceData(object, classKey<T>()));
    (target.*member_)(nlhs, lists.outputs(), nrhs - 1, lists.inputs() + 1);
    lists.handOver(nlhs, lhs);
  }

  bool takesObjectFirst() const override { return true; }

 private:
  Member member_;
};

/// A free function with the raw signature. The object that the host dispatched on is one of the
/// inputs, at any position.
class VariadicCosFunctionInfo final : public VariadicCosMethodBase {
 public:
  using Function = std::function<void(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs)>;

  VariadicCosFunctionInfo(kcos::COSInternedBase name, Function function, kcos::MemberAccess access)
      : VariadicCosMethodBase(name, access), function_(std::move(function)) {}

  void invoke(const kcos::COSClient* client, int& nlhs, kcos::COSValue* lhs, int nrhs,
              const kcos::COSValue* rhs) const override;
  bool takesObjectFirst() const override { return false; }

 private:
  Function function_;
};

/// A constructor of the native class `T` that takes any number of inputs.
template <class T>
class VariadicCosConstructorInfo final : public VariadicCosMethodBase {
 public:
  using Function = std::function<std::unique_ptr<T>(const KalvexManagedConstructInfo& info,
                                                    int nrhs, const kxArray** prhs)>;

  VariadicCosConstructorInfo(kcos::COSInternedBase name, Function function,
                             kcos::MemberAccess access)
      : VariadicCosMethodBase(name, access), function_(std::move(function)) {}

  void invoke(const kcos::COSClient* /*client*/, int& nlhs, kcos::COSValue* lhs, int nrhs,
              const kcos::COSValue* rhs) const override {
    RawLists lists(0, nrhs, rhs);
    const kcos::COSInterfacePtr object = kcos::omGetArrayElement(lhs[0].array, 0);
    TypeAwareKalvexManagedConstructInfo<T> info(object);
    std::unique_ptr<T> made = function_(info, nrhs, lists.inputs());
    info.release();
    static_cast<void>(made.release());  // the host object owns it now
    nlhs = std::max(nlhs, 1);
  }

  bool takesObjectFirst() const override { return false; }

 private:
  Function function_;
};

/// A method that subclasses must define. Calling it does nothing.
class AbstractCosMethodInfo final : public VariadicCosMethodBase {
 public:
  using VariadicCosMethodBase::VariadicCosMethodBase;
  void invoke(const kcos::COSClient* client, int& nlhs, kcos::COSValue* lhs, int nrhs,
              const kcos::COSValue* rhs) const override;
  bool takesObjectFirst() const override { return false; }
  bool isAbstract() const override { return true; }
  bool hasBody() const override { return false; }
};

}  // namespace bigdata::ki::detail

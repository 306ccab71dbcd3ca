#include "ki/detail/VariadicCosMethodInfo.h"

namespace bigdata::ki::detail {

// One slot more than requested: a method may set one output that the caller didn't ask for.
RawLists::RawLists(int nlhs, int nrhs, const kcos::COSValue* rhs)
    : outputs_(static_cast<std::size_t>(std::max(nlhs, 1)) + 1, nullptr) {
  inputs_.reserve(static_cast<std::size_t>(nrhs));
  for (int i = 0; i < nrhs; ++i) {
    inputs_.push_back(rhs[i].array);
  }
}

RawLists::~RawLists() {
  for (kxArray* output : outputs_) {
    matrix::from_kalvex(output);
  }
}

void RawLists::handOver(int& nlhs, kcos::COSValue* lhs) {
  if (nlhs == 0 && outputs_[0] != nullptr) {
    nlhs = 1;
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(nlhs, 0)); ++i) {
    lhs[i].array = std::exchange(outputs_[i], nullptr);
  }
}

void VariadicCosMethodBase::getMethodSignature(kcos::COSMethodSignature& signature) const {
  signature.addOutput("any");
  signature.setVariableOutputs();
  signature.addInput("any");
  signature.setVariableInputs();
}

void VariadicCosFunctionInfo::invoke(const kcos::COSClient* /*client*/, int& nlhs,
                                     kcos::COSValue* lhs, int nrhs,
                                     const kcos::COSValue* rhs) const {
  RawLists lists(nlhs, nrhs, rhs);
  function_(nlhs, lists.outputs(), nrhs, lists.inputs());
  lists.handOver(nlhs, lhs);
}

void AbstractCosMethodInfo::invoke(const kcos::COSClient* /*client*/, int& /*nlhs*/,
                                   kcos::COSValue* /*lhs*/, int /*nrhs*/,
                                   const kcos::COSValue* /*rhs*/) const {}

}  // namespace bigdata::ki::detail

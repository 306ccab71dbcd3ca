#include "ki/detail/VariadicCosMethodInfo.h"

namespace bigdata::ki::detail {

// One slot more than is handed over: a method may fill one output that wasn't asked for.
RawLists::RawLists(int nlhs, int nrhs, const kcos::COSValue* rhs) : outputs_(nlhs, 1) {
  inputs_.reserve(static_cast<std::size_t>(nrhs));
  for (int i = 0; i < nrhs; ++i) {
    inputs_.push_back(rhs[i].array);
  }
}

void RawLists::handOver(int& nlhs, kcos::COSValue* lhs) {
  if (nlhs == 0 && outputs_.isSet(0)) {
    nlhs = 1;
  }
  for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(nlhs, 0)); ++i) {
    lhs[i].array = outputs_.take(i).release();
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

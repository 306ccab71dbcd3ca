#include "ki/detail/FixedTypeCosMethodInfo.h"

#include "foundation/diag.h"

namespace bigdata::ki::detail {

namespace {

constexpr std::string_view kAnyType = "any";

}  // namespace

void assertInputCount(int nrhs, std::size_t expected) {
  if (nrhs < 0 || static_cast<std::size_t>(nrhs) != expected) {
    fl_diag_terminate("nrhs == sizeof...(InputTypes)",
                      "bigdata/include/ki/detail/FixedTypeCosMethodInfo", 72);
  }
}

void fillSignature(kcos::COSMethodSignature& signature, std::size_t inputs, std::size_t outputs) {
  for (std::size_t i = 0; i < inputs; ++i) {
    signature.addInput(kAnyType);
  }
  for (std::size_t i = 0; i < outputs; ++i) {
    signature.addOutput(kAnyType);
  }
}

}  // namespace bigdata::ki::detail

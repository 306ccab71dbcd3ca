#include "lazyeval/leadingValues.h"

#include <utility>

#include "FunctionHandle.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/parseArrayInput.h"
#include "util/InternalError.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using OptionsPtr = KalvexManagedPtr<PartitionedArrayOptions>;

template <class T>
T takeUnwrapped(RawInputs& inputs) {
  ArrayPtr holder;
  return ki::fromArray<T>(unwrapLocalArray(inputs.next(), holder));
}

}  // namespace

const kxArray* RawInputs::next() {
  if (nrhs < 1) {
    matrix::detail::error_minrhs();
  }
  --nrhs;
  return *prhs++;
}

template <>
OptionsPtr takeLeading<OptionsPtr>(RawInputs& inputs) {
  const bool isGiven =
      inputs.nrhs > 0 && kxIsA(inputs.prhs[0], ki::classKey<PartitionedArrayOptions>());
  OptionsPtr options = isGiven ? ki::fromArray<OptionsPtr>(inputs.next())
                               : ki::createManagedObject<PartitionedArrayOptions>();
  if (options->getRequiresRandState() && kxIsEmpty(options->getRandStreamFactory())) {
    ArrayPtr factory = ki::callHost("kalvex.bigdata.internal.RandStreamFactory");
    options->setRandStreamFactory(std::move(factory));
  }
  return options;
}

template <>
KalvexManagedPtr<FunctionHandle> takeLeading<KalvexManagedPtr<FunctionHandle>>(RawInputs& inputs) {
  const kxArray* input = inputs.next();
  if (kxIsA(input, ki::classKey<FunctionHandle>())) {
    return ki::fromArray<KalvexManagedPtr<FunctionHandle>>(input);
  }
  if (kxGetClassID(input) != kxFUNCTION_CLASS) {
    throwInternalError(
        "Function handle must be a function_handle or a kalvex.bigdata.internal.FunctionHandle.");
  }
  return ki::createManagedObject<FunctionHandle>(matrix::sharedCopy(input));
}

template <>
KalvexManagedPtr<PartitionMetadata> takeLeading<KalvexManagedPtr<PartitionMetadata>>(
    RawInputs& inputs) {
  auto metadata = ki::fromArray<KalvexManagedPtr<PartitionMetadata>>(inputs.next());
  if (!metadata) {
    throwInternalError("Expected a valid kalvex.bigdata.internal.PartitionMetadata object.");
  }
  return metadata;
}

template <>
ArrayPtr takeLeading<ArrayPtr>(RawInputs& inputs) {
  return takeUnwrapped<ArrayPtr>(inputs);
}

template <>
bool takeLeading<bool>(RawInputs& inputs) {
  return takeUnwrapped<bool>(inputs);
}

template <>
std::size_t takeLeading<std::size_t>(RawInputs& inputs) {
  return takeUnwrapped<std::size_t>(inputs);
}

}  // namespace bigdata::lazyeval

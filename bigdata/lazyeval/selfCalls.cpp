#include "lazyeval/selfCalls.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <cassert>
#include <cstddef>

#include "kcos/calls.h"
#include "ki/hostCalls.h"

namespace bigdata::lazyeval {

matrix::ArrayPtr selfArray(const ki::KalvexManagedObject& object) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(
      kcos::COSInterfacePtr(object.selfInterface(), kcos::COSReferenceType::Strong)));
}

bool callOwnMethod(const ki::KalvexManagedObject& object, kcos::NameRef name,
                   const kcos::COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                   const kxArray* const* prhs) {
  assert(
      std::all_of(plhs, plhs + std::max(nlhs, 1), [](const kxArray* p) { return p == nullptr; }));
  const matrix::ArrayPtr self = selfArray(object);
  boost::container::small_vector<const kxArray*, 4> inputs;
  inputs.reserve(static_cast<std::size_t>(nrhs) + 1);
  inputs.push_back(self.get());
  inputs.insert(inputs.end(), prhs, prhs + nrhs);
  return kcos::omCallMethod(object.selfInterface()->getClassObject()->getClassId(),
                            kcos::internal::makeInterned(name), client, nlhs, plhs, nrhs + 1,
                            inputs.data(), false);
}

matrix::ArrayPtr callCreateExecutionTasks(const ki::KalvexManagedObject& object,
                                          const kxArray* first, const kxArray* second) {
  const matrix::ArrayPtr self = selfArray(object);
  return ki::callHost("createExecutionTasks", {self.get(), first, second});
}

}  // namespace bigdata::lazyeval

#include "PartitionedArrayOptions.h"

#include <memory>
#include <utility>

#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "ki/NameValueList.h"

namespace bigdata {

namespace {

using ki::Access;
using matrix::ArrayPtr;

const ki::NameValueMap& permittedNames() {
  static const ki::NameValueMap names = {{"RequiresRandState", nullptr},
                                         {"RandStreamFactory", nullptr},
                                         {"PassTaggedInputs", nullptr}};
  return names;
}

class PartitionedArrayOptionsCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<PartitionedArrayOptions> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using Options = PartitionedArrayOptions;
    ki::CosClassBuilder<Options>(cls)
        .variadicConstructor(Access::Public)
        .property("RequiresRandState", &Options::getRequiresRandState,
                  &Options::setRequiresRandState, Access::Public, Access::Public)
        .readOnly("RequiresGlobalState", &Options::getRequiresGlobalState)
        .property("RandStreamFactory", &Options::getRandStreamFactory,
                  &Options::setRandStreamFactory, Access::Public, Access::Public)
        .property("PassTaggedInputs", &Options::getPassTaggedInputs, &Options::setPassTaggedInputs,
                  Access::Public, Access::Public);
  }
};

const ki::ClassKcosRegistration<PartitionedArrayOptionsCosClassInfo> registration;

}  // namespace

PartitionedArrayOptions::PartitionedArrayOptions(const ki::KalvexManagedConstructInfo& info)
    : KalvexManagedObject(info) {}

PartitionedArrayOptions::PartitionedArrayOptions(const ki::KalvexManagedConstructInfo& info,
                                                 int nrhs, const kxArray** prhs)
    : PartitionedArrayOptions(info) {
  const ki::NameValueMap given = ki::parseNameValueList(permittedNames(), nrhs, prhs);
  setRequiresRandState(ki::toLogical(given.at("RequiresRandState"), requiresRandState_));
  setRandStreamFactory(matrix::sharedCopy(given.at("RandStreamFactory")));
  setPassTaggedInputs(ki::toLogical(given.at("PassTaggedInputs"), passTaggedInputs_));
}

void PartitionedArrayOptions::setRandStreamFactory(ArrayPtr value) {
  randStreamFactory_ = ki::adoptPropertyArray(selfInterface(), std::move(value));
}

}  // namespace bigdata

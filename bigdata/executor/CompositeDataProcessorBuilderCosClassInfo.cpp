#include "executor/CompositeDataProcessorBuilder.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "util/CosClientTraits.h"

namespace bigdata::executor {

namespace {

using ki::Access;
using matrix::ArrayPtr;

class CompositeDataProcessorBuilderCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<CompositeDataProcessorBuilder> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using Builder = CompositeDataProcessorBuilder;
    using Builders = const Builder::Builders&;
    util::keepCosClient<Builder>(client);
    ki::CosClassBuilder<Builder>(cls)
        .superclass("kalvex.bigdata.internal.executor.DataProcessorFactory")
        .constructor(Access::Private)
        .constructor<Builders, ArrayPtr>(Access::Public)
        .constructor<Builders, ArrayPtr, const Builder::StrategyPtr&>(Access::Public)
        .constructor<ArrayPtr>(Access::Public)
        .property("Id", &Builder::getId, &Builder::setId, Access::Public, Access::Private)
        .property("InputBuilders", &Builder::getInputBuilders, &Builder::setInputBuilders,
                  Access::Public, Access::Private)
        .property("DataProcessorFactory", &Builder::getDataProcessorFactory,
                  &Builder::setDataProcessorFactory, Access::Public, Access::Private)
        .property("InputId", &Builder::getInputId, &Builder::setInputId, Access::Public,
                  Access::Private)
        .property("InputOrdinal", &Builder::getInputOrdinal, &Builder::setInputOrdinal,
                  Access::Public, Access::Private)
        .property("OutputPartitionStrategy", &Builder::getOutputPartitionStrategy,
                  &Builder::setOutputPartitionStrategy, Access::Public, Access::Private)
        .property("Graph", &Builder::getGraph, &Builder::setGraph, Access::Private, Access::Private)
        .readOnly("AllInputIds", &Builder::getAllInputIds)
        .readOnly("IsGlobalInput", &Builder::getIsGlobalInput)
        .method("findAllBuilders", &Builder::findAllBuilders, Access::Private)
        .method("findAllDependencies", &Builder::findAllDependencies, Access::Private)
        .declareMethod("feval")
        .declareMethod("getAllInputIds", Access::Private)
        .declareMethod("getAsGraph", Access::Private)
        .declareMethod("buildGraph", Access::Private)
        .declareMethod("buildUnderlyingProcessor", Access::Private);
  }
};

const ki::ClassKcosRegistration<CompositeDataProcessorBuilderCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::executor

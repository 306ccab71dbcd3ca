#include <cstddef>
#include <tuple>
#include <utility>

#include "FunctionHandle.h"
#include "PartitionMetadata.h"
#include "PartitionedArrayOptions.h"
#include "ki/ClassKcosRegistration.h"
#include "ki/CosClassBuilder.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/arrayMethods.h"
#include "lazyeval/arrayPersistence.h"
#include "lazyeval/leadingValues.h"
#include "lazyeval/reuse.h"
#include "util/CosClientTraits.h"

namespace bigdata::lazyeval {

namespace {

class LazyPartitionedArrayCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<LazyPartitionedArray> {
 public:
  // A table, one row per member: NOLINTNEXTLINE(readability-function-size)
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient* client) override {
    using ki::Access;
    using Array = LazyPartitionedArray;
    util::keepCosClient<Array>(client);
    Builder builder(cls);
    builder.superclass("kalvex.bigdata.internal.PartitionedArray")
        .constructor<>(Access::Private)
        .property("ValueFuture", &Array::getValueFuture, &Array::setValueFuture, Access::Public,
                  Access::Private)
        .property("PartitionMetadata", &Array::partitionMetadata, &Array::setPartitionMetadata,
                  Access::Public, Access::Private)
        .storedReadOnly("Executor", &Array::getStoredExecutor, Access::Public, Access::Private)
        .readOnly("IsValid", &Array::isValid, Access::Public, Access::Private)
        .storedReadOnly("PreviewData", &Array::getPreviewData, Access::Public, Access::None)
        .storedReadOnly("HasPreviewData", &Array::hasCachedPreviewData, Access::Public,
                        Access::None)
        .storedReadOnly("IsPreviewTruncated", &Array::isPreviewTruncated, Access::Public,
                        Access::None)
        .method("hGetMetadata", &Array::hGetMetadata)
        .method("hSetMetadata", &Array::hSetMetadata)
        .method("getExecutor", &Array::getExecutor)
        .method("getPartitionMetadata", &Array::getPartitionMetadata)
        .method("numpartitions", &Array::numpartitions)
        .method("hasCachedPreviewData", &Array::hasCachedPreviewData)
        .method("getCachedPreviewData", &Array::getCachedPreviewData)
        .method("setCachedPreviewData", &Array::setCachedPreviewData)
        .declareMethod("gather")
        .declareMethod("clientforeach")
        .declareMethod("vertcatpartitions");
    addFunFunMethod(builder, "elementfun", elementfun);
    addFunFunMethod(builder, "smallTallComparison", smallTallComparison);
    addFunFunMethod(builder, "logicalElementfun", logicalElementfun);
    addFunFunMethod(builder, "assertAdaptorCorrect", assertAdaptorCorrect);
    addFunFunMethod(builder, "slicefun", slicefun);
    addFunFunMethod(builder, "subsrefTabularVar", subsrefTabularVar);
    addFunFunMethod(builder, "filterslices", filterslices);
    addFunFunMethod(builder, "logicalRowSubsref", logicalRowSubsref);
    addFunFunMethod(builder, "reducefun", reducefun);
    addFunFunMethod(builder, "aggregatefun", aggregatefun);
    addFunFunMethod(builder, "reducebykeyfun", reducebykeyfun);
    addFunFunMethod(builder, "aggregatebykeyfun", aggregatebykeyfun);
    addFunFunMethod(builder, "joinbykey", joinbykey);
    addFunFunMethod(builder, "ternaryfun", ternaryfun);
    addFunFunMethod(builder, "chunkfun", chunkfun);
    addFunFunMethod(builder, "fixedchunkfun", fixedchunkfun);
    addFunFunMethod(builder, "partitionfun", partitionfun);
    addFunFunMethod(builder, "generalpartitionfun", generalpartitionfun);
    addFunFunMethod(builder, "partitionheadfun", partitionheadfun);
    addFunFunMethod(builder, "alignpartitions", alignpartitions);
    addFunFunMethod(builder, "repartition", repartition);
    addFunFunMethod(builder, "resizechunks", resizechunks);
    addFunFunMethod(builder, "clientfun", clientfun);
    addFunFunMethod(builder, "strictslicefun", strictslicefun);
    addFunFunMethod(builder, "isPartitionIndependent", isPartitionIndependent);
    addFunFunMethod(builder, "markPartitionIndependent", markPartitionIndependent);
    addFunFunMethod(builder, "markforreuse", markforreuse);
    builder.method("updateforreuse", updateforreuse)
        .declareStaticMethod("createInvalidVersionArray", Access::Private)
        .declareMethod("getEvaluationObjects", Access::Private)
        .declareStaticMethod("createGatherOutputHandler", Access::Private)
        .declareStaticMethod("cleanupOldCacheEntries", Access::Private);
  }

  bool customSave(kcos::COSInterfacePtr object, kxArray*& record,
                  kcos::COSInternedBase& type) override {
    record = makeArrayRecord(*nativeArray(object)).release();
    type = kcos::internal::makeInterned("any");
    return true;
  }

  bool customLoad(kcos::COSInterfacePtr& object, const kxArray* record,
                  kcos::COSInternedBase /*type*/) override {
    object = kcos::COSInterfacePtr(loadArray(record).interface(), kcos::COSReferenceType::Strong);
    return true;
  }

 private:
  using Builder = ki::CosClassBuilder<LazyPartitionedArray>;

  static ki::KalvexManagedPtr<LazyPartitionedArray> nativeArray(kcos::COSInterface* object) {
    void* native = object->getInstanceData(ki::classKey<LazyPartitionedArray>());
    return {static_cast<LazyPartitionedArray*>(native), object};
  }

  /// Adds a method whose function takes leading values and then the raw call. The leading values
  /// are taken from the front of the inputs, in order; the rest is passed on.
  template <class... Parameters>
  static void addFunFunMethod(Builder& builder, kcos::NameRef name, void (*function)(Parameters...),
                              ki::Access access = ki::Access::Public) {
    constexpr std::size_t kLeading = sizeof...(Parameters) - 1;  // all but the raw call
    builder.variadicFunction(
        name,
        [function](int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
          callWithLeading(function, std::make_index_sequence<kLeading>(),
                          RawCall{nlhs, plhs, nrhs, prhs});
        },
        access);
  }

  template <class... Parameters, std::size_t... Index>
  static void callWithLeading(void (*function)(Parameters...), std::index_sequence<Index...>,
                              const RawCall& call) {
    using All = std::tuple<Parameters...>;
    RawInputs inputs{call.nrhs, call.prhs};
    // A braced list is evaluated from first to last.
    [[maybe_unused]] std::tuple<std::tuple_element_t<Index, All>...> leading{
        takeLeading<std::tuple_element_t<Index, All>>(inputs)...};
    function(std::move(std::get<Index>(leading))...,
             RawCall{call.nlhs, call.plhs, inputs.nrhs, inputs.prhs});
  }
};

const ki::ClassKcosRegistration<LazyPartitionedArrayCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval

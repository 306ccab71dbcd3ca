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
#include "lazyeval/leadingValues.h"

namespace bigdata::lazyeval {

namespace {

class LazyPartitionedArrayCosClassInfo final
    : public ki::KalvexManagedCosClassInfo<LazyPartitionedArray> {
 public:
  void initializeClass(kcos::COSClass* cls, const kcos::COSClient*) override {
    using ki::Access;
    using Array = LazyPartitionedArray;
    Builder builder(cls);
    builder.superclass("kalvex.bigdata.internal.PartitionedArray")
        .constructor<>(Access::Private)
        .property("ValueFuture", &Array::getValueFuture, &Array::setValueFuture, Access::Public,
                  Access::Private)
        .property("PartitionMetadata", &Array::getPartitionMetadata, &Array::setPartitionMetadata,
                  Access::Public, Access::Private)
        .storedReadOnly("Executor", &Array::getStoredExecutor, Access::Public, Access::Private)
        .readOnly("IsValid", &Array::isValid, Access::Public, Access::Private)
        .method("hGetMetadata", &Array::hGetMetadata)
        .method("hSetMetadata", &Array::hSetMetadata)
        .method("getExecutor", &Array::getExecutor)
        .method("getPartitionMetadata", &Array::getPartitionMetadata)
        .method("numpartitions", &Array::numpartitions)
        .declareMethod("gather")
        .declareMethod("clientforeach")
        .declareMethod("vertcatpartitions");
    addFunFunMethod(builder, "elementfun", elementfun);
    addFunFunMethod(builder, "subsrefTabularVar", subsrefTabularVar);
    addFunFunMethod(builder, "filterslices", filterslices);
    addFunFunMethod(builder, "reducefun", reducefun);
    addFunFunMethod(builder, "aggregatefun", aggregatefun);
    addFunFunMethod(builder, "clientfun", clientfun);
    addFunFunMethod(builder, "isPartitionIndependent", isPartitionIndependent);
    addFunFunMethod(builder, "markPartitionIndependent", markPartitionIndependent);
    builder.declareStaticMethod("createInvalidVersionArray", Access::Private)
        .declareMethod("getEvaluationObjects", Access::Private)
        .declareStaticMethod("createGatherOutputHandler", Access::Private)
        .declareStaticMethod("cleanupOldCacheEntries", Access::Private);
  }

 private:
  using Builder = ki::CosClassBuilder<LazyPartitionedArray>;

  /// Adds a method whose function takes leading values and then the raw call: they are taken off
  /// the front of the inputs, in order, and what is left is passed on.
  template <class... Parameters>
  static void addFunFunMethod(Builder& builder, kcos::NameRef name, void (*function)(Parameters...),
                              ki::Access access = ki::Access::Public) {
    constexpr std::size_t kRawParameters = 4;
    constexpr std::size_t kLeading = sizeof...(Parameters) - kRawParameters;
    builder.variadicFunction(
        name,
        [function](int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs) {
          callWithLeading(function, std::make_index_sequence<kLeading>(), nlhs, plhs,
                          RawInputs{nrhs, prhs});
        },
        access);
  }

  template <class... Parameters, std::size_t... Index>
  static void callWithLeading(void (*function)(Parameters...), std::index_sequence<Index...>,
                              int nlhs, kxArray** plhs, RawInputs inputs) {
    using All = std::tuple<Parameters...>;
    // Braces take the values from the first to the last.
    [[maybe_unused]] std::tuple<std::tuple_element_t<Index, All>...> leading{
        takeLeading<std::tuple_element_t<Index, All>>(inputs)...};
    function(std::move(std::get<Index>(leading))..., nlhs, plhs, inputs.nrhs, inputs.prhs);
  }
};

const ki::ClassKcosRegistration<LazyPartitionedArrayCosClassInfo> registration;

}  // namespace

}  // namespace bigdata::lazyeval

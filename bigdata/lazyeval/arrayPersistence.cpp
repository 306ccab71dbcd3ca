#include "lazyeval/arrayPersistence.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "PartitionMetadata.h"
#include "foundation/i18n.h"
#include "ki/conversions.h"
#include "ki/createManagedObject.h"
#include "ki/hostCalls.h"
#include "lazyeval/ClosureFuture.h"
#include "lazyeval/LazyPartitionedArray.h"
#include "lazyeval/applyOperation.h"
#include "util/CosClientTraits.h"
#include "util/ErrorIds.h"

namespace bigdata::lazyeval {

using ki::KalvexManagedPtr;
using matrix::ArrayPtr;

namespace {

using LazyArrayPtr = KalvexManagedPtr<LazyPartitionedArray>;

constexpr std::string_view kVersion = "Version";
constexpr std::string_view kValueFuture = "ValueFuture";
constexpr std::string_view kPartitionMetadata = "PartitionMetadata";

/// The release that saved records without a version.
constexpr std::u16string_view kReleaseWithoutVersion = u"2016b";

bool hasField(const kxArray* record, std::string_view name) {
  for (std::size_t field = 0; field < kxGetNumberOfFields(record); ++field) {
    if (kxGetFieldName(record, field) == name) {
      return true;
    }
  }
  return false;
}

std::u16string savedRelease(const kxArray* record) {
  if (!hasField(record, kVersion)) {
    return std::u16string(kReleaseWithoutVersion);
  }
  return ki::fromArray<std::u16string>(kxGetField(record, 0, kVersion));
}

std::u16string currentRelease() {
  const ArrayPtr option = matrix::create("-release");
  return ki::fromArray<std::u16string>(ki::callHost("version", {option.get()}).get());
}

LazyArrayPtr restoreArray(const kxArray* record) {
  auto future = ki::fromArray<KalvexManagedPtr<ClosureFuture>>(kxGetField(record, 0, kValueFuture));
  auto metadata =
      ki::fromArray<KalvexManagedPtr<PartitionMetadata>>(kxGetField(record, 0, kPartitionMetadata));
  return ki::createManagedObject<LazyPartitionedArray>(
      ArrayConstructionArgs{std::move(future), std::move(metadata), defaultExecutor()});
}

void warnOfRelease(const std::u16string& saved) {
  using Warning = KALVEX::bigdata::array::InvalidTallVersion;
  const std::array<std::string, 1> arguments{fl::i18n::to_string(saved)};
  kxWarningMsgId(std::string(Warning::category) + ":" + Warning::key, arguments);
}

}  // namespace

ArrayPtr makeArrayRecord(const LazyPartitionedArray& array) {
  const std::array fields{kVersion, kValueFuture, kPartitionMetadata};
  ArrayPtr record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
  const ArrayPtr option = matrix::createChars("-release");
  kxSetField(record.get(), 0, kVersion, ki::callHost("version", {option.get()}).release());
  kxSetField(record.get(), 0, kValueFuture, ki::toArray(array.getValueFuture()).release());
  kxSetField(record.get(), 0, kPartitionMetadata, ki::toArray(array.partitionMetadata()).release());
  return record;
}

LazyArrayPtr loadArray(const kxArray* record) {
  if (kxGetClassID(record) != kxSTRUCT_CLASS || !kxIsScalar(record)) {
    foundation::core::except::raise<KALVEX::validateattributes::invalidType>(
        "Input", "scalar struct", kxGetClassName(record));
  }
  const std::u16string saved = savedRelease(record);
  if (saved == currentRelease()) {
    return restoreArray(record);
  }
  warnOfRelease(saved);
  return createInvalidVersionArray(saved);
}

LazyArrayPtr createInvalidVersionArray(const std::u16string& savedVersion) {
  const ArrayPtr version = matrix::create(savedVersion);
  return ki::fromArray<LazyArrayPtr>(
      ki::callHostMethod(ki::classKey<LazyPartitionedArray>(), "createInvalidVersionArray",
                         util::keptCosClient<LazyPartitionedArray>(), {version.get()})
          .get());
}

}  // namespace bigdata::lazyeval

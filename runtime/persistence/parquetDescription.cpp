#include "persistence/parquetDescription.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "kv/errors/StepError.h"
#include "kv/host/errors.h"
#include "source/registry/openSource.h"

namespace kv::runtime {

namespace {

std::shared_ptr<const Datastore> openBytes(std::string_view bytes) {
  try {
    return openSource(bytes);
  } catch (const errors::StepError& error) {
    host::raise("KALVEX:datastore:BadDescription", {error.what()});
  }
}

}  // namespace

host::Value describeParquet(const ParquetDatastore& datastore) {
  const std::string bytes = datastore.describeForSave();
  host::Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{bytes.size(), 1}, kxUINT8_CLASS));
  std::ranges::copy(bytes, static_cast<char*>(kxGetMutableData(column.get())));
  return column;
}

std::shared_ptr<const ParquetDatastore> parquetFromDescription(const kxArray* description) {
  if (kxGetClassID(description) != kxUINT8_CLASS) {
    host::raise("KALVEX:datastore:BadDescription", {"bytes are expected"});
  }
  const std::string_view bytes(static_cast<const char*>(kxGetData(description)),
                               kxGetNumberOfElements(description));
  auto source = std::dynamic_pointer_cast<const ParquetDatastore>(openBytes(bytes));
  if (source == nullptr) {
    host::raise("KALVEX:datastore:BadDescription", {"Parquet files are expected"});
  }
  return source;
}

}  // namespace kv::runtime

#include "persistence/parquetDescription.h"

#include "kv/host/errors.h"
#include "persistence/savedSource.h"

namespace kv::runtime {

host::Value describeParquet(const ParquetDatastore& datastore) {
  return savedDescription(datastore.describeForSave());
}

std::shared_ptr<const ParquetDatastore> parquetFromDescription(const kxArray* description) {
  auto source = std::dynamic_pointer_cast<const ParquetDatastore>(openSaved(description));
  if (source == nullptr) {
    host::raise("KALVEX:datastore:BadDescription", {"Parquet files are expected"});
  }
  return source;
}

}  // namespace kv::runtime

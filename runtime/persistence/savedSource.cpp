#include "persistence/savedSource.h"

#include <algorithm>
#include <array>

#include "kv/errors/StepError.h"
#include "kv/host/errors.h"
#include "source/registry/openSource.h"

namespace kv::runtime {

host::Value savedDescription(std::string_view bytes) {
  host::Value column = matrix::from_kalvex(
      kxCreateNumericArray(std::array<std::size_t, 2>{bytes.size(), 1}, kxUINT8_CLASS));
  std::ranges::copy(bytes, static_cast<char*>(kxGetMutableData(column.get())));
  return column;
}

std::shared_ptr<const Datastore> openSaved(const kxArray* description) {
  if (kxGetClassID(description) != kxUINT8_CLASS) {
    host::raise("KALVEX:datastore:BadDescription", {"bytes are expected"});
  }
  const std::string_view bytes(static_cast<const char*>(kxGetData(description)),
                               kxGetNumberOfElements(description));
  try {
    return openSource(bytes);
  } catch (const errors::StepError& error) {
    host::raise("KALVEX:datastore:BadDescription", {error.what()});
  }
}

}  // namespace kv::runtime

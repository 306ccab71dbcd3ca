#include "ki/detail/convertRowVector.h"

#include "util/ErrorIds.h"

namespace bigdata::ki {

typed_row_vector<bool>::typed_row_vector(ArrayPtr value) : value_(std::move(value)) {
  const kxArray* array = value_.get();
  if (array == nullptr || kxGetClassID(array) != kxLOGICAL_CLASS ||
      kxGetDimensions(array).size() != 2 || kxGetM(array) != 1) {
    foundation::core::except::raise<KALVEX::validateattributes::invalidType>(
        "Argument", "row vector", detail::describeArray(array));
  }
}

}  // namespace bigdata::ki

#include "ki/detail/convertNumber.h"

#include <boost/numeric/conversion/converter.hpp>
#include <cmath>
#include <limits>

namespace bigdata::ki {

namespace {

/// The result for NaN: the processor's "integer indefinite" value.
constexpr std::size_t kNotACount = std::size_t{1} << 63;

}  // namespace

bool isNumberScalar(const kxArray* array) {
  return array != nullptr && kxIsScalar(array) &&
         (kxIsNumeric(array) || kxGetClassID(array) == kxLOGICAL_CLASS);
}

double toDouble(const kxArray* array) {
  if (!isNumberScalar(array)) {
    detail::raiseInvalidInput("scalar double", detail::describeArray(array));
  }
  return kxGetScalar(array);
}

double toDouble(const kxArray* array, double ifNull) {
  return array == nullptr ? ifNull : toDouble(array);
}

bool toLogical(const kxArray* array) {
  if (!isNumberScalar(array)) {
    detail::raiseInvalidInput("scalar logical", "");
  }
  if (kxGetClassID(array) == kxLOGICAL_CLASS) {
    return kxGetLogicals(array)[0];
  }
  return kxGetScalar(array) != 0.0;
}

bool toLogical(const kxArray* array, bool ifNull) {
  return array == nullptr ? ifNull : toLogical(array);
}

std::size_t toSize(const kxArray* array) {
  using ToSize = boost::numeric::converter<std::size_t, double>;
  const double number =
      isNumberScalar(array) ? kxGetScalar(array) : std::numeric_limits<double>::quiet_NaN();
  if (std::isnan(number)) {
    return kNotACount;
  }
  if (ToSize::out_of_range(number) != boost::numeric::cInRange) {
    detail::raiseInvalidInput("scalar size_t", detail::describeArray(array));
  }
  return static_cast<std::size_t>(number);
}

ArrayPtr fromSize(std::size_t value) {
  return matrix::from_kalvex(kxCreateDoubleScalar(static_cast<double>(value)));
}

}  // namespace bigdata::ki

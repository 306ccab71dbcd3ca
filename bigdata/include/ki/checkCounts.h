#pragma once

#include "kx/array.h"

namespace bigdata::ki {

/// Checks the counts of a raw call: too many outputs, then too many inputs, then too few.
/// Errors: "KALVEX:TooManyOutputs", "KALVEX:TooManyInputs", "KALVEX:NotEnoughInputs".
inline void checkOutputs(int nlhs, int maximum) {
  if (nlhs > maximum) {
    matrix::detail::error_maxlhs();
  }
}
inline void checkInputs(int nrhs, int minimum, int maximum) {
  if (nrhs > maximum) {
    matrix::detail::error_maxrhs();
  }
  if (nrhs < minimum) {
    matrix::detail::error_minrhs();
  }
}
inline void checkMinInputs(int nrhs, int minimum) {
  if (nrhs < minimum) {
    matrix::detail::error_minrhs();
  }
}

}  // namespace bigdata::ki

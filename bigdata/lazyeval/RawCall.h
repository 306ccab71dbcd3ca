#pragma once

#include "kx/array.h"

namespace bigdata::lazyeval {

/// A raw call: counts and lists, as the host gives them to a variadic method.
///
/// Owner: outputs are null at the start and belong to the caller afterwards; inputs are borrowed.
struct RawCall {
  int nlhs;
  kxArray** plhs;
  int nrhs;
  const kxArray** prhs;
};

}  // namespace bigdata::lazyeval

#pragma once

#include "ki/detail/Conversion.h"
#include "ki/detail/convertArray.h"
#include "ki/detail/convertManaged.h"
#include "ki/detail/convertNumber.h"
#include "ki/detail/convertRowVector.h"
#include "ki/detail/convertText.h"

/// The conversions of all values that cross between the host and native code. `fromArray<P>(array)`
/// and `toArray(value)` choose the conversion by the native type; bound members use it for their
/// parameters and results.

#pragma once

#include "ki/detail/Conversion.h"
#include "ki/detail/convertArray.h"
#include "ki/detail/convertManaged.h"
#include "ki/detail/convertNumber.h"
#include "ki/detail/convertRowVector.h"
#include "ki/detail/convertText.h"

/// Every value that crosses between the host and native code, each by the type that native code
/// gives it. `fromArray<P>(array)` and `toArray(value)` choose the conversion by type; bound
/// members use it for their parameters and results.

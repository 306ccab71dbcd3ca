#pragma once

#include <memory>

#include "kcos/interface.h"
#include "kx/array.h"

namespace bigdata::ki {

using matrix::ArrayPtr;

/// A field of a managed object that holds a host value.
using PropertyArrayPtr = std::unique_ptr<kxArray, kcos::property_array_deleter>;

/// Prepares a host value for a field in the native part of `owner`: from now on it belongs to
/// `owner` in the host's lifetime graph. A value with other owners is replaced by a shared copy.
///
/// Result: the adopted value; null for null.
PropertyArrayPtr adoptPropertyArray(kcos::COSInterface* owner, ArrayPtr value);

}  // namespace bigdata::ki

#pragma once

#include <cstddef>

#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "operator/operations.h"

namespace kv::runtime {

/// The number in a property of an operation that counts its inputs or outputs.
std::size_t countOf(const kxArray* operation, kcos::NameRef property);

/// The class of a row, but for its methods. A loaded object is held to the row's arity.
host::ClassDefinition definitionOf(const OperationClass& row);

}  // namespace kv::runtime

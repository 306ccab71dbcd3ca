#pragma once

#include <nanobind/nanobind.h>

#include <string>
#include <vector>

#include "kv/elements.h"
#include "kv/error.h"

namespace kv::python {

namespace nb = nanobind;

/// A Python function of chunks as array/ calls it, on any thread: `kvbigdata._chunks` converts its
/// inputs and its result. An exception that it raises becomes an Error of its type and text, and
/// comes back by `originalOf`.
///
/// `type` is the type of the elements that it must return.
ElementsFunction chunkFunction(nb::handle function, const std::string& type);

/// The same for a function of chunks of a table, which returns columns of these names and types.
TableFunction tableFunction(nb::handle function, std::vector<std::string> names,
                            const std::vector<MappedColumn>& columns);

/// The elements of a tuple that `kvbigdata._results.from_numpy` made. The array must be one that no
/// one else changes. Requires: the interpreter's lock.
Elements toElements(nb::handle returned);

/// The Python exception from which an error of this thread's call was made; null for any other.
/// Requires: the interpreter's lock.
nb::object originalOf(const Error& error);

}  // namespace kv::python

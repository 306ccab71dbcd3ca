#pragma once

#include <nanobind/nanobind.h>

#include <string>
#include <string_view>

namespace kv::python {

namespace nb = nanobind;

/// A Python text in the host's UTF-16 and back. A lone half of a pair stays what it is.
/// Errors: TypeError for what isn't a `str`.
std::u16string toUtf16(nb::handle text);
nb::str toPython(std::u16string_view text);

/// A Python text as UTF-8. Errors: TypeError if it isn't a `str`, naming `role`.
std::string toUtf8(nb::handle text, const char* role);
nb::str toPython(std::string_view utf8);

}  // namespace kv::python

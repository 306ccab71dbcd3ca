#pragma once

#include <nanobind/nanobind.h>

#include <string>
#include <string_view>

namespace kv::python {

namespace nb = nanobind;

/// Converts Python text to the host's UTF-16 and back. Unpaired surrogates are kept.
/// Errors: TypeError for what isn't a `str`.
std::u16string toUtf16(nb::handle text);
nb::str toPython(std::u16string_view text);

/// A Python text as UTF-8. Errors: TypeError that names `role` if it isn't a `str`.
std::string toUtf8(nb::handle text, const char* role);
nb::str toPython(std::string_view utf8);

}  // namespace kv::python

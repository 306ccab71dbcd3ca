#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "save/format.h"

namespace kv::host {

/// The contents of a file's sections, by format::Section.
using Sections = std::array<std::string, format::kSections>;
using SectionViews = std::array<std::string_view, format::kSections>;

/// The header of a file that consists of it and the sections, in order.
std::string headerOf(const Sections& sections);

/// Checks the first `kHeaderBytes` of a file, or all that it has, against the number of its bytes,
/// before the rest is read.
///
/// Errors: "KALVEX:load:Corrupt" with "HEAD" or the section, offset and reason.
void checkHead(std::string_view head, std::uint64_t fileBytes);

/// The sections of a whole file, checksums and lengths checked.
///
/// Lives: as long as the bytes.
/// Errors: "KALVEX:load:Corrupt" with "HEAD" or the section, offset and reason;
/// "KALVEX:load:LaterFormat" with the release that wrote the file and its format, and this release
/// and its format.
SectionViews sectionsOf(std::string_view file);

/// Refuses a file. `section`: a tag of a section or "HEAD"; `offset`: in bytes from its start.
/// Errors: "KALVEX:load:Corrupt", always.
[[noreturn]] void refuseFile(std::string_view section, std::size_t offset,
                             const std::string& reason);

}  // namespace kv::host

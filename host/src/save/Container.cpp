// The outermost layer of a file: a header with the length and checksum of each section. The header
// is read and checked before memory is requested for the rest, so a file that claims to be large
// must be large.

#include "save/Container.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <cstring>

#include "kv/host/errors.h"

namespace kv::host {

namespace {

using namespace format;

constexpr std::string_view kHead = "HEAD";

std::uint64_t checksum(std::string_view bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

template <class Number>
void put(std::string& bytes, Number number) {
  bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

template <class Number>
Number get(std::string_view bytes, std::size_t offset) {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof(number));
  return number;
}

std::uint64_t lengthOf(std::string_view head, std::size_t section) {
  return get<std::uint64_t>(head, kTableAt + section * kTableEntryBytes + 8);
}

/// The release that wrote a file, as the file says; a release has visible ASCII characters only.
std::string releaseOf(std::string_view file) {
  const std::string_view field = file.substr(kReleaseAt, kReleaseBytes);
  std::string release(field.substr(0, field.find('\0')));
  std::ranges::replace_if(
      release, [](char c) { return c <= ' ' || c > '~'; }, '?');
  return release;
}

void checkHeader(std::string_view file) {
  if (file.size() < kMagic.size() || file.substr(0, kMagic.size()) != kMagic) {
    refuseFile(kHead, 0, "this isn't a file of saved values");
  }
  // A later format may have another header, so its number is looked at before length and checksum.
  const bool hasRelease = file.size() >= kReleaseAt + kReleaseBytes;
  const auto version = hasRelease ? get<std::uint32_t>(file, kVersionAt) : kVersion;
  if (version > kVersion) {
    raise("KALVEX:load:LaterFormat",
          {releaseOf(file), std::to_string(version), KV_VERSION, std::to_string(kVersion)});
  }
  if (file.size() < kHeaderBytes) {
    refuseFile(kHead, file.size(), "the file ends within its header");
  }
  if (get<std::uint64_t>(file, kHeaderChecksumAt) != checksum(file.substr(0, kHeaderChecksumAt))) {
    refuseFile(kHead, kHeaderChecksumAt, "the checksum doesn't fit");
  }
  if (version != kVersion || get<std::uint32_t>(file, kCountAt) != kSections) {
    refuseFile(kHead, kVersionAt, "format and number of sections don't fit each other");
  }
}

}  // namespace

std::string headerOf(const Sections& sections) {
  std::string header(kMagic);
  put(header, kVersion);
  put(header, static_cast<std::uint32_t>(kSections));
  std::string release = KV_VERSION;
  release.resize(kReleaseBytes, '\0');
  header += release;
  for (std::size_t i = 0; i < kSections; ++i) {
    header += kSectionTags[i];
    put(header, std::uint32_t{0});
    put(header, static_cast<std::uint64_t>(sections[i].size()));
    put(header, checksum(sections[i]));
  }
  put(header, checksum(header));
  return header;
}

void checkHead(std::string_view head, std::uint64_t fileBytes) {
  checkHeader(head);
  std::uint64_t left = fileBytes - kHeaderBytes;
  for (std::size_t i = 0; i < kSections; ++i) {
    const std::size_t entry = kTableAt + i * kTableEntryBytes;
    if (head.substr(entry, 4) != kSectionTags[i] || get<std::uint32_t>(head, entry + 4) != 0) {
      refuseFile(kHead, entry, "section " + std::string(kSectionTags[i]) + " is missing");
    }
    const std::uint64_t length = lengthOf(head, i);
    if (length > left) {
      refuseFile(kSectionTags[i], left,
                 "the file ends before the " + std::to_string(length) + " bytes of the section");
    }
    left -= length;
  }
  if (left != 0) {
    refuseFile(kHead, fileBytes - left, std::to_string(left) + " bytes follow the last section");
  }
}

SectionViews sectionsOf(std::string_view file) {
  checkHead(file.substr(0, kHeaderBytes), file.size());
  SectionViews sections;
  std::size_t at = kHeaderBytes;
  for (std::size_t i = 0; i < kSections; ++i) {
    sections[i] = file.substr(at, lengthOf(file, i));
    at += sections[i].size();
    const std::size_t entry = kTableAt + i * kTableEntryBytes;
    if (get<std::uint64_t>(file, entry + 16) != checksum(sections[i])) {
      refuseFile(kSectionTags[i], 0, "the checksum doesn't fit");
    }
  }
  return sections;
}

void refuseFile(std::string_view section, std::size_t offset, const std::string& reason) {
  raise("KALVEX:load:Corrupt", {std::string(section), std::to_string(offset), reason});
}

}  // namespace kv::host

#pragma once

#include <span>

#include "kv/host/errors.h"

namespace kv::host {

/// The ids that the host and its platform interface raise, with their texts.
std::span<const CatalogueEntry> hostCatalogue() noexcept;

}  // namespace kv::host

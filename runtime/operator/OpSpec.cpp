#include "operator/OpSpec.h"

#include <fmt/core.h>

namespace kv::runtime {

std::string describe(const OpSpec& spec) {
  return spec.origin.empty() ? spec.label : fmt::format("{} at {}", spec.label, spec.origin);
}

}  // namespace kv::runtime

#include "session/overloads.h"

#include <algorithm>

#include "session/ClassRecord.h"
#include "session/access.h"

namespace kv::host {

namespace {

using Candidates = boost::container::small_vector<const Method*, 4>;

bool isOfKind(const Method& method, MethodKind kind) {
  return kind == MethodKind::Any || method.isStatic == (kind == MethodKind::Static);
}

/// Lower is closer: an exact count, a range, any number.
int looseness(const Method& method) {
  return method.counts.isExact() ? 0 : method.counts.maxInputs >= 0 ? 1 : 2;
}

/// Outputs are checked first, then too many inputs, then too few.
[[noreturn]] void raiseCounts(const Candidates& candidates, int outputs, int inputs) {
  const auto all = [&](auto&& test) {
    return std::all_of(candidates.begin(), candidates.end(), test);
  };
  if (all([&](const Method* method) { return !method->counts.gives(outputs); })) {
    matrix::detail::error_maxlhs();
  }
  if (all([&](const Method* method) { return method->counts.tooMany(inputs); })) {
    matrix::detail::error_maxrhs();
  }
  matrix::detail::error_minrhs();
}

}  // namespace

const Method* chooseOverload(const MethodSet& set, MethodKind kind, int outputs, int inputs,
                             const ClassRecord* caller) {
  Candidates candidates;
  const Method* denied = nullptr;
  const Method* closest = nullptr;
  bool isVisible = false;
  for (const Method* method : set) {
    if (!isOfKind(*method, kind)) {
      continue;
    }
    if (!mayAccess(method->access, *method->owner, method->name, caller)) {
      denied = denied != nullptr ? denied : method;
      continue;
    }
    isVisible = true;
    if (!method->hasBody()) {
      continue;
    }
    candidates.push_back(method);
    if (method->counts.takes(inputs) &&
        (closest == nullptr || looseness(*method) < looseness(*closest))) {
      closest = method;
    }
  }
  if (!isVisible && denied != nullptr) {
    raiseAccessDenied(*denied->owner, denied->name);
  }
  if (candidates.empty()) {
    return nullptr;
  }
  if (closest == nullptr || !closest->counts.gives(outputs)) {
    raiseCounts(candidates, outputs, inputs);
  }
  return closest;
}

}  // namespace kv::host

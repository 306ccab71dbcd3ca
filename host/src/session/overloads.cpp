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

const Method* closest(const Candidates& candidates, int inputs) {
  const Method* best = nullptr;
  for (const Method* method : candidates) {
    if (method->counts.takes(inputs) &&
        (best == nullptr || looseness(*method) < looseness(*best))) {
      best = method;
    }
  }
  return best;
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
  for (const Method* method : set) {
    if (!isOfKind(*method, kind)) {
      continue;
    }
    if (mayAccess(method->access, *method->owner, method->name, caller)) {
      candidates.push_back(method);
    } else {
      denied = denied != nullptr ? denied : method;
    }
  }
  if (candidates.empty() && denied != nullptr) {
    raiseAccessDenied(*denied->owner, denied->name);
  }
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                  [](const Method* method) { return !method->hasBody(); }),
                   candidates.end());
  if (candidates.empty()) {
    return nullptr;
  }
  const Method* chosen = closest(candidates, inputs);
  if (chosen == nullptr || !chosen->counts.gives(outputs)) {
    raiseCounts(candidates, outputs, inputs);
  }
  return chosen;
}

}  // namespace kv::host

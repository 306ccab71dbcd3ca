#include "kv/host/methodWrappers.h"

#include <algorithm>
#include <utility>

#include "name/names.h"
#include "session/SessionState.h"
#include "session/wrappers.h"

namespace kv::host {

void wrapMethod(std::string_view className, std::string_view method, MethodWrapper wrapper) {
  std::vector<WrappedMethod>& all = requireSession().wrappedMethods;
  WrappedMethod made{interned(className), interned(method),
                     std::make_shared<const MethodWrapper>(std::move(wrapper))};
  const auto found = std::ranges::find_if(all, [&](const WrappedMethod& one) {
    return one.className == made.className && one.name == made.name;
  });
  if (found == all.end()) {
    all.push_back(std::move(made));
  } else {
    *found = std::move(made);
  }
}

std::shared_ptr<const MethodWrapper> wrapperOf(const SessionState& session, const Method& method) {
  const auto found = std::ranges::find_if(session.wrappedMethods, [&](const WrappedMethod& one) {
    return one.name == method.name && one.className == method.owner->name();
  });
  return found == session.wrappedMethods.end() ? nullptr : found->wrapper;
}

}  // namespace kv::host

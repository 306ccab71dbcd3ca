#include "kv/userPlace.h"

#include <utility>
#include <vector>

#include "publicCall.h"

namespace kv {

UserPlace::UserPlace(Session& session, StackFrame place) : session_(session) {
  const std::lock_guard lease(session_.impl().mutex);
  translated([&] {
    const host::Frame frame = {std::move(place.file), std::move(place.name), place.line};
    session_.impl().host.setStackProvider([frame] { return std::vector<host::Frame>{frame}; });
  });
}

UserPlace::~UserPlace() {
  const std::lock_guard lease(session_.impl().mutex);
  session_.impl().host.setStackProvider(nullptr);
}

}  // namespace kv

#pragma once

#include "util/SessionSlot.h"

namespace kcos {
class COSClient;
}

namespace bigdata::ki::detail {

/// Tag: the session's client of the native class `T`.
template <class T>
struct CosClientTraits {};

}  // namespace bigdata::ki::detail

namespace bigdata::util {

/// Keeps the client with which class `T` was initialised, so that native code can call methods of
/// that class. The first client of a session stays.
template <class T>
void keepCosClient(const kcos::COSClient* client) {
  sessionSlot<ki::detail::CosClientTraits<T>, const kcos::COSClient*>([&] { return client; });
}

/// Errors: std::out_of_range if the class hasn't been initialised in this session.
template <class T>
const kcos::COSClient* keptCosClient() {
  using Tag = ki::detail::CosClientTraits<T>;
  const auto& slot = SessionStore::findOrFail(sessionSlotId<Tag>(), typeid(Tag));
  return *static_cast<const kcos::COSClient**>(slot.get());
}

}  // namespace bigdata::util

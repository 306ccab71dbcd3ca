#include "heap/Pool.h"
#include "kv/host/session.h"

namespace kv::host {

Ledger ledger() noexcept {
  const auto total = [](Counted kind) { return static_cast<std::size_t>(Pool::total(kind)); };
  return {.objects = total(Counted::Objects),
          .arrays = total(Counted::Arrays),
          .payloads = total(Counted::Payloads),
          .payloadBytes = total(Counted::PayloadBytes)};
}

}  // namespace kv::host

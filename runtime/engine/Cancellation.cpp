#include "kv/runtime/Cancellation.h"

#include <algorithm>
#include <utility>

namespace kv::runtime {

namespace {

thread_local const CancellationToken* unitOfThread = nullptr;

}  // namespace

EvaluationWatch::~EvaluationWatch() = default;

void InterruptRequests::settle() noexcept {
  const std::uint64_t made = made_.load();
  std::uint64_t settled = settled_.load();
  while (settled < made && !settled_.compare_exchange_weak(settled, made)) {
  }
}

CancellationToken::CancellationToken(InterruptRequests& process, InterruptRequests& session,
                                     EvaluationWatch* watch)
    : heard_{Heard{&process, process.settled()}, Heard{&session, session.settled()}},
      whole_(unitOfThread),
      watch_(watch) {}

CancellationToken::~CancellationToken() {
  for (const Heard& heard : heard_) {
    if (heard.requests != nullptr) {
      heard.requests->settle();
    }
  }
}

bool CancellationToken::isCancelled() const noexcept {
  return cancelled_.load(std::memory_order_relaxed) ||
         (whole_ != nullptr && whole_->isCancelled()) ||
         std::ranges::any_of(heard_, [](const Heard& heard) {
           return heard.requests != nullptr && heard.requests->made() != heard.settled;
         });
}

EvaluationWatch* CancellationToken::watch() const noexcept {
  return watch_ != nullptr || whole_ == nullptr ? watch_ : whole_->watch();
}

CancellationScope::CancellationScope(const CancellationToken& unit) noexcept
    : outer_(std::exchange(unitOfThread, &unit)) {}

CancellationScope::~CancellationScope() { unitOfThread = outer_; }

const CancellationToken* CancellationScope::current() noexcept { return unitOfThread; }

void CancellationToken::throwIfCancelled() const {
  if (isCancelled()) {
    throw Cancelled();
  }
  if (watch_ != nullptr && std::this_thread::get_id() == owner_) {
    watch_->poll();
  }
}

}  // namespace kv::runtime

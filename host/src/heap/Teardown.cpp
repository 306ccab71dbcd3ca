// Destruction without recursion. A destructor that frees the last reference to another payload or
// object doesn't destroy it but enqueues it, and the outermost call of `run` on the thread works
// through the queue. Destroying a user's callable may run any code, also code that uses the
// session, so callables come last, when host structures are consistent again.

#include "heap/Teardown.h"

#include <utility>

#include "heap/Heap.h"
#include "heap/ReleaseQueue.h"

namespace kv::host {

constinit thread_local int Teardown::depth_ = 0;
constinit thread_local Payload* Teardown::payloads_ = nullptr;
constinit thread_local Payload* Teardown::callables_ = nullptr;
constinit thread_local bool Teardown::releasing_ = false;

namespace {

Payload* pop(Payload*& list) noexcept {
  Payload* first = list;
  list = first->next;
  return first;
}

}  // namespace

void Teardown::enqueue(Payload* payload) noexcept {
  Payload** list = &payloads_;
  if (payload->kind == PayloadKind::Function) {
    auto* function = static_cast<FunctionPayload*>(payload);
    if (function->isCallable()) {
      if (ReleaseQueue* home = std::exchange(function->home, nullptr)) {
        home->forget(*function);
      }
      list = &callables_;
    }
  }
  payload->next = *list;
  *list = payload;
  run();
}

void Teardown::destroyPayloads() noexcept {
  while (payloads_ != nullptr) {
    delete pop(payloads_);
  }
}

void Teardown::releaseCallables() noexcept {
  if (releasing_) {
    return;
  }
  releasing_ = true;
  while (callables_ != nullptr) {
    delete pop(callables_);
  }
  releasing_ = false;
}

void Teardown::run() noexcept {
  if (depth_ != 0) {
    return;
  }
  ++depth_;
  do {
    destroyPayloads();
  } while (Heap::current() != nullptr && Heap::current()->destroyNext());
  --depth_;
  releaseCallables();
}

Teardown::Nested::Nested() noexcept : outer_(std::exchange(payloads_, nullptr)) { ++depth_; }

Teardown::Nested::~Nested() {
  destroyPayloads();
  payloads_ = outer_;
  --depth_;
}

}  // namespace kv::host

#include "classes/interrupts.h"

#include <atomic>
#include <memory>

#include "classes/sessionMemory.h"
#include "classes/sessionValues.h"
#include "driver/failures.h"
#include "kv/runtime/runtime.h"

namespace kv::runtime {

namespace {

constinit InterruptRequests processInterrupts;
std::atomic<std::unique_ptr<EvaluationWatch> (*)()> makeWatch{nullptr};

}  // namespace

void setEvaluationWatch(std::unique_ptr<EvaluationWatch> (*make)()) noexcept { makeWatch = make; }

void requestInterrupt() noexcept { processInterrupts.add(); }

std::shared_ptr<InterruptRequests> sessionInterrupts() { return runtimeState().interrupts; }

void asEvaluation(const std::function<void(const ExecutionContext&)>& action) {
  const auto make = makeWatch.load();
  const std::unique_ptr<EvaluationWatch> watch = make != nullptr ? make() : nullptr;
  const CancellationToken token(processInterrupts, *runtimeState().interrupts, watch.get());
  const ExecutionContext context{&ledgerOfEvaluation(), token};
  const ContextScope scope(context);
  try {
    withStep({.label = "The evaluation"}, nullptr, [&] { action(context); });
  } catch (const Cancelled&) {
    throw Interrupted();
  } catch (...) {
    if (token.isCancelled()) {  // an interrupt counts for more than a failure at the same time
      throw Interrupted();
    }
    throw;
  }
}

}  // namespace kv::runtime

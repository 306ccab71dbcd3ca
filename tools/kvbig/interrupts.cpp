#include "interrupts.h"

#include <kv/array.h>
#include <signal.h>
#include <unistd.h>

#include "failures.h"

namespace kv::shell {

namespace {

volatile sig_atomic_t isInterrupted = 0;

void onInterrupt(int) {
  if (isInterrupted != 0) {
    _exit(kInterrupted);
  }
  isInterrupted = 1;
  interrupt();
}

}  // namespace

void installSignalHandlers() {
  signal(SIGPIPE, SIG_DFL);
  struct sigaction before = {};
  if (sigaction(SIGINT, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) {
    return;
  }
  struct sigaction action = {};
  action.sa_handler = onInterrupt;
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
}

void throwIfInterrupted() {
  if (isInterrupted != 0) {
    throw Interrupted();
  }
}

}  // namespace kv::shell

#include "support/SystemCalls.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>

namespace kv::test {

#if defined(__x86_64__)

namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;
constexpr std::size_t kOutcomeBytes = 4096;

const std::map<unsigned long long, std::string>& fileCalls() {
  static const std::map<unsigned long long, std::string> names = {
      {SYS_open, "open"},
      {SYS_openat, "openat"},
      {SYS_close, "close"},
      {SYS_read, "read"},
      {SYS_write, "write"},
      {SYS_pread64, "pread"},
      {SYS_writev, "writev"},
      {SYS_stat, "stat"},
      {SYS_lstat, "lstat"},
      {SYS_fstat, "fstat"},
      {SYS_newfstatat, "newfstatat"},
      {SYS_statx, "statx"},
      {SYS_access, "access"},
      {SYS_faccessat, "faccessat"},
      {SYS_faccessat2, "faccessat2"},
      {SYS_readlink, "readlink"},
      {SYS_fchmod, "fchmod"},
      {SYS_flock, "flock"},
      {SYS_fsync, "fsync"},
      {SYS_fdatasync, "fdatasync"},
      {SYS_fcntl, "fcntl"},
      {SYS_rename, "rename"},
      {SYS_renameat2, "renameat2"},
      {SYS_unlink, "unlink"},
      {SYS_unlinkat, "unlinkat"},
      {SYS_lseek, "lseek"},
      {SYS_getdents64, "getdents64"},
      {SYS_ftruncate, "ftruncate"},
      {SYS_pwrite64, "pwrite"},
      {SYS_mkdir, "mkdir"},
      {SYS_rmdir, "rmdir"},
  };
  return names;
}

/// Memory that a child shares with its parent, so that it can report its result without a system
/// call.
class SharedText {
 public:
  SharedText()
      : text_(static_cast<char*>(::mmap(nullptr, kOutcomeBytes, PROT_READ | PROT_WRITE,
                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedText() { ::munmap(text_, kOutcomeBytes); }
  SharedText(const SharedText&) = delete;
  SharedText& operator=(const SharedText&) = delete;

  void set(const std::string& text) { std::strncpy(text_, text.c_str(), kOutcomeBytes - 1); }
  std::string get() const { return text_; }

 private:
  char* text_;
};

/// Follows a stopped child from system call to system call until it ends.
class Tracer {
 public:
  Tracer(pid_t child, std::optional<Fault> fault, const CallObserver& observer)
      : child_(child), fault_(fault), observer_(observer) {}

  /// Result: false if the child was killed.
  bool run() {
    int status = 0;
    ::waitpid(child_, &status, 0);
    ::ptrace(PTRACE_SETOPTIONS, child_, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    bool isEntry = true;
    for (long signal = 0; proceed(signal, status);) {
      const bool isCall = WSTOPSIG(status) == kSystemCallStop;
      signal = isCall ? 0 : WSTOPSIG(status);
      if (isCall) {
        isEntry ? enter() : leave();
        isEntry = !isEntry;
      }
    }
    return !WIFSIGNALED(status);
  }

  const std::vector<std::string>& calls() const { return calls_; }

 private:
  bool proceed(long signal, int& status) {
    ::ptrace(PTRACE_SYSCALL, child_, 0, signal);
    return ::waitpid(child_, &status, 0) == child_ && WIFSTOPPED(status);
  }

  bool isHere(Fault::Kind kind) const {
    return fault_ && fault_->kind == kind && isCounted_ && counted_ > fault_->call &&
           counted_ - fault_->call <= static_cast<std::size_t>(fault_->times);
  }

  void enter() {
    user_regs_struct registers = read();
    const auto name = fileCalls().find(registers.orig_rax);
    const bool isFileCall = name != fileCalls().end();
    calls_.push_back(isFileCall ? name->second : "other");
    isCounted_ = !fault_ || fault_->only == nullptr || calls_.back() == fault_->only;
    counted_ += isCounted_ ? 1 : 0;
    current_.reset();
    if (isFileCall && (observer_.before || observer_.after)) {
      current_ = describe(name->second, registers);
    }
    if (current_ && observer_.before) {
      observer_.before(*current_);
    }
    fails_ = isFileCall && isHere(Fault::Kind::fail);
    if (isHere(Fault::Kind::killBefore)) {
      ::kill(child_, SIGKILL);
    } else if (fails_) {
      registers.orig_rax = static_cast<unsigned long long>(-1);  // no system call
      write(registers);
    } else if (isHere(Fault::Kind::shorten) &&
               (calls_.back() == "read" || calls_.back() == "pread" || calls_.back() == "write" ||
                calls_.back() == "pwrite")) {
      registers.rdx = std::max(1ULL, registers.rdx / 2);
      write(registers);
    }
  }

  void leave() {
    if (fails_) {
      user_regs_struct registers = read();
      registers.rax = static_cast<unsigned long long>(-fault_->error);
      write(registers);
    } else if (isHere(Fault::Kind::killAfter)) {
      ::kill(child_, SIGKILL);
    }
    if (current_ && observer_.after) {
      current_->result = static_cast<long>(read().rax);
      if (current_->name == "openat") {
        current_->descriptor = static_cast<int>(current_->result);
      }
      observer_.after(*current_);
    }
  }

  FileCall describe(const std::string& name, const user_regs_struct& registers) const {
    FileCall call{.name = name};
    if (name == "openat") {
      call.path = textAt(registers.rsi);
      call.flags = static_cast<int>(registers.rdx);
    } else if (name == "rename") {
      call.path = textAt(registers.rdi);
      call.target = textAt(registers.rsi);
    } else if (name == "unlink") {
      call.path = textAt(registers.rdi);
    } else {
      call.descriptor = static_cast<int>(registers.rdi);
    }
    if (name == "write") {
      call.data.resize(registers.rdx);
      copyFromChild(registers.rsi, call.data.data(), call.data.size());
    }
    return call;
  }

  std::string textAt(unsigned long long address) const {
    std::string text;
    for (char next = 0; copyFromChild(address + text.size(), &next, 1) && next != 0;) {
      text.push_back(next);
    }
    return text;
  }

  bool copyFromChild(unsigned long long address, char* to, std::size_t count) const {
    const iovec here{to, count};
    const iovec there{reinterpret_cast<void*>(address), count};
    return ::process_vm_readv(child_, &here, 1, &there, 1, 0) == static_cast<ssize_t>(count);
  }

  user_regs_struct read() const {
    user_regs_struct registers{};
    ::ptrace(PTRACE_GETREGS, child_, 0, &registers);
    return registers;
  }
  void write(const user_regs_struct& registers) const {
    ::ptrace(PTRACE_SETREGS, child_, 0, &registers);
  }

  pid_t child_;
  std::optional<Fault> fault_;
  const CallObserver& observer_;
  std::optional<FileCall> current_;
  std::vector<std::string> calls_;
  bool isCounted_ = false;  ///< the current call
  std::size_t counted_ = 0;
  bool fails_ = false;
};

/// The child's side: enables tracing, waits for the tracer and works.
[[noreturn]] void beTraced(const std::function<std::string()>& work, SharedText& outcome) {
  if (::ptrace(PTRACE_TRACEME, 0, 0, 0) != 0) {
    ::_exit(1);
  }
  ::raise(SIGSTOP);
  outcome.set(work());
  ::_exit(0);
}

}  // namespace

bool canTrace() {
  return runTraced([] { return std::string("traced"); }).calls.size() > 0;
}

TracedRun runTraced(const std::function<std::string()>& work, std::optional<Fault> fault,
                    const CallObserver& observer) {
  SharedText outcome;
  const pid_t child = ::fork();
  if (child == 0) {
    beTraced(work, outcome);
  }
  EXPECT_GT(child, 0);
  Tracer tracer(child, fault, observer);
  const bool hasEnded = tracer.run();
  return {tracer.calls(), hasEnded ? std::optional(outcome.get()) : std::nullopt};
}

#else

bool canTrace() { return false; }

TracedRun runTraced(const std::function<std::string()>&, std::optional<Fault>,
                    const CallObserver&) {
  ADD_FAILURE() << "system calls can be traced on x86-64 only";
  return {};
}

#endif

}  // namespace kv::test

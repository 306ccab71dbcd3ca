#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kv::test {

/// The fault injected into one system call of a traced process.
struct Fault {
  enum class Kind {
    killBefore,  ///< the process dies before the call has any effect
    killAfter,   ///< ... after the call
    fail,        ///< the call has no effect and returns `error`; only calls that deal with files
    shorten,     ///< a read or write processes half of its bytes
  };

  std::size_t call = 0;  ///< its index, counted from the start of the work
  Kind kind = Kind::killBefore;
  int error = 0;
  int times = 1;               ///< how many calls meet the fault, one after the other
  const char* only = nullptr;  ///< the name of the calls that are counted; null for all calls
};

struct TracedRun {
  std::vector<std::string> calls;  ///< names of the system calls, in order; "other" for the rest
  std::optional<std::string> outcome;  ///< the result of the work; none if it was killed
};

/// A system call that deals with files, as the traced process makes it.
struct FileCall {
  std::string name;
  std::string path{};    ///< its first path, as given; empty if it has none
  std::string target{};  ///< for a rename: the new path
  std::string data{};    ///< for a write: the bytes to write
  int flags = 0;         ///< for an open
  int descriptor = -1;   ///< the one it uses; for an open, the one it returned
  long result = 0;       ///< valid only after the call
};

/// Observes each file call of a traced process. The process waits meanwhile.
struct CallObserver {
  std::function<void(const FileCall&)> before{};
  std::function<void(const FileCall&)> after{};
};

/// True if processes can be traced and their system calls changed: on x86-64, unless forbidden.
bool canTrace();

/// Runs `work` in a child process and records its system calls.
///
/// The child is a copy of this process that ends without destroying anything.
TracedRun runTraced(const std::function<std::string()>& work, std::optional<Fault> fault = {},
                    const CallObserver& observer = {});

}  // namespace kv::test

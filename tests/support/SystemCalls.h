#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kv::test {

/// What befalls one system call of a traced process.
struct Fault {
  enum class Kind {
    killBefore,  ///< the process dies before the call does anything
    killAfter,   ///< ... once the call is done
    fail,        ///< the call does nothing and gives `error`; calls that deal with files only
    shorten,     ///< a read or write handles half of its bytes
  };

  std::size_t call = 0;  ///< which one, counted from the start of the work
  Kind kind = Kind::killBefore;
  int error = 0;
};

struct TracedRun {
  std::vector<std::string> calls;  ///< names of the system calls, in order; "other" for the rest
  std::optional<std::string> outcome;  ///< what the work gave; none when it was killed
};

/// A system call that deals with files, as the traced process makes it.
struct FileCall {
  std::string name;
  std::string path{};    ///< its first path, as given; empty where it has none
  std::string target{};  ///< of a rename: the new path
  std::string data{};    ///< of a write: the bytes that it was given
  int flags = 0;         ///< of an open
  int descriptor = -1;   ///< the one it works on; of an open, the one it returned
  long result = 0;       ///< known only once the call is done
};

/// Sees each file call of a traced process. The process waits meanwhile.
struct CallObserver {
  std::function<void(const FileCall&)> before{};
  std::function<void(const FileCall&)> after{};
};

/// True where processes can be traced and their system calls changed: x86-64, and not forbidden.
bool canTrace();

/// Does `work` in a child process and notes its system calls.
///
/// The child is a copy of this process that ends without destroying anything.
TracedRun runTraced(const std::function<std::string()>& work, std::optional<Fault> fault = {},
                    const CallObserver& observer = {});

}  // namespace kv::test

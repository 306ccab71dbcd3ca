#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "bigdata/LazySession.h"

namespace kv::test {

using host::Value;

/// A session with the core and a host side of stubs that note their calls, and with a user's
/// classes and functions that count what runs of them. Made by a test rather than for it, so that
/// the test sees what is left when it is gone.
class LoadingSession : public bigdata::lazyeval::LazySession {
 public:
  LoadingSession();

  /// A structure that leads to everything that can be saved, in about 20 KB.
  Value graph();
  /// The last array of a chain of closures, each of which reads the one before.
  Value chain(std::size_t closures);

  std::string save(const Value& value) { return session.saveBytes(value.get()); }
  Value load(std::string_view bytes, bool trusted = false) {
    return session.loadBytes(bytes, trusted);
  }
  /// Id and arguments of the error that a load ends with, or "loaded". Drops what was loaded.
  std::string outcomeOf(std::string_view bytes);

  /// What ran since the last look that a load has no business with: constructors, methods, defaults
  /// and functions of the user, and any function of the host side but the four that loading asks.
  std::size_t takeUserCalls();

  host::Session& host() { return session; }
  std::size_t liveObjects() {
    session.collect();
    return session.liveObjects();
  }
  /// True when every invariant of the heap holds.
  bool isSound() const { return session.verify().empty(); }

 private:
  void TestBody() override {}
  void defineUsersClasses();
  void completeArrays();
  Value plainValues();
  Value usersObjects();
  Value arrays();

  std::size_t userCalls_ = 0;
};

/// A 1-by-1 structure.
Value makeRecord(std::initializer_list<std::pair<std::string_view, Value>> fields);

}  // namespace kv::test

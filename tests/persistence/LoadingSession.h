#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "bigdata/LazySession.h"

namespace kv::test {

using host::Value;

/// A session with the core, with stubs for the host side that record their calls, and with user
/// classes and functions that count their calls. Tests create it themselves, so that they can check
/// what is left when it is destroyed.
class LoadingSession : public bigdata::lazyeval::LazySession {
 public:
  LoadingSession();

  /// A structure that refers to every kind of value that can be saved, in about 20 KB.
  Value graph();
  /// The last array of a chain of closures, each of which reads the previous one.
  Value chain(std::size_t closures);

  std::string save(const Value& value) { return session.saveBytes(value.get()); }
  Value load(std::string_view bytes, bool trusted = false) {
    return session.loadBytes(bytes, trusted);
  }
  /// Id and arguments of the error that a load ends with, or "loaded". Drops the loaded value.
  std::string outcomeOf(std::string_view bytes);

  /// Calls since the last query that loading must not make: constructors, methods, defaults and
  /// functions of the user, and any function of the host side but the four that loading needs.
  std::size_t takeUserCalls();

  host::Session& host() { return session; }
  std::size_t liveObjects() {
    session.collect();
    return session.liveObjects();
  }
  /// True if every invariant of the heap holds.
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

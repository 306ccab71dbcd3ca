#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "faults/Scenario.h"
#include "kv/host/values.h"
#include "support/TempFolder.h"

namespace kv::test {

using host::Value;

/// Work that uses calls by name in a session with core and runtime, over a table of two small files
/// with the columns x, y (numbers) and word (texts).
class RuntimeScenario : public Scenario {
 public:
  RuntimeScenario();
  host::Session* session() override { return &session_; }
  std::string run() final;

 protected:
  /// The work, as code that lives in the host: its exceptions leave `run` as errors of the host.
  virtual std::string work() = 0;

  static Value column(const Value& table, std::string_view name);
  static Value element(std::string_view function, const Value& a, const Value& b);
  static Value aggregate(std::string_view function, const Value& a);
  static Value filter(const Value& keep, const Value& a);
  /// The column `x` passed through a function that draws random numbers.
  static Value random(const Value& rows);
  /// Gathers the arrays together; returns their classes and numbers.
  static std::string gather(std::initializer_list<const kxArray*> arrays);

  Value table() const;
  const Value& x() const { return x_; }

 private:
  TempFolder folder_;
  host::Session session_;
  host::Session::Scope scope_{session_};
  Value table_;
  Value x_;
};

}  // namespace kv::test

#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace kv::test {

/// The rules of the optimizer that are switched off until the end of the scope.
class RulesOff {
 public:
  explicit RulesOff(const char* switches) { set(switches); }
  ~RulesOff() { set(before_ ? before_->c_str() : nullptr); }
  RulesOff(const RulesOff&) = delete;
  RulesOff& operator=(const RulesOff&) = delete;

 private:
  static std::optional<std::string> current() {
    const char* value = std::getenv("KV_OPTIMIZER");
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
  }
  static void set(const char* value) {
    value != nullptr ? setenv("KV_OPTIMIZER", value, 1) : unsetenv("KV_OPTIMIZER");
  }

  std::optional<std::string> before_ = current();
};

}  // namespace kv::test

#include "faults/Scenario.h"

#include <algorithm>
#include <typeinfo>

#include "foundation/exception.h"
#include "kv/error.h"
#include "kv/host/errors.h"

namespace kv::test {

Outcome Outcome::of(Scenario& scenario) noexcept {
  Outcome outcome;
  try {
    outcome.answer_ = scenario.run();
  } catch (...) {
    outcome.error_ = std::current_exception();
  }
  return outcome;
}

std::string Outcome::text() const {
  if (error_ == nullptr) {
    return answer_;
  }
  try {
    std::rethrow_exception(error_);
  } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
    return "error " + host::errorRecord(envelope).identifier;
  } catch (const foundation::core::except::IMsgIDException& native) {
    return "error " + native.get_error_id();
  } catch (const Error& error) {
    return "error " + error.identifier();
  } catch (const std::exception& other) {
    return std::string("exception ") + typeid(other).name() + ": " + other.what();
  }
}

std::string testName(const testing::TestParamInfo<ScenarioRow>& row) {
  std::string name = row.param.name;
  std::ranges::replace(name, ' ', '_');
  return name;
}

}  // namespace kv::test

#include "HostSession.h"

#include "save/files.h"

namespace kv::test {

using Torvane::KException::KExceptionEnvelope;

ErrorRecord errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const KExceptionEnvelope& envelope) {
    return host::errorRecord(envelope);
  }
  ADD_FAILURE() << "an error was expected";
  return {};
}

std::string failure(const std::function<void()>& action) {
  std::string text;
  try {
    action();
    return "no error";
  } catch (const KExceptionEnvelope& envelope) {
    const ErrorRecord error = host::errorRecord(envelope);
    text = error.identifier;
    for (const std::string& argument : error.arguments) {
      text += " | " + argument;
    }
  }
  return text;
}

std::string bytesOf(const std::string& path) {
  return host::readFile(path, 0, [](std::string_view, std::uint64_t) {});
}

NativeBody says(std::string text) {
  return [text = std::move(text)](const Call& call) { call.out(0, host::makeChars(text)); };
}

NativeBody forwardsTo(std::string name) {
  return [name = std::move(name)](const Call& call) {
    const std::vector<const kxArray*> inputs(call.prhs, call.prhs + call.nrhs);
    call.out(0, host::call(kcos::NameRef::of(name), inputs));
  };
}

void HostSession::TearDown() {
  if (!session.isClosed()) {
    session.collect();
    EXPECT_EQ(session.verify(), std::vector<std::string>());
  }
}

}  // namespace kv::test

#include "CoreSession.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "kv/bigdata.h"

namespace bigdata {

namespace {

std::string joined(std::string text, const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    text += " | " + argument;
  }
  return text;
}

std::string lastPart(const std::string& name) { return name.substr(name.rfind('.') + 1); }

}  // namespace

std::string shown(const kxArray* value) {
  const kxClassID classId = kxGetClassID(value);
  const bool isText = classId == kxCHAR_CLASS || classId == kxSTRING_CLASS;
  if (isText && kxGetM(value) == 1) {
    return kv::host::toText(value);
  }
  if (!kxIsScalar(value) || kcos::omIsKCOS(value)) {
    return lastPart(kxGetClassName(value));
  }
  if (classId == kxLOGICAL_CLASS) {
    return kxGetLogicals(value)[0] ? "true" : "false";
  }
  if (classId != kxDOUBLE_CLASS) {
    return kxGetClassName(value);
  }
  std::ostringstream number;
  number << kxGetScalar(value);
  return number.str();
}

std::string errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
    const kv::host::ErrorRecord record = kv::host::errorRecord(envelope);
    return joined(record.identifier, record.arguments);
  } catch (const foundation::core::except::IMsgIDException& error) {
    std::vector<std::string> arguments;
    for (const auto& argument : error.get_arguments()) {
      arguments.push_back(fl::i18n::to_string(argument));
    }
    return joined(error.get_error_id(), arguments);
  }
  return "no error";
}

std::string internalError(std::string_view text) {
  return "KALVEX:bigdata:array:InternalError | " + std::string(text);
}

CoreSession::CoreSession() {
  session.load(KVInitialize_libkvbigdata);
  for (const auto& builtin : kv::bigdata::kOwningBuiltins) {
    session.defineBuiltin(builtin.name, builtin.function);
  }
  for (const auto& builtin : kv::bigdata::kRawBuiltins) {
    session.defineBuiltin(builtin.name, builtin.function);
  }
}

void CoreSession::TearDown() {
  session.collect();
  for (const std::string& broken : session.verify()) {
    ADD_FAILURE() << broken;
  }
}

Value CoreSession::callWith(std::string_view name, std::initializer_list<const kxArray*> inputs) {
  return std::move(session.call(name, 1, std::span(inputs.begin(), inputs.size())).at(0));
}

Value CoreSession::invokeWith(const Value& object, std::string_view method,
                              std::initializer_list<const kxArray*> inputs) {
  return std::move(
      session.invoke(object.get(), method, 1, std::span(inputs.begin(), inputs.size())).at(0));
}

double CoreSession::getDouble(const Value& object, std::string_view property) {
  return kv::host::toDouble(get(object, property).get());
}

bool CoreSession::getFlag(const Value& object, std::string_view property) {
  return kv::host::toLogical(get(object, property).get());
}

std::string CoreSession::getText(const Value& object, std::string_view property) {
  return kv::host::toText(get(object, property).get());
}

void CoreSession::stub(const std::string& name, kv::host::NativeBody body) {
  session.defineFunction(name, [this, name, body = std::move(body)](const Call& c) {
    note(name, c);
    if (body) {
      body(c);
    }
  });
}

void CoreSession::note(const std::string& name, const Call& call) {
  HostCall noted{name, {}};
  for (int i = 0; i < call.nrhs; ++i) {
    noted.inputs.push_back(matrix::sharedCopy(call.in(i)));
  }
  calls.push_back(std::move(noted));
}

std::string CoreSession::takeCalls() {
  std::string names;
  for (const HostCall& noted : calls) {
    names += (names.empty() ? "" : " ") + lastPart(noted.name);
  }
  calls.clear();
  return names;
}

std::string CoreSession::takeTrace() {
  std::string trace;
  for (const HostCall& noted : calls) {
    std::string inputs;
    for (const Value& input : noted.inputs) {
      inputs += (inputs.empty() ? "" : " ") + shown(input.get());
    }
    trace += (trace.empty() ? "" : " ") + lastPart(noted.name) + "(" + inputs + ")";
  }
  calls.clear();
  return trace;
}

const CoreSession::HostCall& CoreSession::lastCall(std::string_view name) const {
  for (auto noted = calls.rbegin(); noted != calls.rend(); ++noted) {
    if (noted->name == name) {
      return *noted;
    }
  }
  throw std::out_of_range("no call of " + std::string(name));
}

bool isSameObject(const Value& a, const Value& b) {
  return kcos::omGetArrayElement(a.get(), 0).get() == kcos::omGetArrayElement(b.get(), 0).get();
}

}  // namespace bigdata

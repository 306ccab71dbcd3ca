#include "Story.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "ki/createManagedObject.h"
#include "kx/string.h"
#include "lazyeval/arrayPersistence.h"

namespace bigdata::lazyeval {

namespace {

using kv::host::makeDouble;

constexpr std::string_view kPackage = "kalvex.bigdata.internal.";

std::string folded(std::string text) {
  for (std::size_t at = 0; (at = text.find(kPackage, at)) != std::string::npos; ++at) {
    text.replace(at, kPackage.size(), "@");
  }
  return text;
}

std::string unfolded(std::string_view name) {
  return name.starts_with('@') ? std::string(kPackage) + std::string(name.substr(1))
                               : std::string(name);
}

/// An error as a story has it: "! text" for an internal error, "! id | arguments" for others.
std::string errorText(const std::string& error) {
  const std::string internal = internalError("");
  return "! " + folded(error.starts_with(internal) ? error.substr(internal.size()) : error);
}

std::vector<const kxArray*> pointersTo(const std::vector<Value>& values) {
  std::vector<const kxArray*> pointers;
  for (const Value& value : values) {
    pointers.push_back(value.get());
  }
  return pointers;
}

/// A logical row of the values of `flags`.
Value rowOfFlags(const std::vector<Value>& flags) {
  const std::size_t dimensions[] = {1, flags.size()};
  Value row = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS));
  auto* data = static_cast<bool*>(kxGetMutableData(row.get()));
  for (const Value& flag : flags) {
    *data++ = kv::host::toLogical(flag.get());
  }
  return row;
}

}  // namespace

/// Parses a line from the front.
class Story::Reader {
 public:
  explicit Reader(std::string_view text) : rest(text) {}

  bool take(std::string_view token) {
    skipBlanks();
    const bool isNext = rest.starts_with(token);
    if (isNext) {
      rest.remove_prefix(token.size());
    }
    return isNext;
  }
  void expect(std::string_view token) {
    if (!take(token)) {
      fail(std::string(token));
    }
  }
  std::string word() {
    skipBlanks();
    const bool isPath = rest.starts_with('@') || rest.starts_with('`');
    const auto belongs = [isPath](char c) {
      return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' ||
             (isPath && (c == '.' || c == '@' || c == '`'));
    };
    const std::string_view found = rest.substr(
        0, static_cast<std::size_t>(std::ranges::find_if_not(rest, belongs) - rest.begin()));
    if (found.empty()) {
      fail("a name");
    }
    rest.remove_prefix(found.size());
    // Names in backquotes have no implied package.
    return found.front() == '`' ? std::string(found.substr(1, found.size() - 2)) : unfolded(found);
  }
  double number() {
    double value = 0;
    const auto read = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    rest.remove_prefix(static_cast<std::size_t>(read.ptr - rest.data()));
    return value;
  }

  std::string until(char end) {
    const std::size_t length = rest.find(end);
    if (length == std::string_view::npos) {
      fail(std::string(1, end));
    }
    std::string text(rest.substr(0, length));
    rest.remove_prefix(length + 1);
    return text;
  }
  std::string remainder() {
    skipBlanks();
    return std::string(std::exchange(rest, {}));
  }
  [[noreturn]] void fail(const std::string& expected) const {
    throw std::invalid_argument("expected " + expected + " at: " + std::string(rest));
  }
  void skipBlanks() { rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size())); }

  std::string_view rest;
};

Story::Story() {
  session.defineFunction("pending", [this](const Call& c) {
    const int outputs = c.nrhs > 0 ? static_cast<int>(kxGetScalar(c.in(0))) : 1;
    c.out(0, lazyArray(future(closure({}, outputs))));
  });
  session.defineFunction("ready", [this](const Call& c) {
    c.out(0, lazyArray(ki::createManagedObject<ClosurePromise>(matrix::sharedCopy(c.in(0)))
                           ->getFuture()
                           .lock()));
  });
  session.defineFunction("operation", [this](const Call& c) {
    c.out(0, ki::toArray(operation(static_cast<int>(kxGetScalar(c.in(0))),
                                   static_cast<int>(kxGetScalar(c.in(1))))));
  });
  session.defineFunction("directOperation", [this](const Call& c) {
    const OperationPtr made =
        operation(static_cast<int>(kxGetScalar(c.in(0))), static_cast<int>(kxGetScalar(c.in(1))));
    made->setSupportsDirectEvaluation(true);
    c.out(0, ki::toArray(made));
  });
  for (const auto& [name, className] :
       {std::pair{"local", "LocalArray"}, {"broadcastArray", "BroadcastArray"}}) {
    session.defineFunction(name, [this, className](const Call& c) {
      c.out(0, wrapper(className, matrix::sharedCopy(c.in(0))));
    });
  }
  session.defineFunction("loaded", [this](const Call& c) {
    std::vector<std::pair<std::string, const kxArray*>> stored;
    for (int i = 1; i + 1 < c.nrhs; i += 2) {
      stored.emplace_back(kv::host::toText(c.in(i)), c.in(i + 1));
    }
    c.out(0, session.loadInstance(unfolded(kv::host::toText(c.in(0))), stored));
  });
  session.defineFunction("equal", [this](const Call& c) {
    c.out(0, kv::host::makeLogical(textOf(c.in(0)) == textOf(c.in(1))));
  });
  defineSaving();
  session.defineFunction("frame", [](const Call& c) {
    const std::string_view fields[] = {"file", "name", "line"};
    Value stack = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
    kxSetField(stack.get(), 0, "name", matrix::sharedCopy(c.in(0)).release());
    c.out(0, std::move(stack));
  });
  session.defineFunction("missing",
                         [](const Call& c) { c.out(0, Torvane::String::createStringArray(1, 1)); });
  session.defineFunction("function", [](const Call& c) {
    c.out(0, kv::host::makeFunctionHandle(kv::host::toText(c.in(0))));
  });
  session.defineFunction("live", [this](const Call& c) {
    session.collect();
    const std::string name = unfolded(kv::host::toText(c.in(0)));
    c.out(0, makeDouble(static_cast<double>(session.liveObjects(name))));
  });
}

/// Turns arrays into records and back; records can also be made by hand.
void Story::defineSaving() {
  session.defineFunction("saved", [](const Call& c) {
    c.out(0, makeArrayRecord(*ki::fromArray<LazyArrayPtr>(c.in(0))));
  });
  session.defineFunction("restored",
                         [](const Call& c) { c.out(0, ki::toArray(loadArray(c.in(0)))); });
  session.defineFunction("reopened", [this](const Call& c) {
    c.out(0, session.loadBytes(session.saveBytes(c.in(0)), false));
  });
  session.defineFunction("record", [](const Call& c) {
    std::vector<std::string> names;
    for (int i = 0; i < c.nrhs; i += 2) {
      names.push_back(kv::host::toText(c.in(i)));
    }
    const std::vector<std::string_view> fields(names.begin(), names.end());
    Value made = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
    for (std::size_t i = 0; i < names.size(); ++i) {
      const kxArray* value = c.in(2 * static_cast<int>(i) + 1);
      kxSetField(made.get(), 0, names[i], matrix::sharedCopy(value).release());
    }
    c.out(0, std::move(made));
  });
  session.defineFunction("fields", [](const Call& c) {
    std::vector<Value> names;
    for (std::size_t i = 0; i < kxGetNumberOfFields(c.in(0)); ++i) {
      names.push_back(kv::host::makeString(kxGetFieldName(c.in(0), i)));
    }
    c.out(0, kv::host::makeCell(std::move(names)));
  });
}

std::string Story::play(std::string_view text) {
  Reader line(text);
  return text.find(" => ") == std::string_view::npos ? act(line) : check(line);
}

std::string Story::act(Reader& line) {
  const std::string_view whole = line.rest;
  const std::string word = line.word();
  if (word == "stub" || word == "quiet") {
    defineStub(line, word == "stub");
  } else if (word == "class") {
    defineClass(line);
  } else if (word == "stack") {
    session.setStackProvider(
        [frames = std::vector<kv::host::Frame>{{"user.cpp", line.word(), 12}}] { return frames; });
  } else if (word == "delete") {
    session.deleteObject(evaluate(line).get());
  } else if (word == "drop") {
    things_.erase(line.word());
  } else if (word == "forget") {
    calls.clear();
  } else if (word == "executor") {
    executor = evaluate(line);
  } else if (word == "override") {
    overridingExecutor = evaluate(line);
  } else if (line.take("=")) {
    things_[word] = evaluate(line);
  } else {
    line.rest = whole;
    evaluate(line);
  }
  return line.remainder();
}

std::string Story::check(Reader& line) {
  std::string outcome;
  Value answer;
  if (line.take("calls")) {
    outcome = trace();
  } else if (line.take("warnings")) {
    for (const kv::host::Warning& warning : session.warnings()) {
      outcome += warning.identifier;
      for (const std::string& argument : warning.arguments) {
        outcome += " | " + argument;
      }
    }
    outcome = outcome.empty() ? "none" : outcome;
    session.clearWarnings();
  } else {
    const std::string error = errorOf([&] { answer = evaluate(line); });
    outcome = error == "no error" ? textOf(answer.get()) : errorText(error);
  }
  const std::size_t at = line.rest.find("=>");
  line.rest.remove_prefix(at + 2);
  line.skipBlanks();
  const bool isNot = line.rest.starts_with("not same ");
  if (isNot || line.rest.starts_with("same ")) {
    line.rest.remove_prefix(isNot ? 9 : 5);
    const Value other = evaluate(line);
    const bool isSame = kxIsSameValue(answer.get(), other.get());
    return isSame != isNot ? "" : "answers " + outcome;
  }
  outcome.erase(outcome.find_last_not_of(' ') + 1);
  return outcome == line.remainder() ? "" : "answers " + outcome;
}

/// "class Name : Super has Property does method": methods do nothing. All parts but the name are
/// optional and may be repeated.
void Story::defineClass(Reader& line) {
  auto definition = std::make_shared<kv::host::ClassDefinition>();
  definition->name = line.word();
  while (line.take(":")) {
    definition->superclasses.push_back(line.word());
  }
  while (line.take("has ")) {
    definition->properties.push_back({.name = line.word(), .makeDefault = {}, .compute = {}});
  }
  while (line.take("does ")) {
    definition->methods.push_back({.name = line.word(), .body = [](const Call&) {}});
  }
  session.defineClass(definition);
}

/// A body that returns the value of an expression, or raises for "! id".
kv::host::NativeBody Story::bodyOf(const std::string& text) {
  return [this, text](const Call& c) {
    if (text.starts_with("! ")) {
      const std::string id = text.substr(2);
      kv::host::raiseWithMessage(id.c_str(), "raised by a story");
    }
    if (text.empty()) {
      return;
    }
    const Call* outer = std::exchange(stubbed_, &c);
    Reader reader(text);
    Value answer = evaluate(reader);
    stubbed_ = outer;
    c.out(0, std::move(answer));
  };
}

/// "stub name = expression": a host function that records its calls, with $1, $2 for inputs;
/// "= ! id" raises. "name of @Class" completes a method that a class declares.
void Story::defineStub(Reader& line, bool isNoted) {
  const std::string name = line.word();
  const std::string owner = line.take("of ") ? line.word() : "";
  const bool isStatic = !owner.empty() && line.take("static");
  const std::string body = line.take("=") ? line.remainder() : "";
  const kv::host::NativeBody answer = [this, name, isNoted, body = bodyOf(body)](const Call& c) {
    if (isNoted) {
      note(name, c);
    }
    body(c);
  };
  if (owner.empty()) {
    session.defineFunction(name, answer);
    return;
  }
  auto completion = std::make_shared<kv::host::ClassCompletion>();
  completion->name = owner;
  completion->methods.push_back({.name = name, .body = answer, .isStatic = isStatic});
  session.completeClass(completion);
}

/// "2 of f(x)" requests two outputs from a call and gives the second; "0 of" requests none.
Value Story::evaluate(Reader& text, int nlhs) {
  text.skipBlanks();
  if (text.rest.size() > 5 && text.rest.substr(1).starts_with(" of ")) {
    nlhs = text.rest.front() - '0';
    text.rest.remove_prefix(5);
  }
  Value value = primary(text, nlhs);
  while (text.rest.starts_with('.') || text.rest.starts_with('[')) {
    if (text.take("[")) {
      const std::size_t element = std::stoul(text.until(']')) - 1;
      value = matrix::from_kalvex(
          kcos::omCreateKCOSScalar(kcos::omGetArrayElement(value.get(), element)));
      continue;
    }
    text.expect(".");
    const std::string member = text.word();
    if (text.rest.starts_with('(')) {
      text.expect("(");
      const std::vector<Value> inputs = list(text, ')');
      std::vector<Value> outputs = session.invoke(value.get(), member, nlhs, pointersTo(inputs));
      value = std::move(outputs.at(static_cast<std::size_t>(std::max(nlhs, 1) - 1)));
    } else if (text.take(":=")) {
      session.set(value.get(), member, evaluate(text).get());
    } else if (kxGetClassID(value.get()) == kxSTRUCT_CLASS) {
      value = matrix::sharedCopy(kxGetField(value.get(), 0, member));
    } else {
      value = get(value, member);
    }
  }
  return value;
}

Value Story::primary(Reader& text, int nlhs) {
  text.skipBlanks();
  const char first = text.rest.empty() ? ' ' : text.rest.front();
  if (text.take("\"")) {
    return kv::host::makeString(text.until('"'));
  }
  if (text.take("'")) {
    return kv::host::makeChars(text.until('\''));
  }
  if (text.take("[]")) {
    return kv::host::makeEmptyDouble();
  }
  if (text.take("{")) {
    return kv::host::makeCell(list(text, '}'));
  }
  if (text.take("$#")) {
    return makeDouble(stubbed_->nrhs);
  }
  if (text.take("lambda '")) {
    return kv::host::makeFunctionHandle("lambda", bodyOf(text.until('\'')));
  }
  if (text.take("$")) {
    const int number = text.rest.front() - '1';
    text.rest.remove_prefix(1);
    return matrix::sharedCopy(stubbed_->in(number));
  }
  if (text.take("[")) {  // a row of flags
    return rowOfFlags(list(text, ']'));
  }
  if (std::isdigit(static_cast<unsigned char>(first)) != 0 || first == '-') {
    return makeDouble(text.number());
  }
  const std::string name = text.word();
  if (text.rest.starts_with('(')) {
    text.expect("(");
    return called(name, nlhs, list(text, ')'));
  }
  if (name == "true" || name == "false") {
    return kv::host::makeLogical(name == "true");
  }
  if (name == "null") {
    return nullptr;
  }
  if (name == "inf" || name == "nan") {
    return makeDouble(name == "inf" ? HUGE_VAL : std::nan(""));
  }
  const auto known = things_.find(name);
  if (known == things_.end()) {
    text.fail("a value, which " + name + " isn't,");
  }
  return matrix::sharedCopy(known->second.get());
}

std::vector<Value> Story::list(Reader& text, char end) {
  std::vector<Value> values;
  const std::string last(1, end);
  while (!text.take(last)) {
    if (!values.empty()) {
      text.take(",");
    }
    values.push_back(evaluate(text));
  }
  return values;
}

Value Story::called(const std::string& name, int nlhs, const std::vector<Value>& inputs) {
  std::vector<Value> outputs = session.call(name, nlhs, pointersTo(inputs));
  return std::move(outputs.at(static_cast<std::size_t>(std::max(nlhs, 1) - 1)));
}

std::string Story::textOf(const kxArray* value) {
  if (value == nullptr) {
    return "null";
  }
  const kxClassID classId = kxGetClassID(value);
  const std::size_t count = kxGetNumberOfElements(value);
  std::string text;
  if (classId == kxCELL_CLASS || (classId == kxLOGICAL_CLASS && count != 1)) {
    const bool isCell = classId == kxCELL_CLASS;
    for (std::size_t i = 0; i < count; ++i) {
      text += i == 0 ? "" : " ";
      text += isCell ? textOf(kxGetCell(value, i)) : kxGetLogicals(value)[i] ? "true" : "false";
    }
    return isCell ? "{" + text + "}" : "[" + text + "]";
  }
  if (classId == kxDOUBLE_CLASS && count == 0) {
    return "[]";
  }
  if (classId == kxSTRUCT_CLASS) {
    return textOf(kxGetField(value, 0, "name"));
  }
  const std::string name = kxGetClassName(value);
  if (kcos::omIsKCOS(value) && count != 1) {
    return std::to_string(count) + " " + shown(value);
  }
  if (name == "function_handle") {
    return kv::host::functionName(value) + "()";
  }
  if (name.ends_with(".FunctionHandle")) {
    return "FunctionHandle " + textOf(kv::host::getProperty(value, "Handle").get());
  }
  text = shown(value);
  return text.empty() ? "''" : text;
}

std::string Story::trace() {
  std::string text;
  for (const HostCall& noted : std::exchange(calls, {})) {
    text += text.empty() ? "" : " ";
    text += noted.name.substr(noted.name.rfind('.') + 1) + "(";
    for (const Value& input : noted.inputs) {
      text += text.ends_with('(') ? "" : ", ";
      text += textOf(input.get());
    }
    text += ")";
  }
  return text.empty() ? "none" : folded(text);
}

std::vector<Scene> readScenes() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(KV_STORIES)) {
    if (entry.path().extension() == ".story") {
      files.push_back(entry.path());
    }
  }
  std::ranges::sort(files);
  std::vector<Scene> scenes;
  for (const std::filesystem::path& path : files) {
    std::ifstream file(path);
    std::vector<std::string> prologue;
    bool isInScene = false;
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("== ")) {
        isInScene = true;
        std::string name = path.stem().string() + "_" + line.substr(3);
        std::ranges::replace_if(
            name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
        scenes.push_back({name, prologue});
      } else if (!line.empty() && !line.starts_with('#')) {
        (isInScene ? scenes.back().lines : prologue).push_back(line);
      }
    }
  }
  return scenes;
}

}  // namespace bigdata::lazyeval

// The class KException. Errors are read with no assumption about their contents: slots may hold
// anything, causes may form a ring, and the session may be closed. Making one must not fail for
// another reason than memory, so a failing stack provider gives an error without a stack.

#include "session/kException.h"

#include <limits>

#include "session/ClassTable.h"
#include "session/SessionState.h"
#include "session/objects.h"
#include "session/properties.h"

namespace kv::host {

namespace {

/// Slots of a KException itself, in the order of its properties; subclasses may have others.
enum Slot : std::size_t { kIdentifier, kMessage, kStack, kCause, kArguments };

constexpr const char* kProperties[] = {"identifier", "message", "stack", "cause", "arguments"};

/// More causes than this aren't read: a chain that was made a ring must end.
constexpr int kMaxCauses = 64;

Value makeTexts(const std::vector<std::string>& texts) {
  std::vector<Value> elements;
  for (const std::string& text : texts) {
    elements.push_back(makeChars(text));
  }
  return makeCell(std::move(elements));
}

void construct(const Call& call) {
  call.expect(1, 1, 4);
  const kxArray* self = call.in(0);
  const std::string identifier = call.nrhs > 1 ? toText(call.in(1)) : std::string();
  const std::vector<std::string> arguments =
      call.nrhs > 3 ? toTexts(call.in(3)) : std::vector<std::string>();
  const std::string message =
      call.nrhs > 2 ? toText(call.in(2)) : catalogueText(identifier, arguments);
  setSlot(self, "identifier", makeChars(identifier));
  setSlot(self, "message", makeChars(message));
  setSlot(self, "stack", requireSession().stacks.array());
  setSlot(self, "arguments", makeTexts(arguments));
}

/// The text of a slot; empty if it holds something else: reading an error must not fail.
std::string textOf(const kxArray* value) {
  const bool isRow = kxGetClassID(value) == kxCHAR_CLASS && kxGetDimensions(value).size() == 2 &&
                     (kxGetM(value) == 1 || (kxGetM(value) == 0 && kxGetN(value) == 0));
  const bool isText = isRow || (Torvane::String::isString(value) && kxIsScalar(value) &&
                                Torvane::String::getString(value, 0).has_value());
  return isText ? toText(value) : std::string();
}

std::vector<std::string> textsOf(const kxArray* cell) {
  std::vector<std::string> texts;
  if (kxGetClassID(cell) == kxCELL_CLASS) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(cell); ++i) {
      texts.push_back(textOf(kxGetCell(cell, i)));
    }
  }
  return texts;
}

std::vector<Frame> framesOf(const kxArray* stack) {
  std::vector<Frame> frames;
  if (kxGetClassID(stack) == kxSTRUCT_CLASS) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(stack); ++i) {
      const kxArray* line = kxGetField(stack, i, "line");
      const double number = kxIsScalar(line) && kxIsNumeric(line) ? kxGetScalar(line) : 0;
      const bool isLine = number >= 0 && number <= std::numeric_limits<int>::max();
      frames.push_back({textOf(kxGetField(stack, i, "file")), textOf(kxGetField(stack, i, "name")),
                        isLine ? static_cast<int>(number) : 0});
    }
  }
  return frames;
}

/// The record of one exception, without its cause.
ErrorRecord readOne(const Object& exception) {
  ErrorRecord record;
  record.className = "KException";
  if (exception.isDeleted() || Heap::of(exception) == nullptr) {
    return record;  // it may have outlived its class
  }
  record.className = exception.objectClass().getName();
  record.identifier = textOf(storedValue(exception, "identifier"));
  record.message = textOf(storedValue(exception, "message"));
  record.stack = framesOf(storedValue(exception, "stack"));
  record.arguments = textsOf(storedValue(exception, "arguments"));
  return record;
}

/// The exception that caused this one, or null.
Object* causeOf(const Object& exception) {
  if (exception.isDeleted() || Heap::of(exception) == nullptr) {
    return nullptr;
  }
  const kxArray* cause = storedValue(exception, "cause");
  return kcos::omIsKCOS(cause) && kxIsScalar(cause) && kxIsA(cause, "KException")
             ? scalarObject(cause)
             : nullptr;
}

/// The live stack, or none if its provider fails: that error must not replace the one in hand.
Value liveStack(SessionState& session) {
  try {
    return session.stacks.array();
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace

std::shared_ptr<const ClassDefinition> kExceptionDefinition() {
  static const auto definition = [] {
    auto made = std::make_shared<ClassDefinition>();
    made->name = "KException";
    for (const char* name : kProperties) {
      made->properties.push_back(
          {name, nullptr, MemberAccess::Public, MemberAccess::Protected, {}});
    }
    made->constructor = MethodDefinition{.name = "KException", .body = construct, .arity = {1, 4}};
    made->savedForm
        .emplace();  // the exception of another language that it was made from isn't saved
    return std::shared_ptr<const ClassDefinition>(std::move(made));
  }();
  return definition;
}

kcos::COSInterfacePtr makeKException(SessionState& session, std::string_view identifier,
                                     std::string_view message,
                                     const std::vector<std::string>& arguments) {
  ClassRecord& record = session.classes.require(kcos::internal::makeInterned("KException"));
  record.linked();
  Object* exception = session.heap.allocate(record);
  kcos::COSInterfacePtr holder(exception, kcos::COSReferenceType::Strong);
  session.heap.finishConstruction(*exception);
  session.heap.setSlot(*exception, kIdentifier, makeChars(identifier));
  session.heap.setSlot(*exception, kMessage, makeChars(message));
  session.heap.setSlot(*exception, kStack, liveStack(session));
  session.heap.setSlot(*exception, kArguments, makeTexts(arguments));
  return holder;
}

kcos::COSInterfacePtr exceptionOf(const ErrorRecord& record) {
  SessionState& session = requireSession();
  const auto make = [&session](const ErrorRecord& one) {
    return makeKException(session, one.identifier, one.message, one.arguments);
  };
  kcos::COSInterfacePtr outermost = make(record);
  if (!record.stack.empty()) {
    session.heap.setSlot(*Object::of(outermost), kStack, UserStacks::arrayOf(record.stack));
  }
  kcos::COSInterfacePtr effect = outermost;
  for (const ErrorRecord* each = &record; !each->causes.empty();) {
    each = &each->causes.front();
    const kcos::COSInterfacePtr cause = make(*each);
    session.heap.setSlot(*Object::of(cause), kStack, UserStacks::arrayOf(each->stack));
    session.heap.setSlot(*Object::of(effect), kCause,
                         matrix::from_kalvex(kcos::omCreateKCOSScalar(cause)));
    effect = cause;
  }
  return outermost;
}

ErrorRecord readKException(kcos::COSInterface* exception) {
  ErrorRecord outermost = readOne(*Object::of(exception));
  ErrorRecord* innermost = &outermost;
  Object* cause = causeOf(*Object::of(exception));
  for (int depth = 0; cause != nullptr && depth < kMaxCauses; ++depth) {
    innermost->causes.push_back(readOne(*cause));
    innermost = &innermost->causes.back();
    cause = causeOf(*cause);
  }
  return outermost;
}

}  // namespace kv::host

// Numbers and texts have no home: sessions may share them. Containers and handles belong to a
// session, so `carry` makes them anew around the same numbers and texts.

#include "kv/host/freeFunctions.h"

#include <cassert>

#include "session/SessionState.h"
#include "session/programDefinitions.h"

namespace kv::host {

namespace {

std::vector<std::string> fieldsOf(const kxArray* structure) {
  std::vector<std::string> fields;
  for (std::size_t field = 0; field < kxGetNumberOfFields(structure); ++field) {
    fields.emplace_back(kxGetFieldName(structure, field));
  }
  return fields;
}

/// Applies `visit` to each element of a cell or structure until it returns false.
template <class Visit>
bool visitElements(const kxArray* value, Visit&& visit) {
  const std::size_t count = kxGetNumberOfElements(value);
  if (kxGetClassID(value) == kxCELL_CLASS) {
    for (std::size_t i = 0; i < count; ++i) {
      if (!visit(kxGetCell(value, i))) {
        return false;
      }
    }
  } else if (kxGetClassID(value) == kxSTRUCT_CLASS) {
    for (const std::string& field : fieldsOf(value)) {
      for (std::size_t i = 0; i < count; ++i) {
        if (!visit(kxGetField(value, i, field))) {
          return false;
        }
      }
    }
  }
  return true;
}

/// A callable of mode AnyThread; sessions share its body.
struct FreeBody {
  std::shared_ptr<const NativeBody> body;
  void operator()(const Call& call) const { (*body)(call); }
};

const FreeBody* freeBody(const kxArray* handle) noexcept {
  const NativeBody* body = callableBody(handle);
  return body != nullptr ? body->target<FreeBody>() : nullptr;
}

Value carryHandle(const kxArray* handle) {
  const FreeBody* body = freeBody(handle);
  return body != nullptr ? makeFunctionHandle(callableName(handle), NativeBody(*body))
                         : makeFunctionHandle(functionName(handle));
}

}  // namespace

Value makeFunctionHandle(std::string_view name, NativeBody body, CallMode mode) {
  if (mode == CallMode::AnyThread) {
    body = FreeBody{std::make_shared<const NativeBody>(std::move(body))};
  }
  return makeFunctionHandle(name, std::move(body));
}

CallMode callMode(const kxArray* handle) noexcept {
  return freeBody(handle) != nullptr ? CallMode::AnyThread : CallMode::Session;
}

ProgramDefinitions ProgramDefinitions::ofCurrent() {
  SessionState& session = requireSession();
  const ProgramJournal& journal = ProgramJournal::of(session);
  ProgramDefinitions found;
  for (const kcos::COSInternedBase& name : journal.functions) {
    const Binding* binding = session.calls.find(name);
    if (binding != nullptr && binding->function != nullptr && !binding->isLibrary) {
      found.functions_.emplace_back(std::string(name.text()), binding->function);
    }
  }
  found.classes_ = journal.classes;
  found.completions_ = journal.completions;
  return found;
}

void ProgramDefinitions::defineIn(Session& session) const {
  for (const auto& definition : classes_) {
    session.defineClass(definition);
  }
  for (const auto& completion : completions_) {
    session.completeClass(completion);
  }
  for (const auto& [name, body] : functions_) {
    session.defineFunction(name, [body = body](const Call& call) { (*body)(call); });
  }
}

bool isCarryable(const kxArray* value) {
  if (value == nullptr) {
    return true;
  }
  if (kxGetClassID(value) == kxFUNCTION_CLASS) {
    return isTrusted(value) && (freeBody(value) != nullptr || !functionName(value).empty());
  }
  const bool isContainer =
      kxGetClassID(value) == kxCELL_CLASS || kxGetClassID(value) == kxSTRUCT_CLASS;
  const bool isMatrix = kxGetDimensions(value).size() == 2;
  return !kcos::omIsKCOS(value) && (!isContainer || isMatrix) && visitElements(value, isCarryable);
}

Value carry(const kxArray* value) {
  assert(isCarryable(value));
  if (value == nullptr) {
    return nullptr;
  }
  const kxClassID type = kxGetClassID(value);
  const std::size_t count = kxGetNumberOfElements(value);
  if (type == kxFUNCTION_CLASS) {
    return carryHandle(value);
  }
  if (type == kxCELL_CLASS) {
    Value cell = matrix::from_kalvex(kxCreateCellMatrix(kxGetM(value), kxGetN(value)));
    for (std::size_t i = 0; i < count; ++i) {
      kxSetCell(cell.get(), i, carry(kxGetCell(value, i)).release());
    }
    return cell;
  }
  if (type == kxSTRUCT_CLASS) {
    const std::vector<std::string> names = fieldsOf(value);
    const std::vector<std::string_view> fields(names.begin(), names.end());
    Value structure =
        matrix::from_kalvex(kxCreateStructMatrix(kxGetM(value), kxGetN(value), fields));
    for (const std::string& field : names) {
      for (std::size_t i = 0; i < count; ++i) {
        kxSetField(structure.get(), i, field, carry(kxGetField(value, i, field)).release());
      }
    }
    return structure;
  }
  return matrix::sharedCopy(value);
}

}  // namespace kv::host

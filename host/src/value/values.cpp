// Reading values for C++ code. All readers accept the same texts (a char row or a string scalar),
// and refuse everything else with what was expected and what came.

#include "kv/host/values.h"

#include <cmath>

#include "foundation/i18n.h"
#include "heap/Array.h"
#include "heap/Heap.h"
#include "kv/host/errors.h"

namespace kv::host {

namespace {

Value makeStrings(std::size_t rows, std::size_t columns, std::span<const std::string> utf8) {
  Value array = Torvane::String::createStringArray(rows, columns);
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    Torvane::String::setString(array.get(), i, fl::i18n::to_ustring(utf8[i]));
  }
  return array;
}

bool isNumberOrLogical(const kxArray* value) noexcept {
  return kxIsScalar(value) && (kxIsNumeric(value) || kxGetClassID(value) == kxLOGICAL_CLASS);
}

/// "3x2 double", or "[]" for null.
std::string description(const kxArray* value) {
  if (value == nullptr) {
    return "[]";
  }
  std::string text;
  for (const std::size_t extent : kxGetDimensions(value)) {
    text += (text.empty() ? "" : "x") + std::to_string(extent);
  }
  return text + " " + kxGetClassName(value);
}

/// Nothing where `value` isn't a char row or a string scalar with a text.
std::optional<std::u16string_view> utf16Of(const kxArray* value) {
  if (kxGetClassID(value) == kxCHAR_CLASS && kxGetDimensions(value).size() == 2 &&
      (kxGetM(value) == 1 || (kxGetM(value) == 0 && kxGetN(value) == 0))) {
    return kxGetChars(value);
  }
  if (Torvane::String::isString(value) && kxIsScalar(value)) {
    return Torvane::String::getString(value, 0);
  }
  return std::nullopt;
}

/// Appends one text of a list. Errors: "KALVEX:validateattributes:invalidType" about `whole`.
void appendText(std::vector<std::string>& texts, std::optional<std::u16string_view> text,
                const kxArray* whole) {
  if (!text) {
    raiseInvalidType("Input", "texts", whole);
  }
  texts.push_back(fl::i18n::to_string(*text));
}

/// The object in a scalar object array.
Object& objectInScalar(const kxArray* array) {
  const Object* object =
      kcos::omIsKCOS(array) && kxIsScalar(array) && array->form == kxArray::Form::Object
          ? array->object
          : nullptr;
  if (object == nullptr) {
    raiseInvalidType("Input", "scalar object", array);
  }
  return *array->object;
}

/// The heap of an object that isn't deleted.
/// Errors: "KALVEX:class:InvalidHandle".
Heap& heapOf(const Object& object) {
  Heap* heap = Heap::of(object);
  if (object.isDeleted() || heap == nullptr) {
    raise("KALVEX:class:InvalidHandle");
  }
  return *heap;
}

}  // namespace

Value makeCell(std::vector<Value> elements) {
  Value cell = matrix::from_kalvex(kxCreateCellMatrix(1, elements.size()));
  for (std::size_t i = 0; i < elements.size(); ++i) {
    kxSetCell(cell.get(), i, elements[i].release());
  }
  return cell;
}

Value makeStringColumn(std::span<const std::string> utf8) {
  return makeStrings(utf8.size(), 1, utf8);
}

Value makeStringRow(std::span<const std::string> utf8) { return makeStrings(1, utf8.size(), utf8); }

double toDouble(const kxArray* value) {
  if (!isNumberOrLogical(value)) {
    raiseInvalidType("Input", "scalar double", value);
  }
  return kxGetScalar(value);
}

bool toLogical(const kxArray* value) {
  if (!isNumberOrLogical(value)) {
    raiseInvalidType("Input", "scalar logical", value);
  }
  return kxGetScalar(value) != 0.0;
}

std::size_t toCount(const kxArray* value, std::size_t limit) {
  const double count = isNumberOrLogical(value) ? kxGetScalar(value) : std::nan("");
  if (!(count >= 0) || count != std::floor(count)) {
    raiseInvalidType("Input", "whole number of at least 0", value);
  }
  constexpr double kBeyondSize = 18446744073709551616.0;  // 2^64
  if (count >= kBeyondSize || static_cast<std::size_t>(count) > limit) {
    const std::string text = std::to_string(count);
    raise("KALVEX:CountTooLarge", {text.substr(0, text.find('.')), std::to_string(limit)});
  }
  return static_cast<std::size_t>(count);
}

std::string toText(const kxArray* value) {
  const std::optional<std::u16string_view> text = utf16Of(value);
  if (!text) {
    raiseInvalidType("Input", "text", value);
  }
  return fl::i18n::to_string(*text);
}

std::vector<std::string> toTexts(const kxArray* value) {
  std::vector<std::string> texts;
  if (Torvane::String::isString(value)) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(value); ++i) {
      appendText(texts, Torvane::String::getString(value, i), value);
    }
  } else if (kxGetClassID(value) == kxCELL_CLASS) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(value); ++i) {
      appendText(texts, utf16Of(kxGetCell(value, i)), value);
    }
  } else {
    appendText(texts, utf16Of(value), value);
  }
  return texts;
}

void raiseInvalidType(std::string_view role, std::string_view expected, const kxArray* came) {
  raise("KALVEX:validateattributes:invalidType",
        {std::string(role), std::string(expected), description(came)});
}

NativeValue::~NativeValue() = default;

void setNativeValue(const kxArray* object, std::unique_ptr<NativeValue> value) {
  Object& target = objectInScalar(object);
  heapOf(target).setNativeValue(target, std::move(value));
}

NativeValue* getNativeValue(const kxArray* object) {
  const Object& target = objectInScalar(object);
  return heapOf(target).nativeValue(target);
}

}  // namespace kv::host

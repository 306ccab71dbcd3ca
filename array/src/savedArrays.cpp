// Arrays are saved as one host structure of names, types and arrays. The file that `open` reads may
// come from anyone and may hold any value, so every field is checked for class, size and content
// before it is used, and the same error is raised for whatever is wrong.

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "handles.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/SourceMoves.h"
#include "kv/runtime/constants.h"
#include "kx/string.h"

namespace kv {

namespace {

using runtime::ElementType;

// The content of a file of arrays: a structure whose fields have one element per array.
constexpr std::string_view kNames = "Names";
constexpr std::string_view kTypes = "Types";
constexpr std::string_view kAreWeak = "AreWeak";  ///< constants that the user wrote
constexpr std::string_view kAreScalars = "AreScalars";
constexpr std::string_view kAreColumns = "AreColumns";
constexpr std::string_view kShapes = "Shapes";  ///< the rows, if they are known, and the others
constexpr std::string_view kArrays = "Arrays";

constexpr std::string_view kUnknownRows = "?";

constexpr kcos::NameRef kArrayClass = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";

void requireDistinctNames(std::span<const NamedArray> arrays) {
  std::set<std::string_view> names;
  for (const NamedArray& named : arrays) {
    if (!names.insert(named.name).second) {
      raiseError("KALVEX:array:SameName", {named.name});
    }
  }
}

template <class Property>
host::Value logicalColumn(std::span<const NamedArray> arrays, Property&& property) {
  const std::size_t dimensions[] = {arrays.size(), 1};
  host::Value column = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS));
  auto* flags = static_cast<bool*>(kxGetMutableData(column.get()));
  for (const NamedArray& named : arrays) {
    *flags++ = property(named.array);
  }
  return column;
}

/// What is known of the dimensions of an array, as "1000,3"; "?,3" if its rows aren't counted.
std::string shapeText(const Array& array) {
  const auto rows = array.isScalar() ? std::optional(std::int64_t{1}) : array.rows();
  std::string text = rows ? std::to_string(*rows) : std::string(kUnknownRows);
  for (const std::int64_t extent : array.trailing()) {
    text += ',' + std::to_string(extent);
  }
  return text;
}

/// The number that `text` is.
std::optional<std::int64_t> wholeNumber(std::string_view text, std::int64_t least) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && read == end && number >= least ? std::optional(number)
                                                                : std::nullopt;
}

/// Rows and other dimensions from a text of `shapeText`; none if it isn't one.
struct Shape {
  std::optional<std::int64_t> rows;
  std::vector<std::int64_t> trailing;
};
std::optional<Shape> shapeIn(std::string_view text) {
  Shape shape;
  std::size_t end = std::min(text.find(','), text.size());
  if (text.substr(0, end) != kUnknownRows) {
    shape.rows = wholeNumber(text.substr(0, end), 0);
    if (!shape.rows) {
      return std::nullopt;
    }
  }
  while (end < text.size()) {
    const std::size_t first = end + 1;
    end = std::min(text.find(',', first), text.size());
    const auto extent = wholeNumber(text.substr(first, end - first), 1);
    if (!extent) {
      return std::nullopt;
    }
    shape.trailing.push_back(*extent);
  }
  return shape;
}

host::Value recordOf(std::span<const NamedArray> arrays) {
  std::vector<std::string> names, types, shapes;
  std::vector<host::Value> values;
  for (const NamedArray& named : arrays) {
    names.push_back(named.name);
    types.emplace_back(named.array.type());
    shapes.push_back(shapeText(named.array));
    values.push_back(matrix::sharedCopy(named.array.handle().value.get()));
  }
  constexpr std::string_view kFields[] = {kNames,      kTypes,  kAreWeak, kAreScalars,
                                          kAreColumns, kShapes, kArrays};
  host::Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kFields));
  const auto set = [&](std::string_view field, host::Value value) {
    kxSetField(record.get(), 0, field, value.release());
  };
  set(kNames, host::makeStringColumn(names));
  set(kTypes, host::makeStringColumn(types));
  const auto isWeak = [](const Array& array) { return array.handle().constant.has_value(); };
  set(kAreWeak, logicalColumn(arrays, isWeak));
  set(kAreScalars, logicalColumn(arrays, [](const Array& array) { return array.isScalar(); }));
  set(kAreColumns, logicalColumn(arrays, [](const Array& array) { return array.isColumn(); }));
  set(kShapes, host::makeStringColumn(shapes));
  set(kArrays, host::makeCell(std::move(values)));
  return record;
}

[[noreturn]] void raiseNotArrays(const std::string& path) {
  raiseError("KALVEX:array:NotArrays", {path});
}

/// The constant in an array that was made by `makeConstant`.
Array constantIn(const std::shared_ptr<Session::Impl>& session, const kxArray* array,
                 const std::string& path) {
  const host::Value future = host::getProperty(array, "ValueFuture");
  const host::Value value = host::getProperty(future.get(), "Value");
  if (value == nullptr) {
    raiseNotArrays(path);
  }
  return makeConstant(session, runtime::writtenOperand(value.get()));
}

/// Reads a record made by `recordOf`. A file may contain anything, so every field is checked.
class Record {
 public:
  Record(const std::string& path, const kxArray* value) : path_(path), value_(value) {
    if (kxGetClassID(value) != kxSTRUCT_CLASS || !kxIsScalar(value)) {
      raiseNotArrays(path);
    }
    count_ = kxGetNumberOfElements(field(kNames, kxSTRING_CLASS));
  }

  std::vector<NamedArray> arraysOf(const std::shared_ptr<Session::Impl>& session) const {
    const auto names = textsIn(kNames);
    const auto types = textsIn(kTypes);
    const bool* areWeak = kxGetLogicals(sized(kAreWeak, kxLOGICAL_CLASS));
    const bool* areScalars = flagsIn(kAreScalars);
    const bool* areColumns = flagsIn(kAreColumns);
    const bool hasShapes = kxGetField(value_, 0, kShapes) != nullptr;
    const auto shapes = hasShapes ? textsIn(kShapes) : std::vector<std::string>(count_, "?");
    const kxArray* values = sized(kArrays, kxCELL_CLASS);
    std::vector<NamedArray> arrays;
    for (std::size_t i = 0; i < count_; ++i) {
      const kxArray* value = kxGetCell(values, i);
      const std::optional<ElementType> type = runtime::elementTypeNamed(types[i]);
      const bool isArray = kcos::omIsKCOS(value) && kxIsScalar(value) && kxIsA(value, kArrayClass);
      const std::optional<Shape> shape = shapeIn(shapes[i]);
      if (!isArray || !type || !shape) {
        raiseNotArrays(path_);
      }
      RowTraits traits{.isScalar = areScalars != nullptr && areScalars[i],
                       .isColumn = areColumns != nullptr && areColumns[i],
                       .trailing = shape->trailing};
      if (!traits.isScalar) {
        traits.rows = std::make_shared<const RowSpace>(shape->rows);
      }
      arrays.push_back(
          {names[i], areWeak[i] ? constantIn(session, value, path_)
                                : makeArray(session, matrix::sharedCopy(value), *type, traits)});
    }
    requireDistinctNames(arrays);
    return arrays;
  }

 private:
  const kxArray* field(std::string_view name, kxClassID classId) const {
    const kxArray* found = kxGetField(value_, 0, name);
    if (kxGetClassID(found) != classId) {
      raiseNotArrays(path_);
    }
    return found;
  }
  const kxArray* sized(std::string_view name, kxClassID classId) const {
    const kxArray* found = field(name, classId);
    if (kxGetNumberOfElements(found) != count_) {
      raiseNotArrays(path_);
    }
    return found;
  }
  /// Null if the file was written by a release without this field.
  const bool* flagsIn(std::string_view name) const {
    const bool isKnown = kxGetField(value_, 0, name) != nullptr;
    return isKnown ? kxGetLogicals(sized(name, kxLOGICAL_CLASS)) : nullptr;
  }
  std::vector<std::string> textsIn(std::string_view name) const {
    const kxArray* texts = sized(name, kxSTRING_CLASS);
    for (std::size_t i = 0; i < count_; ++i) {
      if (!Torvane::String::getString(texts, i)) {
        raiseNotArrays(path_);
      }
    }
    return host::toTexts(texts);
  }

  const std::string& path_;
  const kxArray* value_;
  std::size_t count_;
};

host::Value loadMoved(host::Session& session, const std::string& path, const OpenOptions& options) {
  const bool isTrusted = options.trust == Trust::Yes;
  if (options.data.empty()) {
    return session.load(path, isTrusted);
  }
  std::vector<runtime::SourceMove> moves;
  for (const MovedData& data : options.data) {
    moves.push_back({data.from, data.to});
  }
  const runtime::SourceMoves moved(std::move(moves));
  try {
    host::Value loaded = session.load(path, isTrusted);
    moved.throwIfUnused();
    return loaded;
  } catch (...) {
    moved.rethrowFailure();
    throw;
  }
}

void checkColumns(std::span<const NamedArray> arrays) {
  CallInputs inputs;
  for (const NamedArray& named : arrays) {
    inputs.lend(named.array.handle().value);
  }
  host::callMany("kv.checkColumns", 0, inputs.list());
}

}  // namespace

void Session::save(const std::string& path, std::span<const NamedArray> arrays, Where where) {
  std::vector<Array> handles;
  for (const NamedArray& named : arrays) {
    handles.push_back(named.array);
  }
  if (sessionOf(handles) != impl_) {
    raiseTwoSessions();
  }
  requireDistinctNames(arrays);
  publicCall(*impl_, where, [&] { impl_->host.save(path, recordOf(arrays).get()); });
}

Opened Session::open(const std::string& path, Trust trust, Where where) {
  return open(path, OpenOptions{trust, {}}, where);
}

Opened Session::open(const std::string& path, const OpenOptions& options, Where where) {
  return publicCall(*impl_, where, [&] {
    const std::size_t earlier = impl_->host.warnings().size();
    const host::Value loaded = loadMoved(impl_->host, path, options);
    Opened opened{Record(path, loaded.get()).arraysOf(impl_), {}};
    if (!options.data.empty()) {
      checkColumns(opened.arrays);
    }
    const std::vector<host::Warning> warnings = impl_->host.warnings();
    for (std::size_t i = earlier; i < warnings.size(); ++i) {
      opened.warnings.push_back(warnings[i].message);
    }
    return opened;
  });
}

}  // namespace kv

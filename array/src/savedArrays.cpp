// Arrays are saved as one host structure of names, types and arrays. The file that `open` reads may
// come from anyone and may hold any value, so every field is checked for class, size and content
// before it is used, and the same error is raised for whatever is wrong.

#include <set>
#include <string>
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
constexpr std::string_view kArrays = "Arrays";

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

host::Value recordOf(std::span<const NamedArray> arrays) {
  std::vector<std::string> names, types;
  std::vector<host::Value> values;
  for (const NamedArray& named : arrays) {
    names.push_back(named.name);
    types.emplace_back(named.array.type());
    values.push_back(matrix::sharedCopy(named.array.handle().value.get()));
  }
  constexpr std::string_view kFields[] = {kNames,      kTypes,      kAreWeak,
                                          kAreScalars, kAreColumns, kArrays};
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
    const kxArray* values = sized(kArrays, kxCELL_CLASS);
    std::vector<NamedArray> arrays;
    for (std::size_t i = 0; i < count_; ++i) {
      const kxArray* value = kxGetCell(values, i);
      const std::optional<ElementType> type = runtime::elementTypeNamed(types[i]);
      const bool isArray = kcos::omIsKCOS(value) && kxIsScalar(value) && kxIsA(value, kArrayClass);
      if (!isArray || !type) {
        raiseNotArrays(path_);
      }
      const RowTraits traits{.isScalar = areScalars != nullptr && areScalars[i],
                             .isColumn = areColumns != nullptr && areColumns[i]};
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

#pragma once

#include "foundation/exception.h"
#include "kv/host/export.h"

// The ids of all errors and warnings that the library itself raises, one tag each, named after the
// id. Raise an error with `foundation::core::except::raise<Tag>(arguments...)`.

namespace KALVEX::bigdata::array {

inline constexpr const char* kCategory = "KALVEX:bigdata:array";

/// Argument: the description of the fault.
struct KV_HOST_API InternalError {
  static constexpr const char *category = kCategory, *key = "InternalError";
};
struct KV_HOST_API IncompatibleTallIndexing {
  static constexpr const char *category = kCategory, *key = "IncompatibleTallIndexing";
};
struct KV_HOST_API IncompatibleTallExecutor {
  static constexpr const char *category = kCategory, *key = "IncompatibleTallExecutor";
};
/// A warning. Argument: the release that saved the array.
struct KV_HOST_API InvalidTallVersion {
  static constexpr const char *category = kCategory, *key = "InvalidTallVersion";
};

}  // namespace KALVEX::bigdata::array

namespace KALVEX {

/// Arguments: the count, the largest count allowed.
struct KV_HOST_API CountTooLarge {
  static constexpr const char *category = "KALVEX", *key = "CountTooLarge";
};

}  // namespace KALVEX

namespace KALVEX::validateattributes {

/// Arguments: the role ("Input" or "Argument"), the expected type, the value described.
struct KV_HOST_API invalidType {
  static constexpr const char *category = "KALVEX:validateattributes", *key = "invalidType";
};

}  // namespace KALVEX::validateattributes

namespace KALVEX::string {

inline constexpr const char* kCategory = "KALVEX:string";

struct KV_HOST_API MissingNotSupported {
  static constexpr const char *category = kCategory, *key = "MissingNotSupported";
};
struct KV_HOST_API MustBeStringScalarOrCharacterVector {
  static constexpr const char *category = kCategory, *key = "MustBeStringScalarOrCharacterVector";
};

}  // namespace KALVEX::string

namespace KALVEX::InputParser {

inline constexpr const char* kCategory = "KALVEX:InputParser";

struct KV_HOST_API ParamMustBeChar {
  static constexpr const char *category = kCategory, *key = "ParamMustBeChar";
};
/// Argument: the name.
struct KV_HOST_API ParamMissingValue {
  static constexpr const char *category = kCategory, *key = "ParamMissingValue";
};
/// Arguments: the name, an empty text.
struct KV_HOST_API UnmatchedParameter {
  static constexpr const char *category = kCategory, *key = "UnmatchedParameter";
};

}  // namespace KALVEX::InputParser

namespace component_Kalvex::catalog_class {

struct KV_HOST_API key_InvalidHandle {
  static constexpr const char *category = "KALVEX:class", *key = "InvalidHandle";
};

}  // namespace component_Kalvex::catalog_class

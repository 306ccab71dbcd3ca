#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kv::runtime {

/// More inputs or outputs than any operation has.
inline constexpr std::size_t kMaxCount = 1 << 20;

/// How many outputs an operation has.
enum class OutputRule : std::uint8_t {
  Any,
  One,
  PerInput,  ///< one for each input
  PerKept,   ///< one for each input after the first, which selects rows
};

/// How many inputs operations of a class take, and how many outputs they have.
struct OperationArity {
  std::size_t minInputs = 0;
  std::size_t maxInputs = std::numeric_limits<std::size_t>::max();
  OutputRule outputs = OutputRule::Any;
};

inline constexpr OperationArity kSource{0, 0, OutputRule::One};
inline constexpr OperationArity kOneToOne{1, 1, OutputRule::One};
inline constexpr OperationArity kChoice{3, 3, OutputRule::One};
inline constexpr OperationArity kSelection{2, std::numeric_limits<std::size_t>::max(),
                                           OutputRule::PerKept};
inline constexpr OperationArity kEachArray{0, std::numeric_limits<std::size_t>::max(),
                                           OutputRule::PerInput};
inline constexpr OperationArity kHandedOver{1, std::numeric_limits<std::size_t>::max(),
                                            OutputRule::One};
inline constexpr OperationArity kRowFunction{1};

/// Errors: "KALVEX:array:OperationArity" with the class, what it takes and what came.
void requireArity(std::string_view className, const OperationArity& arity, std::size_t numInputs,
                  std::size_t numOutputs);

}  // namespace kv::runtime

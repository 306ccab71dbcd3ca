#pragma once

#include "exchange/GroupFold.h"

namespace kv::runtime {

// What makes the states of functions of groups, each kind in a file of its own.

std::unique_ptr<GroupFold> makeSumFold(MissingRule rule, ElementType type);   // numberFolds.cpp
std::unique_ptr<GroupFold> makeMeanFold(MissingRule rule, ElementType type);  // numberFolds.cpp
std::unique_ptr<GroupFold> makeAnyFold(MissingRule rule, ElementType type);   // numberFolds.cpp
std::unique_ptr<GroupFold> makeAllFold(MissingRule rule, ElementType type);   // numberFolds.cpp
std::unique_ptr<GroupFold> makeCountFold(MissingRule rule, ElementType type);
std::unique_ptr<GroupFold> makeSizeFold(MissingRule rule, ElementType type);

/// The variance, or its root, of the sum of squares divided by the count less `lost`.
std::unique_ptr<GroupFold> makeMomentFold(MissingRule rule, ElementType type, int lost,
                                          bool takesRoot);

/// Which value of a group is its result.
enum class Pick : std::uint8_t { Min, Max, First, Last };

template <Pick pick>
std::unique_ptr<GroupFold> makePickFold(MissingRule rule, ElementType type);

template <Pick pick>
std::unique_ptr<GroupFold> makeTextPickFold(MissingRule rule);  // textFolds.cpp

}  // namespace kv::runtime

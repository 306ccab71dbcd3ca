#pragma once

#include <string>
#include <vector>

namespace kv::runtime {

/// The names of columns as users write them, made from those in the header of a file.
///
/// A name that occurs once, or for the first time, is kept. The second `x` becomes `x.2`, the third
/// `x.3` and so on; an empty name becomes, for the third column, `column 3`. A name that is in the
/// header is never generated: of `x`, `x`, `x.2` the second becomes `x.3`.
///
/// Result: the same number of names, distinct and not empty; they depend only on the header.
/// Cost:   O(n log n) for n names.
std::vector<std::string> distinctNames(std::vector<std::string> header);

}  // namespace kv::runtime

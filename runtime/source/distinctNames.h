#pragma once

#include <string>
#include <vector>

namespace kv::runtime {

/// The names of columns as users write them, made of those in the header of a file.
///
/// A name that occurs once, or for the first time, stays. The second `x` becomes `x.2`, the third
/// `x.3` and so on; a name that is empty becomes `column 3` where it is the third. What the header
/// itself holds is never taken: of `x`, `x`, `x.2` the second becomes `x.3`.
///
/// Result: as many names, distinct and none empty; they depend on the header alone.
/// Cost:   O(n log n) for n names.
std::vector<std::string> distinctNames(std::vector<std::string> header);

}  // namespace kv::runtime

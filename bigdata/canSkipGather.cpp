#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "kcos/class.h"
#include "kcos/interface.h"
#include "ki/checkCounts.h"
#include "kv/bigdata.h"

namespace bigdata {

namespace {

using matrix::ArrayPtr;

/// Classes of values that are already in memory, although they are objects in some hosts.
constexpr std::array<std::string_view, 10> kLocalClasses{
    "string", "datetime", "duration", "calendarDuration", "categorical",
    "half",   "pattern",  "table",    "timetable",        "RandStream"};

/// Classes of values that are held elsewhere.
constexpr std::array<std::string_view, 5> kRemoteClasses{"gpuArray", "tall", "codistributed",
                                                         "distributed", "dlarray"};

/// Cells, structures, logicals, characters, numbers and function handles. Id 5 is not assigned.
bool isBuiltInClass(kxClassID classId) {
  return classId >= kxCELL_CLASS && classId <= kxFUNCTION_CLASS && classId != 5;
}

/// A method that the class only declares counts as well.
bool hasGatherMethod(std::string_view className) {
  using kcos::internal::makeInterned;
  return kcos::COSClass::getClass(makeInterned(kcos::NameRef::of(className)))
      ->hasMethod(makeInterned("gather"));
}

bool canSkip(const kxArray* value) {
  if (isBuiltInClass(kxGetClassID(value))) {
    return true;
  }
  const std::string name = kxGetClassName(value);
  if (std::ranges::find(kLocalClasses, name) != kLocalClasses.end()) {
    return true;
  }
  if (std::ranges::find(kRemoteClasses, name) != kRemoteClasses.end() || !kcos::omIsKCOS(value)) {
    return false;
  }
  return !hasGatherMethod(name);
}

}  // namespace

void canSkipGather(int nlhs, ArrayPtr* plhs, int nrhs, const kxArray* const* prhs) {
  ki::checkOutputs(nlhs, 1);
  const std::array<std::size_t, 2> dimensions{1, static_cast<std::size_t>(nrhs)};
  ArrayPtr answers = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxLOGICAL_CLASS));
  std::transform(prhs, prhs + nrhs, static_cast<bool*>(kxGetMutableData(answers.get())), canSkip);
  plhs[0] = std::move(answers);
}

}  // namespace bigdata

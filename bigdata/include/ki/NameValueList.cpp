#include "ki/NameValueList.h"

#include "foundation/i18n.h"
#include "ki/detail/convertText.h"
#include "util/ErrorIds.h"

namespace bigdata::ki {

namespace {

using foundation::core::except::raise;

std::string parameterName(const kxArray* array) {
  if (!isText(array)) {
    raise<KALVEX::InputParser::ParamMustBeChar>();
  }
  return fl::i18n::to_string(toText(array));
}

}  // namespace

NameValueMap parseNameValueList(const NameValueMap& defaults, int nrhs, const kxArray** prhs) {
  NameValueMap values = defaults;
  for (int i = 0; i < nrhs; i += 2) {
    const std::string name = parameterName(prhs[i]);
    if (i + 1 == nrhs) {
      raise<KALVEX::InputParser::ParamMissingValue>(name);
    }
    const auto found = values.find(name);
    if (found == values.end()) {
      raise<KALVEX::InputParser::UnmatchedParameter>(name, "");
    }
    found->second = prhs[i + 1];
  }
  return values;
}

}  // namespace bigdata::ki

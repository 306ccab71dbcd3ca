#include <fstream>
#include <iterator>
#include <ostream>
#include <regex>
#include <set>

#include "Story.h"

namespace bigdata::lazyeval {

/// How GoogleTest prints a scene.
void PrintTo(const Scene& scene, std::ostream* out) { *out << scene.name; }

namespace {

class Stories : public Story, public ::testing::WithParamInterface<Scene> {};

TEST_P(Stories, GoAsTheyAreTold) {
  for (const std::string& line : GetParam().lines) {
    EXPECT_EQ(play(line), "") << line;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Stories, ::testing::ValuesIn(readScenes()),
                         [](const auto& scene) { return scene.param.name; });

/// The ids that ErrorIds.h declares.
std::set<std::string> declaredIds() {
  std::ifstream file(KV_ERROR_IDS);
  const std::string header(std::istreambuf_iterator<char>(file), {});
  const std::regex tag(
      R"rx(kCategory = "([^"]+)"|category = (?:kCategory|"([^"]+)"),\s+\*key = "([^"]+)")rx");
  std::set<std::string> ids;
  std::string shared;
  for (std::sregex_iterator found(header.begin(), header.end(), tag), end; found != end; ++found) {
    const std::smatch& match = *found;
    if (match[1].matched) {
      shared = match[1];
    } else {
      ids.insert((match[2].matched ? match[2].str() : shared) + ":" + match[3].str());
    }
  }
  return ids;
}

/// Each id is the answer of a story line, which is played.
TEST(ErrorIds, AreEachRaisedByACallFromOutside) {
  std::set<std::string> answered{"KALVEX:bigdata:array:InvalidTallVersion"};  // a warning
  const std::regex raised(R"(=> ! (KALVEX:[A-Za-z:]+)?)");
  for (const Scene& scene : readScenes()) {
    for (const std::string& line : scene.lines) {
      std::smatch match;
      if (!std::regex_search(line, match, raised)) {
        continue;
      }
      answered.insert(match[1].matched ? match[1].str() : "KALVEX:bigdata:array:InternalError");
    }
  }
  for (const std::string& id : declaredIds()) {
    EXPECT_TRUE(answered.contains(id)) << id;
  }
}

}  // namespace
}  // namespace bigdata::lazyeval

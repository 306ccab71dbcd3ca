#include <algorithm>
#include <regex>

#include "CoreSession.h"
#include "executor/CompositeDataProcessorBuilder.h"
#include "foundation/i18n.h"
#include "util/UniqueIdFactory.h"

namespace bigdata {

namespace {

using executor::CompositeDataProcessorBuilder;
using util::UniqueId;
using util::UniqueIdFactory;

std::string textOf(const UniqueId& id) { return fl::i18n::to_string(id.text()); }

TEST(UniqueIds, ReadAsPrefixUuidAndCount) {
  UniqueIdFactory factory("Closure");
  const std::regex form(
      "Closure_[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}_([0-9]+)");
  for (int count = 1; count <= 12; ++count) {
    const std::string text = textOf(factory.nextId());
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(text, parts, form)) << text;
    EXPECT_EQ(parts[1], std::to_string(count));
  }
}

TEST(UniqueIds, AreOrderedAsTheirTextsNotAsTheirCounts) {
  UniqueIdFactory factory("Closure");
  std::vector<UniqueId> ids;
  for (int i = 0; i < 120; ++i) {
    ids.push_back(factory.nextId());
  }
  ids.emplace_back(ids[16].text());
  ids.emplace_back(ids[4].text() + u"x");
  ids.emplace_back();
  std::vector<std::u16string> texts;
  for (const UniqueId& id : ids) {
    texts.push_back(id.text());
  }

  std::sort(ids.begin(), ids.end());
  std::sort(texts.begin(), texts.end());
  for (std::size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(ids[i].text(), texts[i]);
  }
}

TEST(UniqueIds, ALoadedIdEqualsTheOneItWasSavedFrom) {
  UniqueIdFactory factory("Closure");
  const UniqueId made = factory.nextId();
  EXPECT_EQ(UniqueId(made.text()), made);
  EXPECT_NE(UniqueId(made.text()), factory.nextId());
  EXPECT_TRUE(UniqueId(u"").empty());
  EXPECT_EQ(UniqueId(u""), UniqueId());
}

class UniqueIdsOfSessions : public CoreSession {};

TEST_F(UniqueIdsOfSessions, CountOnWithinASessionAndStartAnewInAnother) {
  const UniqueId first = util::nextUniqueId<CompositeDataProcessorBuilder>();
  const UniqueId second = util::nextUniqueId<CompositeDataProcessorBuilder>();
  const auto withoutCount = [](const UniqueId& id) {
    const std::string text = textOf(id);
    return text.substr(0, text.rfind('_'));
  };
  EXPECT_EQ(withoutCount(first), withoutCount(second));
  EXPECT_TRUE(textOf(second).ends_with("_2"));

  kv::host::Session other;
  const kv::host::Session::Scope inOther(other);
  const UniqueId elsewhere = util::nextUniqueId<CompositeDataProcessorBuilder>();
  EXPECT_TRUE(textOf(elsewhere).ends_with("_1"));
  EXPECT_NE(withoutCount(elsewhere), withoutCount(first));
}

}  // namespace
}  // namespace bigdata

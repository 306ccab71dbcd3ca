#include <map>
#include <memory>
#include <random>
#include <ranges>

#include "CoreSession.h"
#include "executor/CompositeDataProcessorBuilder.h"
#include "ki/conversions.h"
#include "kx/string.h"
#include "support/Seed.h"
#include "support/Worlds.h"

namespace bigdata {

namespace {

using kv::host::makeDouble;
using kv::host::makeString;

const std::string kBuilder = "kalvex.bigdata.internal.executor.CompositeDataProcessorBuilder";

/// Graphs of builders whose nodes are named by letters, so that a walk reads as a word.
class Builders : public CoreSession {
 protected:
  Builders() {
    auto factory = std::make_shared<kv::host::ClassDefinition>();
    factory->name = "kalvex.bigdata.internal.executor.DataProcessorFactory";
    session.defineClass(factory);
  }

  Value arrayOf(const std::vector<const Value*>& builders) {
    Value column = matrix::from_kalvex(kcos::omCreateKCOSMatrix(
        builders.size(), 1, kcos::internal::makeInterned(kcos::NameRef::of(kBuilder))));
    std::size_t row = 0;
    for (const Value* builder : builders) {
      kcos::omSetArrayElement(column.get(), row++, kcos::omGetArrayElement(builder->get(), 0));
    }
    return column;
  }
  Value node(char letter, const std::vector<const Value*>& inputs) {
    Value made =
        make("executor.CompositeDataProcessorBuilder", arrayOf(inputs), makeString("factory"));
    letters[getText(made, "Id")] = letter;
    return made;
  }

  std::string walk(const Value& builder) {
    const Value found =
        std::move(session.invoke(builder.get(), "findAllBuilders", 1, {}, kBuilder).at(0));
    std::string word;
    for (std::size_t i = 0; i < kxGetNumberOfElements(found.get()); ++i) {
      const Value one =
          matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(found.get(), i)));
      word += letters[getText(one, "Id")];
    }
    return word;
  }
  /// The edges as "source-target:ordinal", in order.
  std::string edges(const Value& builder) {
    const auto results = session.invoke(builder.get(), "findAllDependencies", 3, {}, kBuilder);
    const kxArray* table = results.at(1).get();
    const std::size_t rows = kxGetM(table);
    EXPECT_EQ(kxGetN(table), 2u);
    EXPECT_EQ(kxGetM(results.at(2).get()), rows);
    EXPECT_EQ(kxGetN(results.at(2).get()), 1u);
    const auto* ordinals = static_cast<const double*>(kxGetData(results.at(2).get()));
    std::string text;
    for (std::size_t row = 0; row < rows; ++row) {
      text += letterAt(table, row);
      text += '-';
      text += letterAt(table, rows + row);
      text += ":" + std::to_string(static_cast<int>(ordinals[row])) + " ";
    }
    return text;
  }
  char letterAt(const kxArray* table, std::size_t index) {
    return letters[fl::i18n::to_string(*Torvane::String::getString(table, index))];
  }

  std::map<std::string, char> letters;
};

TEST_F(Builders, AreWalkedFromTheLastInputOnceEachAndListedInOrder) {
  struct Row {
    std::vector<std::string> nodes;  // each a letter, then those of its inputs; the last is walked
    std::string walked, edges;
  };
  for (const Row& row :
       {Row{{"a"}, "a", ""}, Row{{"a", "b", "c", "sabc"}, "scba", "a-s:1 b-s:2 c-s:3 "},
        Row{{"r", "pr", "qr", "spq"}, "sqrp", "p-s:1 q-s:2 r-q:1 r-p:1 "},
        Row{{"r", "srr"}, "sr", "r-s:1 r-s:2 "}}) {
    std::map<char, Value> made;
    for (const std::string& node : row.nodes) {
      std::vector<const Value*> inputs;
      for (const char input : node.substr(1)) {
        inputs.push_back(&made.at(input));
      }
      made[node[0]] = this->node(node[0], inputs);
    }
    const Value& last = made.at(row.nodes.back()[0]);
    EXPECT_EQ(walk(last), row.walked);
    EXPECT_EQ(edges(last), row.edges);
  }
}

/// This is the case for a builder and its loaded copy.
TEST_F(Builders, WithOneIdShareACountWhereTheyAreAdjacent) {
  const Value r = node('r', {}), p = node('p', {&r, &r}), q = node('q', {&r});
  session.set(q.get(), "Id", get(p, "Id").get(), kBuilder);
  EXPECT_EQ(edges(node('s', {&p, &q})), "p-s:1 p-s:2 r-p:1 r-p:2 r-p:3 ");
  EXPECT_EQ(edges(node('s', {&q, &r, &p})), "p-s:1 r-s:2 p-s:3 r-p:1 r-p:2 r-p:3 ");
}

/// The walk by recursion: a builder, then what its inputs lead to, the last input first.
void walkModel(const std::map<char, std::string>& inputs, char builder, std::string& walked) {
  if (walked.find(builder) != std::string::npos) {
    return;
  }
  walked += builder;
  for (const char input : inputs.at(builder) | std::views::reverse) {
    walkModel(inputs, input, walked);
  }
}

TEST_F(Builders, AgreeWithARecursiveModelOnRandomGraphsWithCycles) {
  std::mt19937_64 random(kv::test::drawSeed());
  const auto below = [&](std::size_t n) { return random() % n; };
  for (int round = 0; round < 30; ++round) {
    const std::string names = std::string("abcdefghijkl").substr(0, 1 + below(12));
    std::map<char, Value> made;
    for (const char name : names) {
      made[name] = node(name, {});
    }
    std::map<char, std::string> inputs;
    for (const char name : names) {
      std::vector<const Value*> builders;
      for (std::size_t i = below(4); i > 0; --i) {
        inputs[name] += names[below(names.size())];
        builders.push_back(&made.at(inputs[name].back()));
      }
      inputs.try_emplace(name);
      session.set(made.at(name).get(), "InputBuilders", arrayOf(builders).get(), kBuilder);
    }
    std::string walked, expectedEdges;
    walkModel(inputs, names[0], walked);
    for (const char target : walked) {
      int ordinal = 0;
      for (const char source : inputs.at(target)) {
        expectedEdges += {source, '-', target, ':'};
        expectedEdges += std::to_string(++ordinal) + " ";
      }
    }
    EXPECT_EQ(walk(made.at(names[0])), walked);
    EXPECT_EQ(edges(made.at(names[0])), expectedEdges);
  }
}

TEST_F(Builders, ACycleEndsAndIsCollected) {
  {
    const Value a = node('a', {});
    const Value b = node('b', {&a});
    session.set(a.get(), "InputBuilders", arrayOf({&b}).get(), kBuilder);
    EXPECT_EQ(walk(a), "ab");
    EXPECT_EQ(edges(a), "b-a:1 a-b:1 ");
  }
  session.collect();
  EXPECT_EQ(session.liveObjects(kBuilder), 0u);
}

TEST_F(Builders, AChainOfManyIsWalkedWithoutRecursion) {
  const std::size_t length = kv::test::sizes().chain;
  Value last = node('x', {});
  for (std::size_t i = 1; i < length; ++i) {
    last = node('x', {&last});
  }
  EXPECT_EQ(walk(last).size(), length);
  last.reset();
  session.collect();
  EXPECT_EQ(session.liveObjects(kBuilder), 0u);
}

TEST_F(Builders, ADeletedBuilderEndsTheWalk) {
  const Value a = node('a', {});
  const Value s = node('s', {&a});
  session.deleteObject(a.get());
  EXPECT_EQ(errorOf([&] { walk(s); }), "KALVEX:class:InvalidHandle");
}

TEST_F(Builders, AskTheirOwnClassForWhatTheLanguageDefines) {
  const Value leaf = node('a', {});
  auto completion = std::make_shared<kv::host::ClassCompletion>();
  completion->name = kBuilder;
  completion->methods = {
      {.name = "getAllInputIds",
       .body = [](const Call& c) { c.out(0, makeString("ids")); },
       .access = kcos::MemberAccess::Private},
      {.name = "feval", .body = [](const Call& c) { c.out(0, makeDouble(c.nrhs)); }}};
  session.completeClass(completion);
  EXPECT_EQ(getText(leaf, "AllInputIds"), "ids");
  const auto native =
      ki::fromArray<ki::KalvexManagedPtr<executor::CompositeDataProcessorBuilder>>(leaf.get());
  EXPECT_EQ(kxGetScalar(native->feval(leaf.get(), leaf.get()).get()), 3);
}

}  // namespace
}  // namespace bigdata

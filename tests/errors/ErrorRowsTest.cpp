#include <gtest/gtest.h>

#include "kv/errors/ErrorRow.h"
#include "kv/errors/StepError.h"

namespace kv::errors {

namespace {

TEST(ErrorRows, AreFoundByTheirIds) {
  ASSERT_GT(errorRows().size(), 100u);
  for (const ErrorRow& row : errorRows()) {
    EXPECT_EQ(findErrorRow(row.id), &row) << row.id;
    EXPECT_FALSE(row.text.empty()) << row.id;
    EXPECT_TRUE(fitsRow(row.id, row.numArguments()));
    EXPECT_FALSE(fitsRow(row.id, row.numArguments() + 1)) << row.id;
  }
  for (const char* foreign : {"", "KALVEX", "KALVEX:OutOfMemor", "KALVEX:OutOfMemory2", "zz:z"}) {
    EXPECT_EQ(findErrorRow(foreign), nullptr) << foreign;
    EXPECT_TRUE(fitsRow(foreign, 3)) << foreign;
  }
  EXPECT_EQ(findErrorRow("KALVEX:OutOfMemory")->base, BaseType::Memory);
  EXPECT_TRUE(findErrorRow("KALVEX:datastore:BadField")->namesPlace);
  EXPECT_FALSE(findErrorRow("KALVEX:datastore:PartitionCount")->namesPlace);
}

TEST(ErrorRows, GiveMessagesTheirText) {
  const std::string longName(100, 'x');
  const std::string cut = std::string(80, 'x') + "... (100 bytes)";
  const struct {
    std::string text;
    std::vector<std::string> arguments;
    std::string expected;
  } rows[] = {
      {"no place", {"unused"}, "no place"},
      {"{1} before {0}", {"a", "b"}, "b before a"},
      {"{0} and {0}", {"{1}", "b"}, "{1} and {1}"},
      {"{0} or {0:short}", {longName}, longName + " or " + cut},
      {"{2}, {x}, {}, {0:long}, {-1} and {", {"a"}, "{2}, {x}, {}, {0:long}, {-1} and {"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(fillIn(row.text, row.arguments), row.expected);
  }
  const std::vector<std::string> arguments{"lab.A", "x"};
  EXPECT_EQ(formatMessage("KALVEX:class:NoSuchMember", arguments),
            "Class 'lab.A' has no property or method 'x'.");
  EXPECT_EQ(formatMessage("lab:unknown", arguments), "lab:unknown: lab.A, x");
  EXPECT_EQ(formatMessage("lab:unknown", {}), "lab:unknown");
}

TEST(ErrorRows, AreRaisedWithoutASession) {
  try {
    raiseStep("KALVEX:datastore:FileNotReadable", {"a.csv", "it is a folder"});
  } catch (const StepError& error) {
    const StepError copy = error;
    EXPECT_EQ(copy.id(), "KALVEX:datastore:FileNotReadable");
    EXPECT_EQ(copy.arguments(), (std::vector<std::string>{"a.csv", "it is a folder"}));
    EXPECT_STREQ(copy.what(), "'a.csv' can't be read: it is a folder.");
  }
#ifndef NDEBUG
  EXPECT_DEATH(raiseStep("KALVEX:datastore:FileNotReadable", {"a.csv"}), "fitsRow");
#endif
}

}  // namespace
}  // namespace kv::errors

#pragma once

#include <gtest/gtest.h>
#include <kv/array.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/TempFolder.h"

namespace kv::test {

/// A session and a folder with small files.
class ArrayTest : public testing::Test {
 protected:
  Table read(std::string_view bytes, const ReadOptions& options = {}) {
    return session.read(folder.write("table.csv", bytes), options);
  }

  static double number(const Array& array) { return array.gather().number(); }

  static std::vector<double> numbers(const Array& array) {
    const Value value = array.gather();
    std::vector<double> all;
    for (std::size_t row = 0; row < value.rows(); ++row) {
      all.push_back(value.number(row));
    }
    return all;
  }

  Session session;
  TempFolder folder;
};

/// The Error that `action` raises.
template <class Action>
Error errorOf(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const Error& error) {
    return error;
  }
  ADD_FAILURE() << "no error";
  return {"none", "none"};
}

}  // namespace kv::test

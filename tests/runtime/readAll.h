#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kv/errors/StepError.h"
#include "kv/runtime/Datastore.h"

namespace kv::runtime::test {

inline std::vector<std::string> namesOf(const Datastore& source) {
  std::vector<std::string> names;
  for (const ColumnInfo& column : source.schema()) {
    names.push_back(column.name);
  }
  return names;
}

/// Passes each chunk of all partitions to `visit`, and checks what must hold for every chunk.
inline void readAll(const Datastore& source, const std::vector<std::string>& columns,
                    const std::function<void(const Chunk&)>& visit) {
  const CancellationToken never;
  for (std::int64_t partition = 0; partition < source.numPartitions(); ++partition) {
    const auto reader = source.openPartition(partition, columns, never);
    std::int64_t row = 0;
    while (const auto chunk = reader->next()) {
      ASSERT_GT(chunk->rows(), 0);
      EXPECT_EQ(chunk->partition, partition);
      EXPECT_EQ(*chunk->names, columns);
      EXPECT_TRUE(chunk->ordinals.isRange());
      EXPECT_EQ(chunk->ordinals.at(0), row) << "ordinals have a gap";
      for (const Column& column : chunk->columns) {
        EXPECT_EQ(column.rows(), chunk->rows());
      }
      row += chunk->rows();
      visit(*chunk);
    }
  }
}

template <class T>
std::vector<T> allValues(const Datastore& source, const std::string& column) {
  std::vector<T> all;
  readAll(source, {column}, [&all](const Chunk& chunk) {
    const auto values = chunk.columns[0].values<T>();
    all.insert(all.end(), values.begin(), values.end());
  });
  return all;
}

/// The texts of a string column; a missing text is `<missing>`.
inline std::vector<std::string> allTexts(const Datastore& source, const std::string& column) {
  std::vector<std::string> all;
  readAll(source, {column}, [&all](const Chunk& chunk) {
    const Column& texts = chunk.columns[0];
    for (std::int64_t row = 0; row < texts.rows(); ++row) {
      all.emplace_back(texts.isNull(row) ? "<missing>" : texts.text(row));
    }
  });
  return all;
}

/// The error that `action` ends with; the test fails if there is none.
inline errors::StepError stepErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const errors::StepError& error) {
    return error;
  }
  ADD_FAILURE() << "expected a StepError";
  return errors::StepError("none");
}

}  // namespace kv::runtime::test

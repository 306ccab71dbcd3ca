#include <gmock/gmock.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "array/ArrayTest.h"
#include "support/Seed.h"

namespace kv::test {

namespace {

/// Two CSV files and a Parquet file that several sessions read.
class SharedFiles : public ArrayTest {
 protected:
  SharedFiles() {
    std::string rows = "x,n,word\n";
    for (int row = 0; row < 30'000; ++row) {
      rows += std::to_string(row % 997) + ".25," + std::to_string(row % 13) + ",w" +
              std::to_string(row % 7) + "\n";
    }
    folder.writeAtRest("a.csv", rows);
    folder.writeAtRest("b.csv", rows);
    const Table csv = readCsv(session);
    session.write(csv.filter(csv.column("n") > 2), folder.path("c.parquet"));
  }

  Table readCsv(Session& with) const {
    return with.read({folder.path("a.csv"), folder.path("b.csv")});
  }

  /// Questions that no session has answered yet.
  std::vector<Array> questions(Session& to, double addend) const {
    const auto plus = [addend](std::span<const std::span<const double>> in) {
      std::vector<double> out(in[0].begin(), in[0].end());
      std::ranges::for_each(out, [&](double& value) { value += addend; });
      return out;
    };
    std::vector<Array> arrays;
    for (const Table& table : {readCsv(to), to.read(folder.path("c.parquet"))}) {
      const Array x = table.column("x") + 0.1;
      arrays.push_back(kv::std(x - mean(x)));
      arrays.push_back(sum(map(plus, std::array{filter(x, table.column("word") == "w3")})));
      arrays.push_back(filter(x, table.column("n") == 12));
    }
    return arrays;
  }

  static std::vector<Value::Data> answers(Session& of, const std::vector<Array>& arrays) {
    std::vector<Value::Data> all;
    for (const Value& value : of.gather(arrays).values) {
      all.push_back(value.data());
    }
    return all;
  }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
  }
};

TEST_F(SharedFiles, GiveSessionsOfEightThreadsTheSameAnswers) {
  const std::vector<Value::Data> expected = answers(session, questions(session, 1));
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      Session own;
      own.setThreads(1 + thread % 3);
      for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(answers(own, questions(own, 1)) == expected) << thread;
      }
    });
  }
}

TEST_F(SharedFiles, AreLeftAloneByInterruptsAtRandomTimes) {
  using std::chrono::microseconds;
  using std::chrono::steady_clock;
  std::mt19937_64 random(drawSeed());
  const auto before = std::signal(SIGINT, [](int) { interrupt(); });
  const std::vector<std::string> sources = files();
  const std::string path = folder.path("out");
  const auto start = steady_clock::now();
  const std::vector<Value::Data> expected = answers(session, questions(session, 1));
  const microseconds took = std::chrono::duration_cast<microseconds>(steady_clock::now() - start);
  int interrupted = 0;
  for (const int threads : {1, 2}) {
    session.setThreads(threads);
    for (int i = 0; i < 50; ++i) {
      const Table table = readCsv(session);
      const microseconds wait(
          static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(took.count() * 5 / 4)));
      std::jthread alarm([&] {
        std::this_thread::sleep_for(wait);
        ::kill(::getpid(), SIGINT);
      });
      try {
        if (i % 2 == 0) {
          EXPECT_TRUE(answers(session, questions(session, 1)) == expected) << wait;
        } else {
          EXPECT_EQ(number(session.write(table, path)), 60'000) << wait;
          std::filesystem::remove_all(path);
        }
      } catch (const Interrupted&) {
        ++interrupted;
      }
      EXPECT_EQ(files(), sources) << wait;
      alarm.join();
      const Array count = countRows(table.column("n"));
      try {  // a signal that came after the end stops the next evaluation
        (void)count.gather();
      } catch (const Interrupted&) {
      }
      EXPECT_EQ(number(count), 60'000);
    }
  }
  std::signal(SIGINT, before);
  std::printf("%d of 100 evaluations were interrupted\n", interrupted);
  EXPECT_GT(interrupted, 10);
}

}  // namespace

}  // namespace kv::test

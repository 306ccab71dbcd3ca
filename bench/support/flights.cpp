#include "support/Flights.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "kv/array.h"

namespace kv::bench {

std::string flightsPath() {
  const char* folder = std::getenv("KV_DATA");
  return std::string(folder != nullptr ? folder : "data") + "/flights.csv";
}

FlightAnswers askOurselves(const std::string& path) {
  Session session;
  const Table all = session.read(path);
  const Table flights = all.filter(all.column("origin") == "JFK");
  const Array delay = flights.column("dep_delay");
  const std::vector<Array> questions = {mean(delay),
                                        std(delay),
                                        max(delay),
                                        count(delay),
                                        mean(flights.column("arr_delay") > 60),
                                        sum(flights.column("distance"))};
  const Gathered gathered = session.gather(questions);
  FlightAnswers answers{};
  std::ranges::transform(gathered.values, answers.begin(),
                         [](const Value& value) { return value.number(); });
  return answers;
}

bool isSameAnswer(const FlightAnswers& a, const FlightAnswers& b) {
  constexpr double kRounding = 1e-12;
  return std::ranges::equal(a, b, [](double one, double other) {
    return std::abs(one - other) <= kRounding * std::max(std::abs(one), std::abs(other));
  });
}

}  // namespace kv::bench

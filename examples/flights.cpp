// Two questions about one table, answered in one pass over the file.
//   example_flights data/flights.csv
#include <kv/array.h>

#include <iostream>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: example_flights FILE\n";
    return 2;
  }
  try {
    kv::Session session;
    const kv::Table flights = session.read(argv[1]);
    const kv::Table fromJfk = flights.filter(flights.column("origin") == "JFK");

    const std::vector<kv::Array> questions = {mean(flights.column("arr_delay") > 60),
                                              mean(fromJfk.column("dep_delay"))};
    const kv::Gathered answers = session.gather(questions);

    std::cout << "an hour late or more: " << answers.values[0].number() << '\n'
              << "mean delay from JFK:  " << answers.values[1].number() << '\n'
              << "passes:               " << answers.facts.passes << '\n';
  } catch (const kv::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}

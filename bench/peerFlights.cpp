/// The flights query with Arrow alone, as a program with which `kvbig query` is compared.
#include <cstdio>
#include <exception>

#include "support/Flights.h"

int main(int argc, char** argv) {
  try {
    const std::string path = argc > 1 ? argv[1] : kv::bench::flightsPath();
    for (const double answer : kv::bench::askArrow(path)) {
      std::printf("%.17g\n", answer);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

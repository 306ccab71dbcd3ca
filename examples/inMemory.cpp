// Arrays in memory and generated ones, combined row by row: a trend that is found again under
// noise.
//   example_inMemory
#include <kv/array.h>

#include <iostream>
#include <vector>

int main() {
  try {
    kv::Session session;
    const std::vector<double> measured = {2.9, 5.2,  6.8,
                                          9.1, 11.0, 13.2};  // borrowed until gathered
    const kv::Array y = session.fromMemory(measured);
    const kv::Array x = session.arange(1, 7);

    const kv::Array slope =
        mean((x - mean(x)) * (y - mean(y))) / mean((x - mean(x)) * (x - mean(x)));
    std::cout << "slope of " << y.rows().value_or(0) << " points: " << slope.gather().number()
              << '\n';

    // The same of 10 million points that take no memory.
    const kv::Array time = session.linspace(0, 1, 10'000'000);
    const kv::Array signal = 3 * time + session.randomNormal(10'000'000);
    const kv::Array trend = mean((time - 0.5) * signal) / mean((time - 0.5) * (time - 0.5));
    std::cout << "slope under noise:    " << trend.gather().number() << '\n';
  } catch (const kv::Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}

#include "random/normal.h"

#include <array>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace kv::runtime {

namespace {

/// By Horner's rule; the constant comes first.
template <std::size_t count>
double polynomial(const std::array<double, count>& coefficients, double x) {
  double sum = coefficients.back();
  for (std::size_t i = count - 1; i-- > 0;) {
    sum = sum * x + coefficients[i];
  }
  return sum;
}

/// The logarithm as fdlibm computes it (e_log.c, Sun Microsystems, 1993), within 1 unit in the last
/// place: that of the C library has other bits on other processors.
double naturalLog(double x) {
  constexpr std::array kSeries{6.666666666666735130e-01, 3.999999999940941908e-01,
                               2.857142874366239149e-01, 2.222219843214978396e-01,
                               1.818357216161805012e-01, 1.531383769920937332e-01,
                               1.479819860511658591e-01};
  constexpr double kLog2High = 6.93147180369123816490e-01;
  constexpr double kLog2Low = 1.90821492927058770002e-10;
  int exponent = 0;
  double mantissa = std::frexp(x, &exponent);
  if (mantissa < std::numbers::sqrt2 / 2) {
    mantissa *= 2;
    --exponent;
  }
  const double f = mantissa - 1;
  const double s = f / (2 + f);
  const double z = s * s;
  const double series = z * polynomial(kSeries, z);
  const double half = 0.5 * f * f;
  return exponent * kLog2High - ((half - (s * (half + series) + exponent * kLog2Low)) - f);
}

constexpr std::array kCentre{3.3871328727963666080e0,  1.3314166789178437745e+2,
                             1.9715909503065514427e+3, 1.3731693765509461125e+4,
                             4.5921953931549871457e+4, 6.7265770927008700853e+4,
                             3.3430575583588128105e+4, 2.5090809287301226727e+3};
constexpr std::array kCentreBelow{1.0,
                                  4.2313330701600911252e+1,
                                  6.8718700749205790830e+2,
                                  5.3941960214247511077e+3,
                                  2.1213794301586595867e+4,
                                  3.9307895800092710610e+4,
                                  2.8729085735721942674e+4,
                                  5.2264952788528545610e+3};
constexpr std::array kTail{1.42343711074968357734e0,  4.63033784615654529590e0,
                           5.76949722146069140550e0,  3.64784832476320460504e0,
                           1.27045825245236838258e0,  2.41780725177450611770e-1,
                           2.27238449892691845833e-2, 7.74545014278341407640e-4};
constexpr std::array kTailBelow{1.0,
                                2.05319162663775882187e0,
                                1.67638483018380384940e0,
                                6.89767334985100004550e-1,
                                1.48103976427480074590e-1,
                                1.51986665636164571966e-2,
                                5.47593808499534494600e-4,
                                1.05075007164441684324e-9};
constexpr std::array kFarTail{6.65790464350110377720e0,  5.46378491116411436990e0,
                              1.78482653991729133580e0,  2.96560571828504891230e-1,
                              2.65321895265761230930e-2, 1.24266094738807843860e-3,
                              2.71155556874348757815e-5, 2.01033439929228813265e-7};
constexpr std::array kFarTailBelow{1.0,
                                   5.99832206555887937690e-1,
                                   1.36929880922735805310e-1,
                                   1.48753612908506148525e-2,
                                   7.86869131145613259100e-4,
                                   1.84631831751005468180e-5,
                                   1.42151175831644588870e-7,
                                   2.04426310338993978564e-15};

}  // namespace

double normalQuantile(double p) {
  assert(p > 0 && p < 1);
  const double q = p - 0.5;
  if (std::abs(q) <= 0.425) {
    const double r = 0.180625 - q * q;
    return q * polynomial(kCentre, r) / polynomial(kCentreBelow, r);
  }
  const double r = std::sqrt(-naturalLog(q < 0 ? p : 1 - p));
  const double size = r <= 5 ? polynomial(kTail, r - 1.6) / polynomial(kTailBelow, r - 1.6)
                             : polynomial(kFarTail, r - 5) / polynomial(kFarTailBelow, r - 5);
  return q < 0 ? -size : size;
}

}  // namespace kv::runtime

// Columns of values on which a chunk codec can go wrong, for its tests.
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <vector>

struct AwkwardColumn {
  const char* mName;
  std::function<double(std::size_t, std::mt19937_64&)> mValue;  // of a row

  std::vector<double> Values(std::size_t count) const {
    std::mt19937_64 random(count);
    std::vector<double> values(count);
    for (std::size_t i = 0; i < count; ++i) {
      values[i] = mValue(i, random);
    }
    return values;
  }
};

inline const std::vector<AwkwardColumn>& AwkwardColumns() {
  using Random = std::mt19937_64;
  static constexpr auto Noise = [](Random& random) {
    return std::generate_canonical<double, 53>(random);
  };
  static const std::vector<AwkwardColumn> columns = {
      {"zeros", [](std::size_t, Random&) { return 0.0; }},
      {"all bits set",  // checksum words of 65535, which count as 0 and as 65535
       [](std::size_t, Random&) { return std::bit_cast<double>(~std::uint64_t{0}); }},
      {"ramp of integers", [](std::size_t i, Random&) { return static_cast<double>(i); }},
      {"period of 20000",
       [](std::size_t i, Random&) { return std::sin(static_cast<double>(i % 20000)); }},
      {"noise", [](std::size_t, Random& random) { return Noise(random); }},
      {"random bits", [](std::size_t, Random& random) { return std::bit_cast<double>(random()); }},
      {"drift with noise",
       [](std::size_t i, Random& r) {
         return 100 + 1e-7 * static_cast<double>(i) + 1e-9 * Noise(r);
       }},
      {"few distinct",
       [](std::size_t, Random& r) { return std::sqrt(static_cast<double>(r() % 7)); }},
      {"thirds", [](std::size_t, Random& r) { return static_cast<double>(r() % 1000) / 3; }},
      {"runs and noise",
       [](std::size_t i, Random& r) { return i / 9000 % 2 == 0 ? Noise(r) : 1.0; }},
      {"signalling NaNs",
       [](std::size_t i, Random&) { return std::bit_cast<double>(0xfff0000000000001U + i); }},
      {"denormals",
       [](std::size_t i, Random&) {
         return static_cast<double>(i % 5) * std::numeric_limits<double>::denorm_min();
       }},
      {"infinities and extremes",
       [](std::size_t i, Random&) {
         const double values[] = {std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::lowest(),
                                  std::numeric_limits<double>::min(), 1.0};
         return values[i % 4];
       }},
  };
  return columns;
}

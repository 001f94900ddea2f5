// What a row costs through the library for C beyond what it costs in C++, and how fast many rows
// are taken in one call. Prints the medians of ten rounds: nanoseconds per row of ten columns in
// C++ and in C, then GB/s of memcpy() and of 10^6 rows in one call.
//
//   AppendsC folder
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Bindings/C/vexa.h"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

constexpr std::size_t sColumns = 10;
constexpr std::size_t sRows = 100000;
constexpr std::size_t sManyRows = 1000000;

void Check(int status) {
  if (status != VEXA_OK) {
    std::cerr << "AppendsC: " << vexa_last_error() << '\n';
    std::exit(1);
  }
}

template <class Work>
double Seconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::array<double, 10> seconds) {
  std::ranges::sort(seconds);
  return (seconds[4] + seconds[5]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: AppendsC folder\n";
    return 2;
  }
  const std::string folder = argv[1];
  const std::array<const char*, sColumns> legend = {"t", "a", "b", "c", "d",
                                                    "e", "f", "g", "h", "i"};
  vexa_file* file = nullptr;
  vexa_table* table = nullptr;
  Check(vexa_set_cache_limit(10000000000));
  Check(vexa_open((folder + "/c.h5").c_str(), nullptr, 0, &file));
  Check(vexa_table_open(file, "x.dat", legend.data(), sColumns, 0, 100000, &table));
  CachedH5File own(folder + "/cpp.h5", ReadWrite, {}, 0);
  auto& dat = own.GetObjectForWrite<H5_Objects::Dat>("x.dat");
  dat.Initialize(MyVector<std::string>(std::vector<std::string>(legend.begin(), legend.end())),
                 false, 100000);

  const std::vector<double> rows(sManyRows * sColumns, 1.5);
  std::vector<double> copy(rows.size());
  std::array<double, 10> cpp{};
  std::array<double, 10> c{};
  std::array<double, 10> memory{};
  std::array<double, 10> many{};
  for (std::size_t round = 0; round < cpp.size(); ++round) {
    cpp[round] = Seconds([&] {
      for (std::size_t r = 0; r < sRows; ++r) {
        const double t = static_cast<double>(r);
        dat.Append({t, 1., 2., 3., 4., 5., 6., 7., 8., 9.});
      }
    });
    c[round] = Seconds([&] {
      for (std::size_t r = 0; r < sRows; ++r) {
        const double row[] = {static_cast<double>(r), 1., 2., 3., 4., 5., 6., 7., 8., 9.};
        Check(vexa_table_append(table, row, sColumns));
      }
    });
    TheCachedH5FileHolder().WriteCache();
    memory[round] = Seconds([&] { std::memcpy(copy.data(), rows.data(), 8 * rows.size()); });
    many[round] =
        Seconds([&] { Check(vexa_table_append_rows(table, rows.data(), sManyRows, sColumns)); });
    Check(vexa_flush(file));
  }
  const double bytes = 8e-9 * static_cast<double>(rows.size());
  std::cout << 1e9 * Median(cpp) / sRows << ' ' << 1e9 * Median(c) / sRows << ' '
            << bytes / Median(memory) << ' ' << bytes / Median(many) << '\n';
}

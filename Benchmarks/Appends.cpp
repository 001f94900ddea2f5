// What it costs to append to a table: through the store, and by plain HDF5 calls. Prints the
// microseconds of CPU time per row at first, late and over all rows, and the size of the file.
//
//   Appends store|plain handles|live rows file [gzip]
//
// Rows are written 25 at a time: "handles" opens the file for that, by a handle per row in the
// store; "live" keeps it open and flushes it. The second eighth of the rows and the last count as
// first and late ones.
#include <hdf5.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

constexpr int sColumns = 10;
constexpr int sChunkRows = 10;
constexpr int sRowsPerFlush = 25;
constexpr int sEighths = 8;

void Check(bool isFine, const char* what) {
  if (!isFine) {
    std::cerr << "Appends: " << what << " failed\n";
    std::exit(1);
  }
}

double Microseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return 1e6 * static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// Notes the time at each eighth of the rows.
class Clock {
 public:
  explicit Clock(int rows) : mRows(rows), mTimes{Microseconds()} {}

  void Row(int row) {
    if ((row + 1) % (mRows / sEighths) == 0) {
      mTimes.push_back(Microseconds());
    }
  }

  void Print(const std::string& filename) const {
    const double rows = static_cast<double>(mRows) / sEighths;
    std::cout << (mTimes[2] - mTimes[1]) / rows << ' '
              << (mTimes[sEighths] - mTimes[sEighths - 1]) / rows << ' '
              << (Microseconds() - mTimes[0]) / mRows << ' ' << std::filesystem::file_size(filename)
              << '\n';
  }

 private:
  int mRows;
  std::vector<double> mTimes;
};

// The values of all but the first column recur, so that making them costs next to nothing.
class Rows {
 public:
  Rows() {
    for (std::size_t i = 0; i < mValues.size(); ++i) {
      mValues.at(i) = std::sin(0.01 * static_cast<double>(i)) + 1e-6 * static_cast<double>(i % 7);
    }
  }

  double Value(int row, int column) const {
    return column == 0 ? 0.01 * row : mValues[static_cast<std::size_t>(row + 97 * column) % 4096];
  }

 private:
  std::array<double, 4096> mValues{};
};

MyVector<std::string> Legend() {
  MyVector<std::string> legend(MV::Size(sColumns));
  for (int c = 0; c < sColumns; ++c) {
    legend[c] = "quantity " + std::to_string(c);
  }
  return legend;
}

void AppendThroughStore(const std::string& filename, int rows, bool compress, bool isLive) {
  const Rows content;
  const MyVector<std::string> legend = Legend();
  MyVector<double> values(MV::Size(sColumns));
  const auto append = [&](CachedH5File& file, int row) {
    for (int c = 0; c < sColumns; ++c) {
      values[c] = content.Value(row, c);
    }
    auto& table = file.GetObjectForWrite<H5_Objects::Dat>("/a.dat");
    if (row == 0) {
      table.Initialize(legend, compress, sChunkRows);
    }
    table.Append(values);
  };
  Clock clock(rows);
  if (isLive) {
    CachedH5File file(filename, ReadWrite, {}, /*verbosity=*/0);
    for (int row = 0; row < rows; ++row) {
      append(file, row);
      if ((row + 1) % sRowsPerFlush == 0) {
        TheCachedH5FileHolder().WriteCache();
      }
      clock.Row(row);
    }
  } else {
    TheCachedH5FileHolder().SetMaxCacheSize(8 * sColumns * sRowsPerFlush - 1);
    for (int row = 0; row < rows; ++row) {
      {
        CachedH5File file(filename, ReadWrite, {}, /*verbosity=*/0);
        append(file, row);
      }
      clock.Row(row);
    }
  }
  TheCachedH5FileHolder().PurgeCache();
  clock.Print(filename);
}

// The same table, as a program would write it that has HDF5 alone.
class PlainTable {
 public:
  PlainTable(const char* filename, bool compress) : mFilename(filename) {
    mAccess = H5Pcreate(H5P_FILE_ACCESS);
    Check(H5Pset_libver_bounds(mAccess, H5F_LIBVER_V18, H5F_LIBVER_LATEST) >= 0, "bounds");
    mFile = H5Fcreate(filename, H5F_ACC_EXCL, H5P_DEFAULT, mAccess);
    const hid_t layout = H5Pcreate(H5P_DATASET_CREATE);
    const std::array<hsize_t, 2> none = {0, sColumns};
    const std::array<hsize_t, 2> most = {H5S_UNLIMITED, sColumns};
    const std::array<hsize_t, 2> chunk = {sChunkRows, 1};
    Check(H5Pset_chunk(layout, 2, chunk.data()) >= 0, "H5Pset_chunk");
    if (compress) {
      Check(H5Pset_shuffle(layout) >= 0 && H5Pset_deflate(layout, 1) >= 0 &&
                H5Pset_fletcher32(layout) >= 0,
            "setting filters");
    }
    const hid_t space = H5Screate_simple(2, none.data(), most.data());
    mTable = H5Dcreate2(mFile, "a.dat", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, layout, H5P_DEFAULT);
    Check(mTable >= 0 && H5Sclose(space) >= 0 && H5Pclose(layout) >= 0, "making the table");
  }

  void Open() {
    mFile = H5Fopen(mFilename, H5F_ACC_RDWR, mAccess);
    mTable = H5Dopen2(mFile, "a.dat", H5P_DEFAULT);
    Check(mTable >= 0, "H5Dopen2");
  }
  void Flush() const { Check(H5Fflush(mFile, H5F_SCOPE_LOCAL) >= 0, "H5Fflush"); }
  void Close() const { Check(H5Dclose(mTable) >= 0 && H5Fclose(mFile) >= 0, "H5Fclose"); }

  void Append(const double* values, hsize_t rows) {
    const std::array<hsize_t, 2> first = {mRows, 0};
    const std::array<hsize_t, 2> count = {rows, sColumns};
    mRows += rows;
    const std::array<hsize_t, 2> extents = {mRows, sColumns};
    Check(H5Dset_extent(mTable, extents.data()) >= 0, "H5Dset_extent");
    const hid_t space = H5Dget_space(mTable);
    const hid_t memory = H5Screate_simple(2, count.data(), nullptr);
    Check(H5Sselect_hyperslab(space, H5S_SELECT_SET, first.data(), nullptr, count.data(),
                              nullptr) >= 0 &&
              H5Dwrite(mTable, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, values) >= 0,
          "H5Dwrite");
    Check(H5Sclose(memory) >= 0 && H5Sclose(space) >= 0, "H5Sclose");
  }

 private:
  const char* mFilename;
  hid_t mAccess = -1, mFile = -1, mTable = -1;
  hsize_t mRows = 0;
};

void AppendPlainly(const char* filename, int rows, bool compress, bool isLive) {
  const Rows content;
  std::array<double, static_cast<std::size_t>(sRowsPerFlush) * sColumns> values{};
  Clock clock(rows);
  PlainTable table(filename, compress);
  for (int row = 0; row < rows; ++row) {
    for (int c = 0; c < sColumns; ++c) {
      values.at(static_cast<std::size_t>(row % sRowsPerFlush * sColumns + c)) =
          content.Value(row, c);
    }
    if ((row + 1) % sRowsPerFlush == 0) {
      if (!isLive && row >= sRowsPerFlush) {
        table.Open();
      }
      table.Append(values.data(), sRowsPerFlush);
      isLive ? table.Flush() : table.Close();
    }
    clock.Row(row);
  }
  if (isLive) {
    table.Close();
  }
  clock.Print(filename);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: Appends store|plain handles|live rows file [gzip]\n";
    return 2;
  }
  const bool isLive = std::string(argv[2]) == "live";
  const int unit = sEighths * sRowsPerFlush;
  const int rows = std::max(std::atoi(argv[3]) / unit, 1) * unit;
  const bool compress = argc > 5;
  if (std::string(argv[1]) == "store") {
    AppendThroughStore(argv[4], rows, compress, isLive);
  } else {
    AppendPlainly(argv[4], rows, compress, isLive);
  }
  return 0;
}

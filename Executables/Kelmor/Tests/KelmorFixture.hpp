// A folder with inputs, and the tool run in it.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Executables/Kelmor/Tests/RunKelmor.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

using Strings = std::vector<std::string>;

class KelmorFixture : public testing::Test {
 protected:
  /// Starts the store, which has to come before any other use of the HDF5 library.
  KelmorFixture();

  std::string Path(const std::string& name) const { return mDir / name; }

  /// A file to write to before the next run, which closes it. Asked for after a run, a file of that
  /// name begins anew.
  PlainH5::File& Input(const std::string& name);
  void CloseInputs() { mInputs.clear(); }

  /// Runs the tool. Whatever is in the folder must have the same contents and the same time of
  /// modification afterwards, but for the error file.
  RunResult Run(const Arguments& arguments);
  /// The same with another program.
  RunResult Run(const std::string& program, const Arguments& arguments);

  /// A run that must succeed and say nothing on standard error; it writes a new "out.h5". Returns
  /// its standard output.
  std::string Join(Arguments arguments);
  PlainH5::File Output() const { return PlainH5::File::Open(Path("out.h5")); }

  PlainH5::TempDir mDir;

 private:
  std::map<std::string, PlainH5::File> mInputs;
};

/// Writes a table of times and, for each, 100 * `tag` + the number of its row; so every row tells
/// where it comes from.
void WriteTimes(PlainH5::File& file, const std::string& path, const std::vector<double>& times,
                int tag = 0);

/// Writes a table of numbers that go up by one, row after row.
void WriteNumbers(PlainH5::File& file, const std::string& path, hsize_t rows,
                  const std::vector<hsize_t>& chunk, hsize_t columns, double first = 0);

inline constexpr char sTwoDimensionalSpec[] = "TensorDim=3; TensorSymm=1; DataMeshDim=2;";

/// Values of a coefficient set or a series of tensors: first, first + 1, ... as a table of one
/// column.
PlainH5::Rows Count(double first, std::size_t values);
void WriteCoef(PlainH5::File& file, const std::string& path, const PlainH5::Rows& index,
               const PlainH5::Rows& values);
/// `index` has no extents for meshes of dimension 0.
void WriteTdm(PlainH5::File& file, const std::string& path, const PlainH5::Rows& index,
              const PlainH5::Rows& values,
              const std::string& spec = "TensorDim=3; TensorSymm=1; DataMeshDim=1;");

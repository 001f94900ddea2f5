// A folder with inputs, and the tool run in it.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

using Arguments = std::vector<std::string>;
using Strings = std::vector<std::string>;

struct RunResult {
  int mStatus;           // exit status
  std::string mOutput;   // standard output
  std::string mErrors;   // standard error
  std::string mReports;  // what the run left in the error file of its run directory
};

class KelmorFixture : public testing::Test {
 protected:
  /// Starts the store, which has to come before any other use of the HDF5 library.
  KelmorFixture();

  std::string Path(const std::string& name) const { return mDir / name; }

  /// A file to write to before the next run, which closes it. Asked for after a run, a file of that
  /// name begins anew.
  PlainH5::File& Input(const std::string& name);
  void CloseInputs() { mInputs.clear(); }

  /// Runs Kelmor, or another program, in the folder.
  RunResult Run(const Arguments& arguments, const std::string& program = {});

  /// A run that must succeed and say nothing on standard error; it writes a new "out.h5". Returns
  /// its standard output.
  std::string Join(Arguments arguments);

  PlainH5::TempDir mDir;

 private:
  std::map<std::string, PlainH5::File> mInputs;
};

/// Writes a table of times and, for each, 100 * `tag` + the number of its row; so every row tells
/// where it comes from.
void WriteTimes(PlainH5::File& file, const std::string& path, const std::vector<double>& times,
                int tag = 0);

/// Values of a coefficient set or a series of tensors: first, first + 1, ... as a table of one
/// column.
PlainH5::Rows Count(double first, std::size_t values);
void WriteCoef(PlainH5::File& file, const std::string& path, const PlainH5::Rows& index,
               const PlainH5::Rows& values);
/// `index` has no extents for meshes of dimension 0.
void WriteTdm(PlainH5::File& file, const std::string& path, const PlainH5::Rows& index,
              const PlainH5::Rows& values,
              const std::string& spec = "TensorDim=3; TensorSymm=1; DataMeshDim=2;");

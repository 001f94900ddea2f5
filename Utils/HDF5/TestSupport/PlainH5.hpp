// Files built and looked at with plain HDF5 calls, so that what the store writes and reads is
// checked by another than itself; and what tests of failures need.
#pragma once

#include <gtest/gtest.h>
#include <hdf5.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace PlainH5 {

/// A folder that goes away with its contents.
class TempDir {
 public:
  TempDir();
  ~TempDir() { std::filesystem::remove_all(mPath); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string operator/(const std::string& name) const { return (mPath / name).string(); }
  const std::filesystem::path& Path() const { return mPath; }

 private:
  std::filesystem::path mPath;
};

using Rows = std::vector<std::vector<double>>;
using Strings = std::vector<std::string>;
using Dims = std::vector<hsize_t>;

/// How a table is laid out; the defaults are those of the store.
struct TableOptions {
  Dims mChunk = {16, 1};   // contiguous if empty
  bool mCompress = false;  // shuffle, deflate 1, Fletcher-32
  Strings mLegend = {};    // no attribute if empty
};

/// An open file; groups on the way to an object are made.
class File {
 public:
  /// Creates the file, in the newest format or (if `oldFormat`) in the oldest.
  static File Create(const std::string& path, bool oldFormat = false);
  static File Open(const std::string& path, unsigned access = H5F_ACC_RDONLY);
  File(File&& other) noexcept : mId(std::exchange(other.mId, -1)) {}
  ~File();
  hid_t Id() const { return mId; }

  void Group(const std::string& path);
  /// `columns` matters for a table without rows.
  void Table(const std::string& path, const Rows& rows, const TableOptions& options = {},
             hsize_t columns = 0);
  /// A record with that many entries, {"hash0", "help0"} and so on, or another word for the help.
  void Version(const std::string& path, int entries, const std::string& help = "help");
  /// Strings of variable length with the character set; a scalar if `dims` is empty, and a dataset
  /// that can grow if it has one dimension.
  void Strings(const std::string& path, const PlainH5::Strings& strings, const PlainH5::Dims& dims,
               H5T_cset_t set = H5T_CSET_ASCII);
  void Characters(const std::string& path, const std::string& text);
  void StringAttribute(const std::string& path, const std::string& name,
                       const PlainH5::Strings& strings);

  bool Has(const std::string& path) const;
  Rows ReadTable(const std::string& path) const;
  PlainH5::Strings ReadStrings(const std::string& path) const;
  H5T_cset_t CharacterSet(const std::string& path) const;
  PlainH5::Strings ReadStringAttribute(const std::string& path, const std::string& name) const;
  PlainH5::Dims Dims(const std::string& path) const;

 private:
  explicit File(hid_t id) : mId(id) {}
  hid_t mId;
};

/// A test with a file to write to.
class FileTest : public testing::Test {
 protected:
  TempDir mDir;
  File mFile = File::Create(mDir / "t.h5");
};

std::string Bytes(const std::string& path);

/// The text of the report in which `action` must end.
std::string ReportOf(const std::function<void()>& action);

/// Expects `action` to end in a report about that condition with that message, both in full or
/// their beginning.
void ExpectReport(const std::function<void()>& action, const std::string& condition,
                  const std::string& message);

}  // namespace PlainH5

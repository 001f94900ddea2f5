#include "Utils/HDF5/StoredRanges.hpp"

#include <algorithm>
#include <set>
#include <tuple>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using Vexa_H5::WantedValues;

class StoredRangesTest : public testing::Test {
 protected:
  PlainH5::TempDir mDir;
  PlainH5::File mFile = PlainH5::File::Create(mDir / "t.h5", true);

  std::deque<Vexa_H5::ByteRange> Ranges(const std::string& name, WantedValues wanted) {
    H5Fflush(mFile.Id(), H5F_SCOPE_GLOBAL);
    const std::string bytes = PlainH5::Bytes(mDir / "t.h5");
    const auto read = [&bytes](std::uint64_t at, std::uint64_t count) {
      const std::string part = at < bytes.size() ? bytes.substr(at, count) : "";
      const auto* begin = reinterpret_cast<const std::byte*>(part.data());
      return std::vector<std::byte>(begin, begin + part.size());
    };
    EXPECT_TRUE(Vexa_H5::HasKnownAddresses(read));
    H5O_info_t info;
    H5Oget_info_by_name(mFile.Id(), name.c_str(), &info, H5P_DEFAULT);
    // In a file as small as this one it would soon have read as many bytes as there are.
    constexpr std::uint64_t fileSize = 1 << 22;
    return Vexa_H5::StoredRanges(info.addr, fileSize, read, wanted, 1000);
  }

  // Where the values of a dataset are in the file, in its order.
  std::vector<std::uint64_t> Begins(const std::string& name, WantedValues wanted) {
    std::vector<std::uint64_t> begins;
    for (const auto& range : Ranges(name, wanted)) {
      begins.push_back(range.mBegin);
    }
    std::ranges::sort(begins);
    return begins;
  }

  // As the library tells it; the chunks that begin in these columns.
  std::vector<std::uint64_t> Chunks(const std::string& name, hsize_t rows, hsize_t columns) {
    const Vexa_H5::DatasetHandle dataset(H5Dopen2(mFile.Id(), name.c_str(), H5P_DEFAULT));
    std::vector<std::uint64_t> begins;
    for (hsize_t offset[2] = {0, 0}; offset[0] < rows; offset[0] += 4) {
      for (offset[1] = 0; offset[1] < columns; ++offset[1]) {
        unsigned skipped = 0;
        haddr_t address = 0;
        hsize_t bytes = 0;
        H5Dget_chunk_info_by_coord(dataset, offset, &skipped, &address, &bytes);
        begins.push_back(address);
      }
    }
    std::ranges::sort(begins);
    return begins;
  }
};

TEST_F(StoredRangesTest, TimesAreInTheFirstOfSeveralColumns) {
  mFile.Table("t.dat", PlainH5::Rows(10, {1, 2, 3}), {.mChunk = {4, 1}});
  mFile.Table("v.coef/coefs.dat", PlainH5::Rows(10, {1}), {.mChunk = {4, 1}});
  EXPECT_EQ(Begins("t.dat", WantedValues::All), Chunks("t.dat", 10, 3));
  EXPECT_EQ(Begins("t.dat", WantedValues::Times), Chunks("t.dat", 10, 1));
  EXPECT_EQ(Begins("v.coef", WantedValues::All), Chunks("v.coef/coefs.dat", 10, 1));
  EXPECT_EQ(Begins("v.coef", WantedValues::Times), std::vector<std::uint64_t>());
}

TEST_F(StoredRangesTest, ChunksAndPartsOfThemHaveRowsAndColumns) {
  constexpr std::size_t rows = 300000;  // of two mebibytes and more
  mFile.Table("one.dat", PlainH5::Rows(rows, {1}), {.mChunk = {rows, 1}});
  mFile.Table("t.dat", PlainH5::Rows(10, {1, 2, 3}), {.mChunk = {4, 2}});
  using Places = std::set<std::tuple<std::uint64_t, std::uint32_t, std::uint32_t>>;
  const auto places = [this](const std::string& name) {
    Places found;
    for (const auto& range : Ranges(name, WantedValues::All)) {
      found.emplace(range.mRow, range.mFirstColumn, range.mEndColumn);
    }
    return found;
  };
  EXPECT_EQ(places("one.dat"), (Places{{0, 0, 1}, {131072, 0, 1}, {262144, 0, 1}}));
  EXPECT_EQ(places("t.dat"),
            (Places{{0, 0, 2}, {0, 2, 4}, {4, 0, 2}, {4, 2, 4}, {8, 0, 2}, {8, 2, 4}}));
}

}  // namespace

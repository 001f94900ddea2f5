// The codec against HDF5's own filters: they read what it writes, and it reads what they write.
#include <gmock/gmock.h>
#include <hdf5.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "Utils/ChunkCodec/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/ChunkDecoder.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"

namespace {

using ChunkCodec::DecodeStatus;
using ChunkCodec::Filters;

// A dataset of one chunk in a file that exists in memory only.
class OneChunk {
 public:
  OneChunk(std::size_t values, const Filters& filters) : mValues(values), mFilters(filters) {
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fapl_core(access, 1 << 20, false);
    static int number = 0;  // HDF5 knows open files by name
    const std::string name = "OneChunk" + std::to_string(++number) + ".h5";
    mFile = H5Fcreate(name.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access);
    H5Pclose(access);
    const hsize_t extent = values;
    const hid_t space = H5Screate_simple(1, &extent, nullptr);
    const hid_t creation = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_chunk(creation, 1, &extent);
    if (filters.mShuffle) {
      H5Pset_shuffle(creation);
    }
    if (filters.mDeflate) {
      H5Pset_deflate(creation, 1);
    }
    if (filters.mFletcher32) {
      H5Pset_fletcher32(creation);
    }
    mDataset =
        H5Dcreate2(mFile, "data", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, creation, H5P_DEFAULT);
    H5Pclose(creation);
    H5Sclose(space);
    Check(mDataset >= 0, "dataset");
  }
  ~OneChunk() {
    H5Dclose(mDataset);
    H5Fclose(mFile);
  }
  OneChunk(const OneChunk&) = delete;
  OneChunk& operator=(const OneChunk&) = delete;

  void WriteFiltered(const std::vector<std::byte>& bytes) {
    const hsize_t offset = 0;
    Check(H5Dwrite_chunk(mDataset, H5P_DEFAULT, 0, &offset, bytes.size(), bytes.data()) >= 0,
          "H5Dwrite_chunk");
  }
  std::vector<double> Read() const {
    std::vector<double> values(mValues);
    Check(H5Dread(mDataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()) >= 0,
          "H5Dread");
    return values;
  }
  void Write(const std::vector<double>& values) {
    Check(H5Dwrite(mDataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()) >= 0,
          "H5Dwrite");
    Check(H5Fflush(mFile, H5F_SCOPE_LOCAL) >= 0, "H5Fflush");
  }
  std::vector<std::byte> ReadFiltered() const {
    const hsize_t offset = 0;
    hsize_t size = 0;
    Check(H5Dget_chunk_storage_size(mDataset, &offset, &size) >= 0, "H5Dget_chunk_storage_size");
    std::vector<std::byte> bytes(size);
    std::uint32_t skipped = 0;
    Check(H5Dread_chunk(mDataset, H5P_DEFAULT, &offset, &skipped, bytes.data()) >= 0,
          "H5Dread_chunk");
    Check(skipped == 0, "no filter skipped");
    return bytes;
  }

 private:
  static void Check(bool holds, const char* what) {
    if (!holds) {
      throw std::runtime_error(what);
    }
  }

  std::size_t mValues;
  Filters mFilters;
  hid_t mFile = -1;
  hid_t mDataset = -1;
};

// Bits, not values: a NaN equals nothing, and 0.0 equals -0.0.
bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

void ExpectAgreement(const AwkwardColumn& column, std::size_t count, const Filters& filters) {
  SCOPED_TRACE(std::string(column.mName) + ", " + std::to_string(count) + " values, filters " +
               (filters.mShuffle ? "s" : "-") + (filters.mDeflate ? "d" : "-") +
               (filters.mFletcher32 ? "f" : "-"));
  const std::vector<double> values = column.Values(count);
  OneChunk ours(count, filters);
  ours.WriteFiltered(ChunkCodec::EncodeChunk(values, filters));
  EXPECT_TRUE(SameBits(ours.Read(), values)) << "HDF5 reads ours";

  OneChunk theirs(count, filters);
  theirs.Write(values);
  std::vector<double> decoded(count, -1);
  EXPECT_EQ(DecodeChunk(theirs.ReadFiltered(), filters, decoded), DecodeStatus::Ok);
  EXPECT_TRUE(SameBits(decoded, values)) << "we read HDF5's";
  EXPECT_EQ(DecodeChunk(ours.ReadFiltered(), filters, decoded), DecodeStatus::Ok);
  EXPECT_TRUE(SameBits(decoded, values)) << "we read ours";
}

constexpr Filters AllFilters{true, true, true};

TEST(HDF5Agreement, InEveryCombinationOfFilters) {
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (int bits = 0; bits < 8; ++bits) {
      const Filters filters{(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0};
      for (const std::size_t count : {1U, 3U, 1000U, 20001U}) {
        ExpectAgreement(column, count, filters);
      }
    }
  }
}

TEST(HDF5Agreement, AroundTheEdgesOfBlocks) {
  std::vector<std::size_t> counts = {255, 256, 257};
  for (std::size_t count = 1; count <= 17; ++count) {
    counts.push_back(count);
  }
  // Where chunks stop being small, runs are looked for, codes change, zlib's window ends, and a
  // stored block is full.
  for (const std::size_t edge : {4096U, 8192U, 16384U, 32768U, 65535U}) {
    counts.insert(counts.end(), {edge - 1, edge, edge + 1});
  }
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (const std::size_t count : counts) {
      ExpectAgreement(column, count, AllFilters);
    }
  }
}

TEST(HDF5Agreement, AroundTheEdgesOfPieces) {
  constexpr std::size_t piece = std::size_t{1} << 18;
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (const std::size_t count : {piece - 1, piece, piece + 1, 2 * piece + 1}) {
      ExpectAgreement(column, count, AllFilters);
    }
    ExpectAgreement(column, piece + 1, {.mShuffle = false, .mDeflate = true, .mFletcher32 = true});
    ExpectAgreement(column, piece + 1, {.mShuffle = true, .mDeflate = false, .mFletcher32 = true});
  }
}

}  // namespace

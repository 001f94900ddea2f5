// The codec against HDF5's own filters: they read what it writes, and it reads what they write.
#include <gmock/gmock.h>
#include <hdf5.h>

#include <string>
#include <vector>

#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/ChunkCodec/ShortChunk.hpp"
#include "Utils/ChunkCodec/TestSupport/AwkwardColumns.hpp"
#include "Utils/ChunkCodec/TestSupport/DecodeChunk.hpp"

namespace {

using Bytes = std::vector<std::byte>;
using ChunkCodec::Filters;

// Has HDF5 read `stored` as a dataset of one chunk, and returns what it stores of the same values,
// in a file that exists in memory only.
Bytes ExchangeWithHDF5(const Bytes& stored, const Filters& filters, std::vector<double>& values) {
  const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
  H5Pset_fapl_core(access, 1 << 20, false);
  const hid_t file = H5Fcreate("OneChunk.h5", H5F_ACC_TRUNC, H5P_DEFAULT, access);
  const hsize_t extent = values.size();
  const hid_t space = H5Screate_simple(1, &extent, nullptr);
  const hid_t creation = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_chunk(creation, 1, &extent);
  for (const auto& [number, parameters, parameter, name] : filters) {
    H5Pset_filter(creation, number, H5Z_FLAG_MANDATORY, parameters, &parameter);
  }
  const hid_t dataset =
      H5Dcreate2(file, "values", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, creation, H5P_DEFAULT);
  const hsize_t offset = 0;
  hsize_t size = 0;
  std::uint32_t skipped = 0;
  EXPECT_GE(H5Dwrite_chunk(dataset, H5P_DEFAULT, 0, &offset, stored.size(), stored.data()), 0);
  EXPECT_GE(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
  EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
  EXPECT_GE(H5Fflush(file, H5F_SCOPE_LOCAL), 0);
  EXPECT_GE(H5Dget_chunk_storage_size(dataset, &offset, &size), 0);
  Bytes bytes(size);
  EXPECT_GE(H5Dread_chunk(dataset, H5P_DEFAULT, &offset, &skipped, bytes.data()), 0);
  H5Dclose(dataset);
  H5Pclose(creation);
  H5Sclose(space);
  H5Fclose(file);
  H5Pclose(access);
  return bytes;
}

void ExpectAgreement(const AwkwardColumn& column, std::size_t count, unsigned bits) {
  const Filters filters = ChunkCodec::FiltersOfBits(bits);
  SCOPED_TRACE(testing::Message() << column.mName << ", " << count << " values, " << bits);
  const std::vector<double> values = column.Values(count);
  std::vector<double> read(count, -1);
  const bool isShort = count <= ChunkCodec::sMostValuesOfShortChunk;
  for (const auto encode : {ChunkCodec::EncodeChunk, ChunkCodec::EncodeShortChunk}) {
    if (encode == ChunkCodec::EncodeShortChunk && !isShort) {
      continue;
    }
    const Bytes ours = encode(values, filters);
    const Bytes theirs = ExchangeWithHDF5(ours, filters, read);
    EXPECT_TRUE(ChunkCodec::AreSameBits(values, read)) << "HDF5 reads ours";
    for (const Bytes& stored : {ours, theirs}) {
      std::vector<double> decoded(count, -1);
      EXPECT_EQ(DecodeChunk(stored, filters, decoded), ChunkCodec::DecodeStatus::Ok);
      EXPECT_TRUE(ChunkCodec::AreSameBits(values, decoded))
          << "we read " << (stored == ours ? "ours" : "HDF5's");
    }
    // Columns of which next to nothing is left need room for the headers of their pieces.
    const std::size_t headers = isShort ? 0 : count + 800;
    const bool isUsed = (encode == ChunkCodec::EncodeShortChunk) == isShort;
    EXPECT_TRUE(!isUsed || 50 * ours.size() <= 51 * theirs.size() + headers) << ours.size();
  }
}

TEST(HDF5Agreement, OnEveryColumn) {
  std::vector<std::size_t> counts = {1, 5, 7, 9, 11, 13, 15, 17};
  // Where chunks stop being small, runs are looked for, codes change, zlib's window ends, and a
  // stored block is full.
  for (const std::size_t edge : {256U, 512U, 4096U, 8192U, 16384U, 32768U, 65535U}) {
    counts.insert(counts.end(), {edge - 1, edge, edge + 1});
  }
  for (const AwkwardColumn& column : AwkwardColumns()) {
    for (const std::size_t count : counts) {
      ExpectAgreement(column, count, 7);
    }
    for (unsigned bits = 0; bits < 8; ++bits) {
      const bool hasTwoPieces = bits == 2 || bits == 7;  // deflated, alone and with all else
      ExpectAgreement(column, hasTwoPieces ? (1U << 18) + 1 : 20001, bits);
    }
  }
}

}  // namespace

// What a join costs at least if its bytes go through zlib: reads chunks, checks and inflates them,
// undoes the shuffle, shuffles, deflates at level 1, computes the checksum and writes. No HDF5, and
// no selection: the list says how much of each chunk is kept.
//
//   Floor list output input...       where chunks.py made the list
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
constexpr std::size_t sItem = sizeof(double);
constexpr std::size_t sChecksum = 4;

struct Chunk {
  std::size_t mFile, mOffset, mStored, mBytes, mUsed;
  bool mIsFiltered;
};

struct Column {
  std::size_t mBytes, mChunkBytes;
  bool mIsFiltered;
  std::vector<Chunk> mChunks;
};

[[noreturn]] void Fail(const std::string& what) {
  std::cerr << "Floor: " << what << " failed\n";
  std::exit(1);
}

std::vector<Column> ReadList(const char* filename) {
  std::ifstream list(filename);
  std::vector<Column> columns;
  for (std::string word; list >> word;) {
    if (word == "column") {
      Column column{};
      list >> column.mBytes >> column.mChunkBytes >> column.mIsFiltered;
      columns.push_back(column);
    } else {
      Chunk chunk{};
      list >> chunk.mFile >> chunk.mOffset >> chunk.mStored >> chunk.mBytes >> chunk.mUsed >>
          chunk.mIsFiltered;
      columns.back().mChunks.push_back(chunk);
    }
  }
  if (columns.empty()) {
    Fail("reading the list");
  }
  return columns;
}

std::uint32_t Fletcher32(const unsigned char* data, std::size_t size) {
  std::uint32_t sum1 = 0;
  std::uint32_t sum2 = 0;
  for (std::size_t words = size / 2; words > 0;) {
    const std::size_t run = std::min<std::size_t>(words, 360);  // before sum2 can overflow
    words -= run;
    for (std::size_t i = 0; i < run; ++i, data += 2) {
      sum1 += static_cast<std::uint32_t>(data[0] << 8 | data[1]);
      sum2 += sum1;
    }
    sum1 = (sum1 & 0xffff) + (sum1 >> 16);
    sum2 = (sum2 & 0xffff) + (sum2 >> 16);
  }
  if (size % 2 != 0) {
    sum1 += static_cast<std::uint32_t>(*data << 8);
    sum2 += sum1;
    sum1 = (sum1 & 0xffff) + (sum1 >> 16);
    sum2 = (sum2 & 0xffff) + (sum2 >> 16);
  }
  sum1 = (sum1 & 0xffff) + (sum1 >> 16);
  sum2 = (sum2 & 0xffff) + (sum2 >> 16);
  return sum2 << 16 | sum1;
}

// Bytes i of all items one after the other, for i = 0, 1, ...
void Shuffle(const unsigned char* items, std::size_t size, unsigned char* planes) {
  const std::size_t count = size / sItem;
  for (std::size_t plane = 0; plane < sItem; ++plane) {
    for (std::size_t i = 0; i < count; ++i) {
      planes[plane * count + i] = items[i * sItem + plane];
    }
  }
}

void Unshuffle(const unsigned char* planes, std::size_t size, unsigned char* items) {
  const std::size_t count = size / sItem;
  for (std::size_t plane = 0; plane < sItem; ++plane) {
    for (std::size_t i = 0; i < count; ++i) {
      items[i * sItem + plane] = planes[plane * count + i];
    }
  }
}

class Mover {
 public:
  Mover(const char* output, char** inputs, int count)
      : mOutput(open(output, O_WRONLY | O_CREAT | O_TRUNC, 0666)) {
    for (int i = 0; i < count; ++i) {
      mInputs.push_back(open(inputs[i], O_RDONLY));
    }
    if (mOutput < 0 || std::count(mInputs.begin(), mInputs.end(), -1) > 0) {
      Fail("opening a file");
    }
  }

  void Move(const Column& column) {
    mValues.clear();
    std::size_t left = column.mBytes;
    for (const Chunk& chunk : column.mChunks) {
      const std::size_t begin = mValues.size();
      Read(chunk);
      mValues.resize(begin + chunk.mUsed);
      std::size_t done = 0;
      while (left > 0 && mValues.size() - done >= std::min(column.mChunkBytes, left)) {
        const std::size_t size = std::min(column.mChunkBytes, left);
        Write(mValues.data() + done, size, column.mIsFiltered);
        done += size;
        left -= size;
      }
      mValues.erase(mValues.begin(), mValues.begin() + static_cast<std::ptrdiff_t>(done));
    }
    if (left > 0) {
      Fail("finding all values of a column");
    }
  }

 private:
  void Read(const Chunk& chunk) {
    const std::size_t begin = mValues.size();
    mValues.resize(begin + chunk.mBytes);
    if (!chunk.mIsFiltered) {
      Pread(chunk, mValues.data() + begin);
      return;
    }
    mStored.resize(chunk.mStored);
    Pread(chunk, mStored.data());
    const std::size_t deflated = chunk.mStored - sChecksum;
    std::uint32_t checksum = 0;
    for (std::size_t i = sChecksum; i-- > 0;) {
      checksum = checksum << 8 | mStored[deflated + i];
    }
    if (Fletcher32(mStored.data(), deflated) != checksum) {
      Fail("a checksum");
    }
    mPlanes.resize(chunk.mBytes);
    uLongf size = chunk.mBytes;
    if (uncompress(mPlanes.data(), &size, mStored.data(), deflated) != Z_OK ||
        size != chunk.mBytes) {
      Fail("inflating");
    }
    Unshuffle(mPlanes.data(), size, mValues.data() + begin);
  }

  void Pread(const Chunk& chunk, unsigned char* data) const {
    for (std::size_t done = 0; done < chunk.mStored;) {
      const ssize_t n = pread(mInputs[chunk.mFile], data + done, chunk.mStored - done,
                              static_cast<off_t>(chunk.mOffset + done));
      if (n <= 0) {
        Fail("reading");
      }
      done += static_cast<std::size_t>(n);
    }
  }

  void Write(const unsigned char* values, std::size_t size, bool isFiltered) {
    if (!isFiltered) {
      WriteAll(values, size);
      return;
    }
    mPlanes.resize(size);
    Shuffle(values, size, mPlanes.data());
    uLongf deflated = compressBound(size);
    mStored.resize(deflated + sChecksum);
    if (compress2(mStored.data(), &deflated, mPlanes.data(), size, 1) != Z_OK) {
      Fail("deflating");
    }
    const std::uint32_t checksum = Fletcher32(mStored.data(), deflated);
    for (std::size_t i = 0; i < sChecksum; ++i) {
      mStored[deflated + i] = static_cast<unsigned char>(checksum >> (8 * i));
    }
    WriteAll(mStored.data(), deflated + sChecksum);
  }

  void WriteAll(const unsigned char* data, std::size_t size) const {
    for (std::size_t done = 0; done < size;) {
      const ssize_t n = write(mOutput, data + done, size - done);
      if (n <= 0) {
        Fail("writing");
      }
      done += static_cast<std::size_t>(n);
    }
  }

  int mOutput;
  std::vector<int> mInputs;
  Bytes mStored, mPlanes, mValues;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: Floor list output input...\n";
    return 2;
  }
  Mover mover(argv[2], argv + 3, argc - 3);
  for (const Column& column : ReadList(argv[1])) {
    mover.Move(column);
  }
  return 0;
}

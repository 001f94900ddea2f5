#include "Executables/Series/ReadAhead.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "Executables/Series/ReadAheadPasses.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using Pages = std::set<off_t>;

constexpr off_t sPage = 4096;

// What was read of the files in a folder. The clock of a thread that reads them stands still, but
// for a millisecond for each page that is read for the first time.
struct Cold {
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::string mFolder;
  std::map<std::string, Pages> mPages;  // of each file
  static constexpr char sForgotten[] = ", forgotten";
};

Cold& TheCold() {
  static auto& cold = *new Cold;  // Threads may be reading when the program ends.
  return cold;
}

thread_local std::int64_t tNanoseconds = 0;  // of that clock, once it stands still

ssize_t Note(int descriptor, off_t at, ssize_t got, const std::string& what = "") {
  Cold& cold = TheCold();
  const std::lock_guard lock(cold.mMutex);
  if (got <= 0 || cold.mFolder.empty()) {
    return got;
  }
  if (tNanoseconds == 0) {
    tNanoseconds = std::chrono::steady_clock::now().time_since_epoch().count();
  }
  std::error_code error;
  const auto path =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
  if (path.parent_path() == cold.mFolder) {
    for (off_t page = at / sPage; page < (at + got + sPage - 1) / sPage; ++page) {
      const bool isNew = cold.mPages[path.filename().string() + what].insert(page).second;
      tNanoseconds += isNew ? 1000000 : 0;
    }
    cold.mChanged.notify_all();
  }
  return got;
}

}  // namespace

// These take the place of the system's in this program.
extern "C" ssize_t pread(int descriptor, void* bytes, std::size_t count, off_t at) {
  return Note(descriptor, at, syscall(SYS_pread64, descriptor, bytes, count, at));
}
extern "C" ssize_t preadv(int descriptor, const iovec* parts, int count, off_t at) {
  return Note(descriptor, at, syscall(SYS_preadv, descriptor, parts, count, at, 0));
}
extern "C" int posix_fadvise(int descriptor, off_t at, off_t bytes, int advice) {
  if (advice == POSIX_FADV_DONTNEED) {
    Note(descriptor, at, bytes, Cold::sForgotten);
  }
  return 0;
}
extern "C" int clock_gettime(clockid_t clock, timespec* time) {
  const auto status = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (clock == CLOCK_MONOTONIC && tNanoseconds > 0) {
    *time = {tNanoseconds / 1000000000, tNanoseconds % 1000000000};
  }
  return status;
}

namespace {

class ReadAheadTest : public testing::Test {
 protected:
  ReadAheadTest() { Reset(mDir.Path().string()); }
  ~ReadAheadTest() override { Reset(""); }

  static void Reset(const std::string& folder) {
    const std::lock_guard lock(TheCold().mMutex);
    TheCold().mFolder = folder;
    TheCold().mPages.clear();
  }

  // Whether all of these pages are read sooner or later.
  static bool AreRead(const std::string& name, const Pages& pages) {
    Cold& cold = TheCold();
    std::unique_lock lock(cold.mMutex);
    return cold.mChanged.wait_for(lock, std::chrono::seconds(20),
                                  [&] { return std::ranges::includes(cold.mPages[name], pages); });
  }
  // How many of these pages were read so far.
  static std::ptrdiff_t CountRead(const std::string& name, const Pages& pages) {
    const std::lock_guard lock(TheCold().mMutex);
    return std::ranges::count_if(pages,
                                 [&](off_t page) { return TheCold().mPages[name].contains(page); });
  }

  static Pages Range(off_t begin, off_t end) {
    Pages pages;
    for (off_t page = begin / sPage; page < (end + sPage - 1) / sPage; ++page) {
      pages.insert(page);
    }
    return pages;
  }
  std::string Fill(const std::string& name, std::size_t pages) const {
    std::ofstream(mDir / name) << std::string(pages * sPage, 'x');
    return mDir / name;
  }

  PlainH5::TempDir mDir;
};

TEST_F(ReadAheadTest, ReadsWhatIsThereFromFrontToBack) {
  const std::string first = Fill("first", 300);
  const std::string cut = Fill("cut", 300);
  const std::string last = Fill("last", 1025);
  ASSERT_EQ(mkfifo((mDir / "fifo").c_str(), 0600), 0);
  const MyVector<std::string> paths({mDir / "none", first, mDir / "fifo", mDir.Path(), cut, last});
  const ReadAhead readAhead(paths, ReadAhead::Need::All);
  ASSERT_EQ(truncate(cut.c_str(), 0), 0);
  EXPECT_TRUE(AreRead("first", Range(0, 300 * sPage)));
  EXPECT_TRUE(AreRead("last", Range(0, 1025 * sPage)));
}

TEST_F(ReadAheadTest, ReadsNothingInVain) {
  const std::string unwanted = Fill("unwanted", 600);
  const std::string warm = Fill("warm", 600);
  const std::string last = Fill("last", 600);
  setenv("VEXA_NO_READ_AHEAD", "", 1);
  const ReadAhead none(MyVector<std::string>({unwanted}), ReadAhead::Need::All);
  unsetenv("VEXA_NO_READ_AHEAD");
  const ReadAhead little(MyVector<std::string>({unwanted}), ReadAhead::Need::Times);
  const ReadAhead few(MyVector<std::string>({Fill("few", 2)}), ReadAhead::Need::All);
  const Pages all = Range(0, 600 * sPage);
  {
    const std::lock_guard lock(TheCold().mMutex);
    TheCold().mPages["warm"] = {0, 75, 150, 225, 300, 375, 450, 525};  // where it is looked at
  }
  const ReadAhead readAhead(MyVector<std::string>({warm, last}), ReadAhead::Need::All);
  EXPECT_TRUE(AreRead("last", all));
  EXPECT_EQ(CountRead("unwanted", all) + CountRead("few", all), 0);
  EXPECT_EQ(CountRead("warm", all), 8);
}

// The pages of a new dataset of doubles, in chunks or in one piece, as the library tells them.
struct Written {
  haddr_t mAddress = HADDR_UNDEF;
  Pages mPages;
};

Written Write(hid_t parent, const std::string& name, hsize_t values, hsize_t chunk) {
  const hid_t space = H5Screate_simple(1, &values, nullptr);
  const hid_t list = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_alloc_time(list, H5D_ALLOC_TIME_EARLY);
  if (chunk > 0) {
    H5Pset_chunk(list, 1, &chunk);
  }
  const hid_t dataset =
      H5Dcreate2(parent, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT);
  Written written;
  const auto add = [&](haddr_t at, hsize_t bytes) {
    for (haddr_t page = at / sPage; page * sPage < at + bytes; ++page) {
      written.mPages.insert(static_cast<off_t>(page));
    }
  };
  for (hsize_t first = 0; chunk > 0 && first < values; first += chunk) {
    unsigned filters = 0;
    haddr_t at = 0;
    hsize_t bytes = 0;
    H5Dget_chunk_info_by_coord(dataset, &first, &filters, &at, &bytes);
    add(at, bytes);
  }
  if (chunk == 0) {
    add(H5Dget_offset(dataset), values * sizeof(double));
  }
  H5O_info_t info;
  H5Oget_info(dataset, &info);
  written.mAddress = info.addr;
  H5Dclose(dataset);
  H5Pclose(list);
  H5Sclose(space);
  return written;
}

// Two files of three chunks of ten rows for each of two columns, which lie a kilobyte apart.
TEST(ReadAheadPassesTest, HandsOutWhatAPassNeedsFromWhereTheRunIs) {
  ReadAheadPasses passes;
  for (const std::size_t file : {1, 0}) {
    std::deque<Vexa_H5::ByteRange> chunks;
    for (const std::uint32_t column : {0, 1}) {
      for (const std::uint64_t row : {0, 10, 20}) {
        const std::uint64_t at = 200000 * (row + column);
        chunks.push_back({at, at + 100000, row, column, column + 1, 1});
      }
    }
    passes.Add(file, chunks);
  }
  passes.Begin();
  using Places = std::vector<std::tuple<std::size_t, std::uint64_t, std::uint32_t>>;
  const auto next = [&passes](std::uint64_t bytes) {
    Places places;
    for (const auto& [file, chunk] : passes.Next(bytes)) {
      places.emplace_back(file, chunk.mRow, chunk.mFirstColumn);
    }
    return places;
  };
  passes.MoveTo(0, {});
  EXPECT_EQ(next(150000), (Places{{0, 0, 0}, {0, 10, 0}}));
  passes.MoveTo(0, {1, 0, 1, 15});  // in the middle of a chunk
  EXPECT_EQ(next(1000000), (Places{{1, 10, 0}, {1, 20, 0}}));
  EXPECT_FALSE(passes.IsDone()) << "the second column is still to come";
  EXPECT_FALSE(ReadAheadPasses::GoesOn({1, 0, 1, 15}, {0, 1, 2, 10, 20}));
  passes.MoveTo(1, {0, 1, 2, 10, 20});
  EXPECT_EQ(next(1000000), (Places{{0, 10, 1}, {1, 0, 1}, {1, 10, 1}, {1, 20, 1}}));
  EXPECT_TRUE(passes.IsDone());
}

TEST(ReadAheadPassesTest, ShortNeighboursAreOnePartButForTimes) {
  ReadAheadPasses passes;
  passes.Add(0, {{100, 200, 5, 0, 1}, {400, 500, 0, 2, 3}, {300, 400, 5, 1, 2}, {0, 100, 0, 0, 1}});
  passes.Begin();
  ASSERT_EQ(passes.Parts().size(), 2U);
  passes.MoveTo(0, {});
  const auto times = passes.Next(1000);
  ASSERT_EQ(times.size(), 1U);
  EXPECT_EQ(times[0].mBytes.mEnd, 200U);
  passes.MoveTo(1, {0, 2, 3, 3});
  EXPECT_EQ(passes.Next(1000).size(), 2U) << "times lie between, and rows before are in the part";
}

TEST_F(ReadAheadTest, FollowsThePlan) {
  const std::string huge = Fill("huge", 0);
  ASSERT_EQ(truncate(huge.c_str(), off_t{1} << 42), 0);
  for (const H5F_libver_t oldest : {H5F_LIBVER_EARLIEST, H5F_LIBVER_V18}) {
    const bool isMemoryShort = oldest == H5F_LIBVER_EARLIEST;
    const std::string name = "of version " + std::to_string(oldest);
    SCOPED_TRACE(name);
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_libver_bounds(access, oldest, H5F_LIBVER_LATEST);
    const hid_t file = H5Fcreate((mDir / name).c_str(), H5F_ACC_EXCL, H5P_DEFAULT, access);
    const Written unwanted = Write(file, "unwanted", 100000, 10000);
    const hid_t group = H5Gcreate2(file, "group", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    const Written first = Write(group, "first", 600000, 1000);  // so that its index has two levels
    const Written alsoUnwanted = Write(file, "also unwanted", 100000, 0);
    const Written second = Write(file, "second", 2200000, 0);
    const Written third = Write(file, "third", 100000, 1000);
    H5O_info_t info;
    H5Oget_info(group, &info);
    H5Gclose(group);
    H5Pclose(access);
    H5Fclose(file);
    Reset(mDir.Path().string());

    ReadAhead readAhead(isMemoryShort ? MyVector<std::string>({mDir / name, huge})
                                      : MyVector<std::string>({mDir / name}),
                        isMemoryShort ? ReadAhead::Need::All : ReadAhead::Need::Parts);
    ASSERT_TRUE(readAhead.NeedsPlan());
    readAhead.Follow({{{0, info.addr}}, {{0, second.mAddress}}, {{0, third.mAddress}}});
    EXPECT_TRUE(AreRead(name, first.mPages) && AreRead(name, second.mPages));
    EXPECT_LE(CountRead(name, third.mPages), 8);  // along with its header and its index
    readAhead.Reach(1);
    EXPECT_TRUE(AreRead(name, third.mPages));
    EXPECT_TRUE(AreRead(name + Cold::sForgotten, isMemoryShort ? first.mPages : Pages()));
    EXPECT_EQ(CountRead(name + Cold::sForgotten, isMemoryShort ? second.mPages : first.mPages), 0);
    EXPECT_LE(CountRead(name, unwanted.mPages) + CountRead(name, alsoUnwanted.mPages), 8);
  }
}

}  // namespace

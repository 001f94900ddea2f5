#include "Utils/Store/CachedH5File.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TestSupport/TestOutput.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

namespace {

using H5_Objects::Coef;
using H5_Objects::Dat;
using H5_Objects::Txt;
using PlainH5::ExpectReport;
using PlainH5::ReportOf;
using PlainH5::Rows;
using testing::ExitedWithCode;
using testing::HasSubstr;

class CachedH5FileTest : public testing::Test {
 protected:
  CachedH5FileTest() {
    mHolder.SetMaxCacheSize(1000);
    mHolder.SetLockPatience(std::chrono::milliseconds(50));
  }
  ~CachedH5FileTest() override { mHolder.PurgeCache(); }

  std::string Path(const std::string& name) const { return mDir / name; }
  CachedH5File Open(const std::string& name, H5AccessType access = ReadWrite) const {
    return CachedH5File(Path(name), access, {}, 0);
  }
  // Appends rows of one value to "x.dat", which stay in memory; with one byte of legend if it is
  // new.
  static void AppendTo(CachedH5File& file, int rows) {
    auto& dat = file.GetObjectForWrite<Dat>("x.dat");
    if (!dat.IsInitialized()) {
      dat.Initialize({"t"}, true, 16);
    }
    for (int i = 0; i < rows; ++i) {
      dat.Append({0.1 * i});
    }
  }
  void Append(const std::string& name, int rows) const {
    CachedH5File file = Open(name);
    AppendTo(file, rows);
  }
  // Leaves "a.h5" with a row in the file and another one in memory.
  void WriteOneAndAppendAnother() const {
    Append("a.h5", 1);
    mHolder.WriteCache();
    Append("a.h5", 1);
  }
  void MakeWithHistory(const std::string& name) const {
    const CachedH5File file(Path(name), ReadWrite, {{"h", "text"}}, 0);
  }
  PlainH5::File Plain(const std::string& name) const { return PlainH5::File::Open(Path(name)); }
  Rows ReadRows(const std::string& name) const {
    const auto file = Plain(name);
    return file.Has("/x.dat") ? file.ReadTable("x.dat") : Rows{};
  }
  std::size_t RowsOnDisk(const std::string& name) const { return ReadRows(name).size(); }

  CachedH5FileHolder& mHolder = TheCachedH5FileHolder();
  PlainH5::TempDir mDir;
};

TEST_F(CachedH5FileTest, DataOutlivesHandlesAndIsWrittenWhenPurged) {
  MakeWithHistory("a.h5");
  Append("a.h5", 3);
  // Two spellings of one file are one file.
  Append("../" + mDir.Path().filename().string() + "/a.h5", 2);
  EXPECT_EQ(RowsOnDisk("a.h5"), 0u);
  raise(SIGUSR2);
  Append("b.h5", 0);
  EXPECT_EQ(RowsOnDisk("a.h5"), 5u) << "written where an object is got";
  Append("a.h5", 1);
  mHolder.PurgeCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 6u);
  EXPECT_EQ(Plain("a.h5").ReadStrings("VersionHist.ver"), (PlainH5::Strings{"h", "text"}));
  EXPECT_FALSE(Plain("b.h5").Has("/VersionHist.ver"));
}

TEST_F(CachedH5FileTest, TheLargestFileIsWrittenAboveTheLimit) {
  // A legend takes 1 byte and a row 8: b holds most, and all together hold exactly the limit.
  mHolder.ClearWriteLog();
  mHolder.SetMaxCacheSize(3 + 8 * 110);
  Append("a.h5", 40);
  Append("b.h5", 60);
  Append("c.h5", 10);
  EXPECT_EQ(RowsOnDisk("b.h5"), 0u) << "the limit itself is allowed";
  Append("a.h5", 1);
  EXPECT_EQ(mHolder.WriteLog(), (std::vector<MyVector<unsigned long>>{{1, 1, 60, 481, 410}}));
  EXPECT_EQ(RowsOnDisk("b.h5"), 60u);

  // Of equal files the first by path is written, and above twice the limit a warning comes first.
  Append("c.h5", 31);
  mHolder.SetMaxCacheSize(250);
  testing::internal::CaptureStderr();
  mHolder.CheckForEmergencyWriteCache();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("CachedeH5FileHolder: GlobalCacheSize exceeds **two** times\n"
                        "the specified limit 0MB.  Cached files:\n"));
  EXPECT_EQ(RowsOnDisk("a.h5"), 41u);
  EXPECT_EQ(RowsOnDisk("c.h5"), 0u);
}

TEST_F(CachedH5FileTest, AKillAtAnyMomentLeavesWhatWasWritten) {
  // The file is of another version than the store's own, which has a mark of its writer.
  const Vexa_H5::PropertyListHandle latest(H5Pcreate(H5P_FILE_ACCESS));
  H5Pset_libver_bounds(latest, H5F_LIBVER_V110, H5F_LIBVER_V110);
  H5Fclose(H5Fcreate(Path("v110.h5").c_str(), H5F_ACC_EXCL, H5P_DEFAULT, latest));
  for (const char* const name : {"a.h5", "v110.h5"}) {
    SCOPED_TRACE(name);
    CachedH5File file = Open(name);
    // Returns the rows that a process leaves which is killed now.
    const auto left = [&] {
      std::filesystem::copy_file(Path(name), Path("left.h5"),
                                 std::filesystem::copy_options::overwrite_existing);
      return ReadRows("left.h5");
    };
    EXPECT_EQ(left(), Rows{});
    AppendTo(file, 1);
    mHolder.WriteCache();
    // Each time the chunk takes another place, and its old one goes to the next.
    Rows rows = {{0}};
    auto& dat = file.GetObjectForWrite<Dat>("x.dat");
    for (int i = 1; i < 12; ++i) {
      rows.push_back({0.1 * i});
      dat.Append({0.1 * i});
      file.WriteImmediately("x.dat", [&] { dat.WriteCache(); });
      EXPECT_EQ(left(), (Rows{{0}}));
    }
    rows.push_back({3});
    mHolder.WriteCache();
    dat.Append({3});
    mHolder.WriteCache();
    EXPECT_EQ(left(), rows);
  }
}

TEST_F(CachedH5FileTest, AFlushThatFailsIsUndoneAndTheFileGoesOn) {
  mHolder.SetMaxCacheSize(1000000);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  getrlimit(RLIMIT_FSIZE, &unlimited);
  const auto failToWrite = [&] {
    const Rows before = ReadRows("a.h5");
    const rlimit full{std::filesystem::file_size(Path("a.h5")), unlimited.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    ReportOf([this] { mHolder.WriteCache(); });
    setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(ReadRows("a.h5"), before);
  };
  MakeWithHistory("a.h5");
  Append("a.h5", 2000);
  failToWrite();  // for the first time
  Append("a.h5", 2);
  mHolder.WriteCache();
  Append("a.h5", 2000);
  failToWrite();  // to close the file
  Append("a.h5", 1);
  {
    CachedH5File file = Open("a.h5");
    auto& dat = file.GetObjectForWrite<Dat>("G.dir/y.dat");
    dat.Initialize({"t"}, false, 512);
    dat.Append({1});
    for (int i = 0; i < 100; ++i) {
      file.GetObjectForWrite<Dat>(std::to_string(i) + ".dat").Initialize({"t"}, false, 1);
    }
    failToWrite();  // to flush it, and so much metadata that the library writes them together
    EXPECT_EQ(dat.GetExtents()[0], 0u);
    EXPECT_EQ(file.GetObjectForWrite<Dat>("x.dat").GetExtents()[0], 2u);
    dat.Append({2});
  }
  Append("a.h5", 1);
  mHolder.WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
  EXPECT_EQ(Plain("a.h5").ReadTable("G.dir/y.dat"), (Rows{{2}}));
  EXPECT_EQ(Plain("a.h5").ReadStrings("VersionHist.ver"), (PlainH5::Strings{"h", "text"}));
}

TEST_F(CachedH5FileTest, AFileThatWasRemovedIsMadeAnew) {
  WriteOneAndAppendAnother();
  std::filesystem::remove(Path("a.h5"));
  MakeWithHistory("a.h5");
  std::filesystem::remove(Path("a.h5"));
  mHolder.WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 1u);
  EXPECT_TRUE(Plain("a.h5").Has("/VersionHist.ver"));
}

TEST_F(CachedH5FileTest, ReadingWhatIsStillHeldWritesItFirst) {
  Append("a.h5", 3);
  testing::internal::CaptureStderr();
  CachedH5File file = Open("a.h5", ReadOnly);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "CachedH5File(" + Path("a.h5") +
                ", ReadOnly):\nWrite non-empty cache now,  before opening ReadOnly.\n");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(file.GetObjectForRead<Dat>("x.dat").RetrieveData().size(), 3u);
    file.CloseObjects();
  }
}

// Holds a file open as another program does that reads it (LOCK_SH) or writes to it (LOCK_EX).
struct OtherProgram {
  OtherProgram(const std::string& path, int lock)
      : mDescriptor(open(path.c_str(), O_RDONLY)),
        mIsLocked(flock(mDescriptor, lock | LOCK_NB) == 0) {}
  ~OtherProgram() { close(mDescriptor); }

  const int mDescriptor;
  const bool mIsLocked;
};

TEST_F(CachedH5FileTest, WhatAReaderIsInTheWayOfWaits) {
  WriteOneAndAppendAnother();
  Append("a.h5", 59);
  Append("b.h5", 20);
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    mHolder.SetMaxCacheSize(500);
    testing::internal::CaptureStderr();
    { const CachedH5File file = Open("b.h5"); }
    mHolder.WriteCache();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "File '" + Path("a.h5") +
                  "' is open in another program; 480 bytes wait in memory to be written\n");
    EXPECT_EQ(RowsOnDisk("b.h5"), 20u);
    EXPECT_EQ(Open("a.h5", ReadOnly).GetObjectForRead<Dat>("x.dat").GetExtents()[0], 61u);
  }
  mHolder.WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 61u);

  // Above twice the limit a file is written at once, if only readers have it open.
  Append("a.h5", 60);
  const OtherProgram reader(Path("a.h5"), LOCK_SH);
  mHolder.SetMaxCacheSize(239);
  mHolder.CheckForEmergencyWriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 121u);
}

TEST_F(CachedH5FileTest, AnOpeningAndTheEndWaitForAnotherProgram) {
  WriteOneAndAppendAnother();
  const std::string failed = "H5Fopen(" + Path("a.h5") + ", ...) failed";
  {
    const OtherProgram writer(Path("a.h5"), LOCK_EX);
    ExpectReport([this] { mHolder.PurgeCache(); }, "file_id>=0", failed);
  }
  Append("a.h5", 1);
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    mHolder.PurgeCache();
    EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
  }
  {
    const OtherProgram writer(Path("a.h5"), LOCK_EX);
    ExpectReport([this] { Append("a.h5", 1); }, "file_id>=0", failed);
    const auto end = [this]() noexcept {
      Append("b.h5", 1);
      mHolder.SetLockPatience(std::chrono::minutes(2));
      CachedOutput::FlushAndEndOnSIGTERM();
      raise(SIGTERM);
      Append("a.h5", 1);
    };
    EXPECT_EXIT(end(), ExitedWithCode(255), "another program has the file locked");
    EXPECT_EQ(RowsOnDisk("b.h5"), 1u);
  }
  // The abort of a parallel job does not wait here, since the job leaves its processes no time.
  const OtherProgram reader(Path("a.h5"), LOCK_SH);
  const FakeRuntime runtime(1);
  MyAbort_ChangeSleepSeconds(0);
  Append("a.h5", 1);
  EXPECT_EXIT(MyAbort(), ExitedWithCode(3), "is opened for writing while others read it");
  EXPECT_EQ(RowsOnDisk("a.h5"), 4u);
  ReportOf([this] { mHolder.PurgeCache(); });  // over the row of the other process
}

TEST_F(CachedH5FileTest, RowsOfAnotherProgramAreNoticedAfterAWait) {
  WriteOneAndAppendAnother();
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    mHolder.WriteCache();
  }
  {
    const Vexa_H5::Handle<H5Fclose> file_id(H5Fopen(Path("a.h5").c_str(), H5F_ACC_RDWR, 0));
    const hsize_t dims[] = {5, 1};
    ASSERT_GE(H5Dset_extent(Vexa_H5::DatasetHandle(H5Dopen2(file_id, "x.dat", 0)), dims), 0);
  }
  ExpectReport([this] { mHolder.WriteCache(); }, "found==steps",
               "Another program changed the file while it was waited for: there were 1 ");
}

TEST_F(CachedH5FileTest, AHandleThatAnExceptionPassesLetsItsFileGo) {
  const auto letsGo = [&](const std::function<void(CachedH5File&)>& action) {
    ReportOf([&] {
      CachedH5File file = Open("a.h5");
      action(file);
      file.GetObjectForRead<Dat>("no.dat");
    });
    return OtherProgram(Path("a.h5"), LOCK_EX).mIsLocked;
  };
  Append("a.h5", 2);
  EXPECT_TRUE(letsGo([](CachedH5File& file) { file.GetObjectForRead<Dat>("x.dat"); }));
  EXPECT_TRUE(letsGo([](CachedH5File& file) {
    file.GetObjectForWrite<Dat>("y.dat").Initialize({"time"}, false, 4);
    file.WriteImmediately("y.dat", [] { REQUIRE(false, "interrupts a write"); });
  }));
  Append("a.h5", 1);
  mHolder.WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
  EXPECT_FALSE(letsGo([](CachedH5File& file) { file.SetUnfinished(true); })) << "left unclosed";
}

TEST_F(CachedH5FileTest, NothingIsWrittenAtAnAbortToAFileThatIsOfUseOnlyWhenWhole) {
  const auto file = CachedH5File::CreateUnfinished(Path("new.h5"));
  AppendTo(*file, 1);
  const std::string before = PlainH5::Bytes(Path("new.h5"));
  EXPECT_EXIT(MyAbort(), ExitedWithCode(255), "^$");
  EXPECT_TRUE(PlainH5::Bytes(Path("new.h5")) == before);
  file->SetUnfinished(false);
  mHolder.PurgeCache();
}

TEST_F(CachedH5FileTest, WhatIsOnDiskIsKnownWhenItIsAskedFor) {
  const std::string older = "/G.dir/DimensionfullInertialSpin.dat";
  const std::string right = "/G.dir/DimensionfulInertialSpin.dat";
  {
    auto plain = PlainH5::File::Create(Path("a.h5"));
    plain.Table(older, {{0, 7}});
    plain.Table("c.coef/index.dat", {{0, 2}});
    plain.Table("c.coef/coefs.dat", {{1}, {2}, {3}});  // as a kill may leave it
    plain.Version("V.ver", 2);
  }
  CachedH5File file(Path("a.h5"), ReadWrite, {}, 0, /*keepOpen=*/false);
  file.GetObjectForWrite<Dat>("new.dat");
  EXPECT_THAT(testing::PrintToString(file), HasSubstr("a.h5  id=-1\n")) << "opens nothing";
  EXPECT_EQ(file.Path(right), older);
  EXPECT_EQ(file.GetNames("*.dat", true), (MyVector<std::string>{older, "/new.dat"}));
  EXPECT_THAT(ReportOf([&] { file.GetObjectForWrite<Dat>(right).Append({1}); }),
              HasSubstr("data being appended inconsistent with Extents"));
  EXPECT_EQ(file.GetObjectForRead<Coef>("c.coef").Values().GetExtents()[0], 3u)
      << "nothing is cut back to be read";
  testing::internal::CaptureStderr();
  file.GetObjectForWrite<Coef>("c.coef").Append(1, {4});
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Object '/c.coef' of file '" + Path("a.h5")));
  EXPECT_EQ(file.GetObjectForWrite<H5_Objects::Version>("V.ver").GetCurrentVersion(), 2u);
  mHolder.WriteCache();
  file.CloseFile();
  EXPECT_EQ(Plain("a.h5").ReadTable("c.coef/coefs.dat"), (Rows{{1}, {2}, {4}}));
}

TEST_F(CachedH5FileTest, AnObjectThatCannotBeWrittenCostsNoOther) {
  {
    auto plain = PlainH5::File::Create(Path("a.h5"));
    plain.Table("c.coef/index.dat", {{0, 1}});
    plain.Table("c.coef/coefs.dat", {{5}}, {.mChunk = {}});  // which cannot grow
    plain.Characters("old.txt", "x");
  }
  Append("a.h5", 1);
  Append("b.h5", 1);
  Open("a.h5").GetObjectForWrite<Coef>("c.coef").Append(1, {6});
  Open("a.h5").GetObjectForWrite<Txt>("old.txt") << "more";
  testing::internal::CaptureStderr();
  ExpectReport([this] { mHolder.WriteCache(); }, "err>=0",
               "H5Dset_extent failed\nObject '/c.coef' of");
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      HasSubstr("1 object(s) of file '" + Path("a.h5") + "' could not be written: '/old.txt'\n"));
  EXPECT_EQ(RowsOnDisk("a.h5"), 1u);
  EXPECT_EQ(RowsOnDisk("b.h5"), 1u);
  EXPECT_EQ(Plain("a.h5").Dims("c.coef/index.dat")[0], 1u);
  mHolder.WriteCache();  // What failed is dropped.
}

}  // namespace

#include "Utils/Store/CachedH5File.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TestOutput.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

namespace {

using H5_Objects::Coef;
using H5_Objects::Dat;
using H5_Objects::Tdm;
using H5_Objects::Txt;
using H5_Objects::Version;
using PlainH5::IsReport;
using PlainH5::ReportOf;
using testing::HasSubstr;

class CachedH5FileTest : public testing::Test {
 protected:
  CachedH5FileTest() {
    TheCachedH5FileHolder().SetMaxCacheSize(1000);
    TheCachedH5FileHolder().SetLockPatience(std::chrono::milliseconds(50));
  }
  ~CachedH5FileTest() override { TheCachedH5FileHolder().PurgeCache(); }

  std::string Path(const std::string& name) const { return mDir / name; }

  // Appends rows of one value to "x.dat" of a file, which stays in memory. The first call on a file
  // holds one byte more, for the legend.
  void Append(const std::string& name, int rows) {
    CachedH5File file(Path(name), ReadWrite, {}, 0);
    auto& dat = file.GetObjectForWrite<Dat>("x.dat");
    if (!dat.IsInitialized()) {
      dat.Initialize({"t"}, true, 16);
    }
    for (int i = 0; i < rows; ++i) {
      dat.Append({static_cast<double>(i)});
    }
  }
  std::uint64_t RowsOnDisk(const std::string& name) const {
    const auto file = PlainH5::File::Open(Path(name));
    return file.Has("/x.dat") ? file.Dims("x.dat")[0] : 0;
  }

  PlainH5::TempDir mDir;
};

TEST_F(CachedH5FileTest, DataOutlivesHandlesAndIsWrittenWhenPurged) {
  Append("a.h5", 3);
  EXPECT_EQ(RowsOnDisk("a.h5"), 0u);
  Append("a.h5", 2);
  {
    // Two spellings of one file are one file.
    CachedH5File file(mDir / "../" + mDir.Path().filename().string() + "/a.h5", ReadWrite, {}, 0);
    EXPECT_EQ(file.GetObjectForWrite<Dat>("/x.dat").NTimeStepsCached(), 5u);
  }
  { const CachedH5File with(Path("with.h5"), ReadWrite, {{"h", "text"}}, 0); }
  TheCachedH5FileHolder().PurgeCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 5u);
  EXPECT_FALSE(PlainH5::File::Open(Path("a.h5")).Has("/VersionHist.ver"));
  EXPECT_EQ(PlainH5::File::Open(Path("with.h5")).ReadStrings("VersionHist.ver"),
            (std::vector<std::string>{"h", "text"}));
}

// After what the main thread keeps has gone; a chunk was encoded before.
TEST_F(CachedH5FileTest, WhatWaitsIsWrittenWhenTheProcessEnds) {
  const auto run = [this] {
    Append("a.h5", 32);
    TheCachedH5FileHolder().PurgeCache();
    Append("a.h5", 32);
    std::exit(0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(RowsOnDisk("a.h5"), 64u);
}

TEST_F(CachedH5FileTest, ASignalIsServedWhereAnObjectIsGotForWriting) {
  Append("a.h5", 3);
  CachedH5File file(Path("b.h5"), ReadWrite, {}, 0);
  raise(SIGUSR2);
  file.GetObjectForWrite<Dat>("x.dat");
  EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
}

TEST_F(CachedH5FileTest, TheLargestFileIsWrittenAboveTheLimit) {
  // 1 byte of legend and 8 a row: b holds most, and a and b together exactly the limit.
  TheCachedH5FileHolder().ClearWriteLog();
  TheCachedH5FileHolder().SetMaxCacheSize(2 + 8 * 100);
  Append("a.h5", 40);
  Append("b.h5", 60);
  EXPECT_EQ(RowsOnDisk("b.h5"), 0u) << "the limit itself is allowed";
  Append("a.h5", 1);
  EXPECT_EQ(RowsOnDisk("a.h5"), 0u);
  EXPECT_EQ(RowsOnDisk("b.h5"), 60u);
  const auto& log = TheCachedH5FileHolder().WriteLog();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0], (MyVector<unsigned long>{1, 1, 60, 481, 329}));

  // Of equal files the first by path, and with a warning above twice the limit.
  Append("c.h5", 41);
  TheCachedH5FileHolder().SetMaxCacheSize(250);
  testing::internal::CaptureStderr();
  TheCachedH5FileHolder().CheckForEmergencyWriteCache();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("CachedeH5FileHolder: GlobalCacheSize exceeds **two** times\n"
                        "the specified limit 0MB.  Cached files:\n"));
  EXPECT_EQ(RowsOnDisk("a.h5"), 41u);
  EXPECT_EQ(RowsOnDisk("c.h5"), 0u);
}

TEST_F(CachedH5FileTest, AKillAtAnyMomentLeavesWhatWasWritten) {
  CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
  // What a process leaves that is killed now.
  const auto left = [&] {
    std::filesystem::copy_file(Path("a.h5"), Path("b.h5"),
                               std::filesystem::copy_options::overwrite_existing);
    const auto copy = PlainH5::File::Open(Path("b.h5"));
    return copy.Has("/x.dat") ? copy.ReadTable("x.dat") : PlainH5::Rows{};
  };
  EXPECT_EQ(left(), PlainH5::Rows{});
  auto& dat = file.GetObjectForWrite<Dat>("x.dat");
  dat.Initialize({"t"}, true, 16);
  dat.Append({1});
  TheCachedH5FileHolder().WriteCache();
  EXPECT_EQ(left(), (PlainH5::Rows{{1}}));
  // Each time the chunk takes another place, and its old one goes to the next.
  PlainH5::Rows rows = {{1}};
  for (int i = 1; i < 12; ++i) {
    rows.push_back({0.1 * i});
    dat.Append({0.1 * i});
    file.WriteImmediately("x.dat", [&] { dat.WriteCache(); });
  }
  EXPECT_EQ(left(), (PlainH5::Rows{{1}}));
  rows.push_back({3});
  dat.Append({3});
  TheCachedH5FileHolder().WriteCache();
  EXPECT_EQ(left(), rows);
}

TEST_F(CachedH5FileTest, AFileOfAnotherVersionIsLeftWithoutAMarkOfItsWriter) {
  const Vexa_H5::PropertyListHandle latest(H5Pcreate(H5P_FILE_ACCESS));
  H5Pset_libver_bounds(latest, H5F_LIBVER_V110, H5F_LIBVER_V110);
  H5Fclose(H5Fcreate(Path("a.h5").c_str(), H5F_ACC_EXCL, H5P_DEFAULT, latest));
  CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
  auto& dat = file.GetObjectForWrite<Dat>("x.dat");
  dat.Initialize({"t"}, true, 16);
  dat.Append({1});
  TheCachedH5FileHolder().WriteCache();
  std::filesystem::copy_file(Path("a.h5"), Path("b.h5"));
  EXPECT_EQ(RowsOnDisk("b.h5"), 1u);
}

TEST_F(CachedH5FileTest, AFlushThatFailsIsUndoneAndTheFileGoesOn) {
  TheCachedH5FileHolder().SetMaxCacheSize(1000000);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  getrlimit(RLIMIT_FSIZE, &unlimited);
  const auto failToWrite = [&] {
    const rlimit full{std::filesystem::file_size(Path("a.h5")), unlimited.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_NE(ReportOf([] { TheCachedH5FileHolder().WriteCache(); }), "");
    setrlimit(RLIMIT_FSIZE, &unlimited);
  };
  { const CachedH5File file(Path("a.h5"), ReadWrite, {{"h", "text"}}, 0); }
  Append("a.h5", 2000);
  failToWrite();  // for the first time
  Append("a.h5", 2);
  TheCachedH5FileHolder().WriteCache();
  Append("a.h5", 2000);
  failToWrite();  // to close the file
  Append("a.h5", 1);
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
    auto& dat = file.GetObjectForWrite<Dat>("G.dir/y.dat");
    dat.Initialize({"t"}, false, 512);
    dat.Append({1});
    failToWrite();  // to flush it
    EXPECT_EQ(dat.GetExtents()[0], 0u);
    EXPECT_EQ(file.GetObjectForWrite<Dat>("x.dat").GetExtents()[0], 2u);
    dat.Append({2});
  }
  Append("a.h5", 1);
  TheCachedH5FileHolder().WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
  const auto plain = PlainH5::File::Open(Path("a.h5"));
  EXPECT_EQ(plain.ReadTable("G.dir/y.dat"), (PlainH5::Rows{{2}}));
  EXPECT_EQ(plain.ReadStrings("VersionHist.ver"), (std::vector<std::string>{"h", "text"}));
}

TEST_F(CachedH5FileTest, AFileThatWasRemovedIsMadeAnew) {
  PlainH5::File::Create(Path("a.h5")).Table("old.dat", {{0}});
  const auto go = [this] {
    { const CachedH5File file(Path("a.h5"), ReadWrite, {{"h", "text"}}, 0); }
    Append("a.h5", 1);
  };
  go();
  TheCachedH5FileHolder().WriteCache();
  go();
  std::filesystem::remove(Path("a.h5"));
  go();
  EXPECT_FALSE(CachedH5File(Path("a.h5"), ReadWrite, {}, 0).Exists("old.dat"));
  std::filesystem::remove(Path("a.h5"));
  TheCachedH5FileHolder().WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 2u);
  EXPECT_TRUE(PlainH5::File::Open(Path("a.h5")).Has("/VersionHist.ver"));
}

TEST_F(CachedH5FileTest, ReadingWhatIsStillHeldWritesItFirst) {
  Append("a.h5", 3);
  testing::internal::CaptureStderr();
  CachedH5File file(Path("a.h5"), ReadOnly, {}, 0);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("CachedH5File(" + Path("a.h5") +
                        ", ReadOnly):\nWrite non-empty cache now,  before opening ReadOnly.\n"));
  EXPECT_EQ(file.GetObjectForRead<Dat>("x.dat").RetrieveData().size(), 3u);
  file.CloseObjects();
  EXPECT_EQ(file.GetObjectForRead<Dat>("x.dat").RetrieveData().size(), 3u);
  file.CloseFile();
  EXPECT_EQ(file.GetObjectForRead<Dat>("x.dat").RetrieveData().size(), 3u);
  EXPECT_TRUE(IsReport(ReportOf([&] { file.GetObjectForWrite<Dat>("x.dat"); }), "mAtype==ReadWrite",
                       "Called GetObjectForWrite on an CachedH5File that is ReadOnly"));
}

// Has a file open like another program that reads it (LOCK_SH) or writes to it (LOCK_EX).
struct OtherProgram {
  OtherProgram(const std::string& path, int lock)
      : mDescriptor(open(path.c_str(), O_RDONLY)),
        mIsLocked(flock(mDescriptor, lock | LOCK_NB) == 0) {}
  ~OtherProgram() { close(mDescriptor); }

  const int mDescriptor;
  const bool mIsLocked;
};

TEST_F(CachedH5FileTest, WhatAReaderIsInTheWayOfWaits) {
  auto& holder = TheCachedH5FileHolder();
  Append("a.h5", 1);
  Append("b.h5", 1);
  holder.WriteCache();
  holder.ClearWriteLog();
  Append("a.h5", 60);
  Append("b.h5", 20);
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    holder.SetMaxCacheSize(500);
    testing::internal::CaptureStderr();
    { const CachedH5File file(Path("b.h5"), ReadWrite, {}, 0); }
    holder.WriteCache();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "File '" + Path("a.h5") +
                  "' is open in another program; 480 bytes wait in memory to be written\n");
    EXPECT_EQ(RowsOnDisk("b.h5"), 21u);
    EXPECT_EQ(holder.WriteLog(), (std::vector<MyVector<unsigned long>>{{1, 1, 20, 160, 480}}));
    CachedH5File file(Path("a.h5"), ReadOnly, {}, 0);
    EXPECT_EQ(file.GetObjectForRead<Dat>("x.dat").GetExtents()[0], 61u);
  }
  {
    { CachedH5File(Path("a.h5"), ReadWrite, {}, 0).GetObjectForWrite<Txt>("l.txt") << "text"; }
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    const auto read = [&](H5AccessType access) {
      CachedH5File(Path("a.h5"), access, {}, 0).GetObjectForRead<Txt>("l.txt");
    };
    EXPECT_TRUE(IsReport(ReportOf([&] { read(ReadOnly); }), "mAtype==ReadWrite",
                         "'l.txt' is not in file " + Path("a.h5") + " yet; 4 bytes of it wait"));
    EXPECT_EQ(ReportOf([&] { read(ReadWrite); }), "");
  }
  holder.WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 61u);

  // Above twice the limit at once, and for readers only.
  Append("a.h5", 60);
  const OtherProgram reader(Path("a.h5"), LOCK_SH);
  holder.SetMaxCacheSize(239);
  holder.CheckForEmergencyWriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 121u);
}

TEST_F(CachedH5FileTest, AnOpeningAndTheEndWaitForAnotherProgram) {
  auto& holder = TheCachedH5FileHolder();
  Append("a.h5", 1);
  holder.WriteCache();
  Append("a.h5", 1);
  const std::string failed = "H5Fopen(" + Path("a.h5") + ", ...) failed";
  {
    const OtherProgram writer(Path("a.h5"), LOCK_EX);
    EXPECT_TRUE(IsReport(ReportOf([&] { holder.PurgeCache(); }), "file_id>=0", failed));
  }
  Append("a.h5", 1);
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    holder.PurgeCache();
    EXPECT_EQ(RowsOnDisk("a.h5"), 3u);
    { const CachedH5File file(Path("a.h5"), ReadWrite, {}, 0); }
    holder.PurgeCache();
  }
  {
    const OtherProgram writer(Path("a.h5"), LOCK_EX);
    EXPECT_TRUE(IsReport(ReportOf([&] { Append("a.h5", 1); }), "file_id>=0", failed));
  }
  std::ofstream(Path("empty.h5"));
  {
    const OtherProgram writer(Path("empty.h5"), LOCK_EX);
    EXPECT_TRUE(IsReport(ReportOf([&] { Append("empty.h5", 1); }), "file_id>=0",
                         "H5Fcreate(" + Path("empty.h5") + ", ...) failed: another program has"));
  }
  // An abort of a parallel job, which leaves its processes no time here.
  const OtherProgram reader(Path("a.h5"), LOCK_SH);
  const FakeRuntime runtime(1);
  MyAbort_ChangeSleepSeconds(0);
  Append("a.h5", 1);
  EXPECT_EXIT(MyAbort(), testing::ExitedWithCode(3), "is opened for writing while others read it");
  EXPECT_EQ(RowsOnDisk("a.h5"), 4u);
  EXPECT_NE(ReportOf([&] { holder.PurgeCache(); }), "") << "the row that the other process wrote";
}

TEST_F(CachedH5FileTest, WhatIsLockedWhenSIGTERMComesIsAFailure) {
  { const auto other = PlainH5::File::Create(Path("a.h5")); }
  const auto end = [this](const char* name) noexcept {
    Append("b.h5", 1);
    CachedOutput::FlushAndEndOnSIGTERM();
    raise(SIGTERM);
    const CachedH5File file(Path(name), ReadWrite, {}, 0);
  };
  {
    const OtherProgram writer(Path("a.h5"), LOCK_EX);
    TheCachedH5FileHolder().SetLockPatience(std::chrono::hours(1));
    EXPECT_EXIT(end("a.h5"), testing::ExitedWithCode(255), "another program has the file locked");
    TheCachedH5FileHolder().SetLockPatience(std::chrono::milliseconds(50));
  }
  Append("a.h5", 1);
  const OtherProgram writer(Path("a.h5"), LOCK_EX);
  EXPECT_EXIT(end("b.h5"), testing::ExitedWithCode(255), "a.h5' lacks 9 bytes");
  EXPECT_EQ(RowsOnDisk("b.h5"), 2u);
}

TEST_F(CachedH5FileTest, RowsOfAnotherProgramAreNoticedAfterAWait) {
  Append("a.h5", 1);
  TheCachedH5FileHolder().WriteCache();
  Append("a.h5", 1);
  {
    const OtherProgram reader(Path("a.h5"), LOCK_SH);
    TheCachedH5FileHolder().WriteCache();
  }
  {
    const Vexa_H5::Handle<H5Fclose> file_id(
        H5Fopen(Path("a.h5").c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
    const Vexa_H5::DatasetHandle dataset_id(H5Dopen2(file_id, "x.dat", H5P_DEFAULT));
    const hsize_t dims[] = {5, 1};
    ASSERT_GE(H5Dset_extent(dataset_id, dims), 0);
  }
  EXPECT_TRUE(IsReport(ReportOf([] { TheCachedH5FileHolder().WriteCache(); }), "found==steps",
                       "Another program changed the file while it was waited for: there were 1 "));
}

TEST_F(CachedH5FileTest, AHandleThatAnExceptionPassesLetsItsFileGo) {
  const auto fail = [&](const char* name, const std::function<void(CachedH5File&)>& action) {
    EXPECT_NE(ReportOf([&] {
                CachedH5File file(Path(name), ReadWrite, {}, 0);
                action(file);
              }),
              "");
  };
  Append("a.h5", 2);
  fail("a.h5", [](CachedH5File& file) {
    file.GetObjectForRead<Dat>("x.dat");
    file.GetObjectForRead<Dat>("no.dat");
  });
  fail("a.h5", [](CachedH5File& file) {
    file.GetObjectForWrite<Dat>("y.dat").Initialize({"time"}, false, 4);
    file.WriteImmediately("y.dat", [] { REQUIRE(false, "interrupts a write"); });
  });
  EXPECT_TRUE(OtherProgram(Path("a.h5"), LOCK_EX).mIsLocked);
  Append("a.h5", 1);
  TheCachedH5FileHolder().WriteCache();
  EXPECT_EQ(RowsOnDisk("a.h5"), 3u);

  PlainH5::File::Create(Path("odd.h5")).Table("x.odd", {{1}});
  fail("odd.h5", [](CachedH5File&) {});
  EXPECT_TRUE(OtherProgram(Path("odd.h5"), LOCK_EX).mIsLocked);

  fail("new.h5", [](CachedH5File& file) {
    file.SetUnfinished(true);
    file.GetObjectForRead<Dat>("no.dat");
  });
  EXPECT_FALSE(OtherProgram(Path("new.h5"), LOCK_SH).mIsLocked) << "left as it is, unclosed";
}

TEST_F(CachedH5FileTest, AFileThatIsOfUseOnlyWhenWholeIsCreated) {
  std::ofstream(Path("empty.h5"));
  std::filesystem::create_symlink("nowhere.h5", Path("link.h5"));
  for (const char* name : {"empty.h5", "link.h5"}) {
    EXPECT_TRUE(IsReport(ReportOf([&] { CachedH5File::CreateUnfinished(Path(name)); }),
                         "file_id>=0", "H5Fcreate(" + Path(name) + ", ...) failed: File exists"));
  }
  EXPECT_TRUE(std::filesystem::is_empty(Path("empty.h5")));
  EXPECT_FALSE(std::filesystem::exists(Path("nowhere.h5")));
  const auto file = CachedH5File::CreateUnfinished(Path("new.h5"));
  const FileDescriptor held = file->Hold();
  file->SetUnfinished(false);
  TheCachedH5FileHolder().PurgeCache();
  EXPECT_EQ(held.Bytes(), Vexa_H5::SizeWhenClosed(held));
  std::filesystem::resize_file(Path("new.h5"), 100);
  EXPECT_NE(held.Bytes(), Vexa_H5::SizeWhenClosed(held));
}

TEST_F(CachedH5FileTest, AFileThatWasReadCanBeWrittenTo) {
  Append("a.h5", 1);
  TheCachedH5FileHolder().PurgeCache();
  { CachedH5File(Path("a.h5"), ReadOnly, {}, 0).GetObjectForRead<Dat>("x.dat"); }
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
    file.GetObjectForRead<Dat>("x.dat");
    file.GetObjectForWrite<Dat>("x.dat").Append({1});
    for (int i = 0; i <= 50000; ++i) {
      file.GetObjectForWrite<Dat>(std::to_string(i) + ".dat");
    }
    TheCachedH5FileHolder().WriteCache();
  }
  EXPECT_EQ(RowsOnDisk("a.h5"), 2u);
}

TEST_F(CachedH5FileTest, WhatIsOnDiskIsKnownWhenItIsAskedFor) {
  const auto structure = FindTensorIndexTable(3, "1");
  {
    auto plain = PlainH5::File::Create(Path("a.h5"));
    plain.Table("x.dat", {{0, 7}}, {.mLegend = {"t", "x"}});
    plain.Table("c.coef/index.dat", {{0, 2}});
    plain.Table("c.coef/coefs.dat", {{1}, {2}, {3}}, {.mLegend = {"c"}});  // as a kill may leave it
    plain.Table("t.tdm/index.dat", {{0, 6, 2}});
    plain.Table("t.tdm/data.dat", PlainH5::Rows(6, {1.0}));
    plain.StringAttribute("t.tdm", "TensorSpec", {"TensorDim=3; TensorSymm=1; DataMeshDim=1;"});
    plain.Strings("l.txt", {"text"}, {1});
    plain.Version("V.ver", 2);
  }
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0, /*keepOpen=*/false);
    file.GetObjectForWrite<Dat>("new.dat");
    EXPECT_THAT(testing::PrintToString(file), HasSubstr("a.h5  id=-1\n")) << "opens nothing";
    auto& dat = file.GetObjectForWrite<Dat>("x.dat");
    EXPECT_EQ(dat.GetExtents(), (MyVector<unsigned long long>{1, 2}));
    EXPECT_TRUE(IsReport(ReportOf([&] { dat.Append({1}); }), "",
                         "data being appended inconsistent with Extents"));
    EXPECT_EQ(file.GetObjectForRead<Coef>("c.coef").Values().GetExtents()[0], 3u)
        << "nothing is cut back to be read";
    testing::internal::CaptureStderr();
    auto& coef = file.GetObjectForWrite<Coef>("c.coef");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Object '/c.coef' of file '" + Path("a.h5")));
    coef.Append(1, {4});
    EXPECT_EQ(coef.GetDataDescription(), "c");
    file.GetObjectForWrite<Tdm>("t.tdm").Append(1, {structure, Mesh({1})});
    EXPECT_EQ(file.GetObjectForWrite<Txt>("l.txt").GetSize(), 1u);
    EXPECT_EQ(file.GetObjectForWrite<Version>("V.ver").GetCurrentVersion(), 2u);
  }
  TheCachedH5FileHolder().PurgeCache();
  const auto file = PlainH5::File::Open(Path("a.h5"));
  EXPECT_EQ(file.ReadTable("c.coef/coefs.dat"), (PlainH5::Rows{{1}, {2}, {4}}));
  EXPECT_EQ(file.ReadTable("t.tdm/index.dat"), (PlainH5::Rows{{0, 6, 2}, {1, 9, 1}}));
}

TEST_F(CachedH5FileTest, AnObjectThatCannotBeWrittenCostsNoOther) {
  {
    auto plain = PlainH5::File::Create(Path("a.h5"));
    plain.Table("c.coef/index.dat", {{0, 1}});
    plain.Table("c.coef/coefs.dat", {{5}}, {.mChunk = {}});  // which cannot grow
    plain.Characters("old.txt", "x");
    plain.Table("x.dat", {{0}});
  }
  Append("a.h5", 1);
  Append("b.h5", 1);
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
    file.GetObjectForWrite<Coef>("c.coef").Append(1, {6});
    file.GetObjectForWrite<Txt>("old.txt") << "more";
  }
  const auto write = [] { TheCachedH5FileHolder().WriteCache(); };
  testing::internal::CaptureStderr();
  const std::string report = ReportOf(write);
  EXPECT_TRUE(IsReport(report, "err>=0", "H5Dset_extent failed\nObject '/c.coef' of")) << report;
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      HasSubstr("1 object(s) of file '" + Path("a.h5") + "' could not be written: '/old.txt'\n"));
  EXPECT_EQ(RowsOnDisk("a.h5"), 2u);
  EXPECT_EQ(RowsOnDisk("b.h5"), 1u);
  EXPECT_EQ(PlainH5::File::Open(Path("a.h5")).Dims("c.coef/index.dat")[0], 1u);
  EXPECT_EQ(ReportOf(write), "") << "what failed is dropped";
}

TEST_F(CachedH5FileTest, ATableIsFoundUnderItsOlderName) {
  const std::string older = "/G.dir/DimensionfullInertialSpin.dat";
  const std::string right = "/G.dir/DimensionfulInertialSpin.dat";
  PlainH5::File::Create(Path("a.h5")).Table(older, {{0}});
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
    file.GetObjectForWrite<Dat>(right).Append({1});
    EXPECT_EQ(file.Path(right), older);
    EXPECT_EQ(file.GetNames("*", true), (MyVector<std::string>{older}));
    file.GetObjectForWrite<Dat>("DimensionfullInertialSpinMag.dat");
    EXPECT_FALSE(file.Exists("DimensionfulInertialSpinMag.dat")) << "new ones are two";
  }
  TheCachedH5FileHolder().PurgeCache();
  EXPECT_EQ(PlainH5::File::Open(Path("a.h5")).Dims(older)[0], 2u);
}

TEST_F(CachedH5FileTest, Refusals) {
  const auto open = [&](const std::string& name, H5AccessType access) {
    return ReportOf([&] { const CachedH5File file(Path(name), access, {}, 0); });
  };
  Append("a.h5", 1);
  CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
  const std::string twoHandles =
      "Consistency error.  h5-file should be closed when creatingCachedH5File.\n";
  const std::string isClosed = open("a.h5", ReadOnly);
  file.GetObjectForRead<Dat>("x.dat");
  const std::tuple<std::string, const char*, std::string> refusals[] = {
      {open("no.h5", ReadOnly), "atype == ReadWrite",
       "Tried to open nonexistent file " + Path("no.h5") + " for reading"},
      {open("no/x.h5", ReadWrite), "DirectoryExists(dir)",
       "Tried to create file " + Path("no/x.h5") + " in nonexistent directory"},
      {isClosed, "!ptr->HasHandle()", twoHandles},
      {open("a.h5", ReadOnly), "!ptr->IsFileOpen()", twoHandles},
      {ReportOf([&] { file.GetObjectForRead<Dat>("y.dat"); }), "mpFile->Root()->Exists(name)",
       "Requesting non-existent dataset 'y.dat' in file " + Path("a.h5")},
      {ReportOf([&] { file.GetObjectForWrite<H5_Objects::Version>("x.dat"); }), "typ==ptr->Type()",
       "Type of name and OBJECT inconsistent.  ptr->Type()='dat', but OBJECT::ClassID()='ver'"}};
  for (const auto& [report, condition, message] : refusals) {
    EXPECT_TRUE(IsReport(report, condition, message)) << report;
  }
}

TEST_F(CachedH5FileTest, WhatIsWrittenImmediatelyIsOnDiskWithoutAPurge) {
  {
    CachedH5File file(Path("a.h5"), ReadWrite, {}, 0);
    auto& dat = file.GetObjectForWrite<Dat>("G.dir/x.dat");
    dat.Initialize({"t", "x"}, true, 2);
    file.WriteImmediately("G.dir/x.dat", [&] {
      dat.WriteManyStepsImmediately_(2, [](Tables::ColumnWriter& writer) {
        writer.Append(std::vector<double>{0, 10, 1, 11});
      });
    });
    EXPECT_FALSE(dat.IsObjectOpen());
  }
  EXPECT_EQ(PlainH5::File::Open(Path("a.h5")).ReadTable("G.dir/x.dat"),
            (PlainH5::Rows{{0, 1}, {10, 11}}));
}

}  // namespace

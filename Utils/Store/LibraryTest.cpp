#include "Utils/HDF5/Library.hpp"

#include <gtest/gtest.h>
#include <hdf5.h>
#include <sys/resource.h>

#include <cstdlib>
#include <exception>
#include <thread>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using H5_Objects::Dat;
using testing::ExitedWithCode;

// The processes of these tests end in every way; none has used the store before.
class H5_LibraryTest : public testing::Test {
 protected:
  void Append(const std::string& name, int rows) const {
    CachedH5File file(mDir / name, ReadWrite, {}, 0);
    auto& dat = file.GetObjectForWrite<Dat>("x.dat");
    if (!dat.IsInitialized()) {
      dat.Initialize({"t"}, true, 16);
    }
    while (rows-- > 0) {
      dat.Append({1.});
    }
  }
  PlainH5::File Plain(const std::string& name) const { return PlainH5::File::Open(mDir / name); }
  std::uint64_t RowsOfA() const { return Plain("a.h5").Dims("x.dat")[0]; }
  // Makes a file of the program's own, with a group, and leaves it open.
  void Leave(const std::string& name) const {
    const hid_t file_id = H5Fcreate((mDir / name).c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    H5Gclose(H5Gcreate2(file_id, "g", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
  }

  PlainH5::TempDir mDir;
};

TEST_F(H5_LibraryTest, WhatTheProgramLeftOpenIsClosedLikeOurs) {
  const auto storeFirst = [this](bool fails) noexcept {
    Append("a.h5", 3);
    Leave("user.h5");
    if (fails) {
      std::rethrow_exception(std::make_exception_ptr(1));
    }
    std::exit(0);
  };
  for (const bool fails : {false, true}) {
    EXPECT_EXIT(storeFirst(fails), ExitedWithCode(fails ? 255 : 0), "");
    EXPECT_EQ(RowsOfA(), fails ? 6u : 3u);
    EXPECT_TRUE(Plain("user.h5").Has("/g"));
  }
}

TEST_F(H5_LibraryTest, UsedBeforeTheStoreAndClosedWhileRowsWait) {
  const auto run = [this] {
    Leave("before.h5");
    Append("a.h5", 3);
    CachedH5File file(mDir / "a.h5", ReadWrite, {}, 0);
    TheCachedH5FileHolder().WriteCache();
    auto& dat = file.GetObjectForRead<Dat>("x.dat");
    dat.Append({1.});
    H5close();
    Leave("after.h5");  // under the identifiers that a.h5 had
    file.GetObjectForRead<Dat>("x.dat");
    std::exit(dat.RetrieveData().Size() == 3 ? 0 : 1);
  };
  EXPECT_EXIT(run(), ExitedWithCode(0), "^$");
  EXPECT_EQ(RowsOfA(), 4u);
  EXPECT_TRUE(Plain("before.h5").Has("/g"));
  EXPECT_TRUE(Plain("after.h5").Has("/g"));
}

TEST_F(H5_LibraryTest, AFailureAtTheEndKeepsItsStatusThoughTheLibraryEndsItself) {
  const auto run = [this] {
    Leave("user.h5");
    Vexa::IgnoreFileSizeSignal();
    Append("a.h5", 1000);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::exit(0);
  };
  EXPECT_EXIT(run(), ExitedWithCode(255), "HDF5-DIAG");
  // Nobody closed it, or it would pass for a whole file.
  EXPECT_FALSE(Plain("a.h5").Has("/x.dat"));
}

TEST_F(H5_LibraryTest, ASecondThreadInsideTheStoreIsReportedAndLosesNothing) {
  const auto run = [this] {
    Append("a.h5", 3);
    CachedH5File file(mDir / "a.h5", ReadWrite, {}, 0);
    const auto whileInside = [&] {
      std::thread([this] { Append("b.h5", 1); }).detach();
      while (!MyAbortCalled_UncleanShutdown()) {
        std::this_thread::yield();
      }
      file.GetObjectForWrite<Dat>("x.dat").Append({1.});  // nested, so allowed
    };
    file.WriteImmediately("x.dat", whileInside);
    while (true) {
      Append("c.h5", 1);  // until it is stopped here
    }
  };
  EXPECT_EXIT(run(), ExitedWithCode(255), "The store is used by two threads at once");
  EXPECT_EQ(RowsOfA(), 4u);
}

}  // namespace

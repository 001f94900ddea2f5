#include "Utils/Store/H5_ObjectVersion.hpp"

#include <gtest/gtest.h>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Version;
using PlainH5::ExpectReport;

using VersionTest = PlainH5::FileTest;

TEST_F(VersionTest, WritesItsHistoryOnce) {
  const Version::History history = {{"a1", "first"}, {"b2", ""}, {"\xc3\xa9", "third\nline"}};
  Version version("V.ver", false, 0);
  version.Initialize(history);
  EXPECT_EQ(version.GetCurrentVersion(), 3u);
  EXPECT_EQ(version.SizeOfCache(), 21u);
  version.OpenObject(mFile.Id());
  version.WriteCache();
  EXPECT_EQ(version.SizeOfCache(), 0u);
  EXPECT_EQ(version.RetrieveVersionHistory(), history);
  EXPECT_EQ(version.RetrieveVersionHistorySingleString(),
            "Hash a1:\nfirst\nHash b2:\n\nHash \xc3\xa9:\nthird\nline\n");
  version.CloseObject();

  version.Initialize(history);
  ExpectReport([&] { version.OpenObject(mFile.Id()); },
               "mCurrentVersion == currdims[0]+mHist.size()", "oops: CurrentVersion = 3");
  ExpectReport([&] { version.WriteCache(); }, "mSize==0", "This can be written only once, ");
  version.CloseObject();
}

}  // namespace

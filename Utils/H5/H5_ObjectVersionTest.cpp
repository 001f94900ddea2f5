#include "Utils/H5/H5_ObjectVersion.hpp"

#include <gtest/gtest.h>

#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Version;
using PlainH5::IsReport;
using PlainH5::ReportOf;

const Version::History sHistory = {{"a1", "first"}, {"b2", ""}, {"c3", "third\nline"}};

class VersionTest : public testing::Test {
 protected:
  VersionTest() : mFile(PlainH5::File::Create(mDir / "v.h5")) {}
  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(VersionTest, WritesItsHistoryOnce) {
  Version version("V.ver", false, 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { version.GetCurrentVersion(); }),
                       "mHist.size()>0 || IsObjectOpen()",
                       "Must call Initialize or OpenObject first"));
  version.Initialize(sHistory);
  EXPECT_EQ(version.GetCurrentVersion(), 3u);
  EXPECT_EQ(version.SizeOfCache(), 21u);
  EXPECT_TRUE(IsReport(ReportOf([&] { version.Initialize(sHistory); }),
                       "mHist.size()==0 and (not IsObjectOpen())",
                       "Please call initialize only once"));
  version.OpenObject(mFile.Id());
  version.WriteCache();
  EXPECT_EQ(version.SizeOfCache(), 0u);
  EXPECT_EQ(version.RetrieveVersionHistory(), sHistory);
  EXPECT_EQ(version.RetrieveVersionHistorySingleString(),
            "Hash a1:\nfirst\nHash b2:\n\nHash c3:\nthird\nline\n");
  version.CloseObject();

  EXPECT_EQ(mFile.ReadStrings("V.ver"),
            (std::vector<std::string>{"a1", "first", "b2", "", "c3", "third\nline"}));
  EXPECT_EQ(mFile.MaxDims("V.ver"), (std::vector<hsize_t>{H5S_UNLIMITED, 2}));
  EXPECT_EQ(mFile.Chunk("V.ver"), (std::vector<hsize_t>{1, 2}));

  version.Initialize(sHistory);
  EXPECT_TRUE(IsReport(ReportOf([&] { version.OpenObject(mFile.Id()); }),
                       "mCurrentVersion == currdims[0]+mHist.size()", "oops: CurrentVersion = 3"));
  EXPECT_TRUE(IsReport(ReportOf([&] { version.WriteCache(); }), "mSize==0",
                       "This can be written only once, "));
  version.CloseObject();
}

TEST_F(VersionTest, ReadsWhatOthersWroteAndRefusesWhatDisagrees) {
  mFile.Version("good.ver", 2);
  mFile.Strings("utf8.ver", {"h", "\xc3\xa9"}, {1, 2}, H5T_CSET_UTF8);
  mFile.VersionNumber("utf8.ver", 1);
  mFile.Strings("number.ver", {"a", "b"}, {1, 2});
  mFile.VersionNumber("number.ver", 2);
  mFile.Strings("rank.ver", {"a"}, {1});
  mFile.Strings("columns.ver", {"a", "b", "c"}, {1, 3});
  mFile.VersionNumber("columns.ver", 1);
  mFile.Strings("bare.ver", {"a", "b"}, {1, 2});
  mFile.Table("numbers.ver", {{1, 2}});
  mFile.VersionNumber("numbers.ver", 1);

  const auto read = [&](const std::string& name) {
    Version version(name, true, 0);
    version.OpenObject(mFile.Id());
    const Version::History history = version.RetrieveVersionHistory();
    version.CloseObject();
    return history;
  };
  EXPECT_EQ(read("good.ver"), (Version::History{{"hash0", "help0"}, {"hash1", "help1"}}));
  EXPECT_EQ(read("utf8.ver"), (Version::History{{"h", "\xc3\xa9"}}));
  const std::tuple<const char*, const char*, const char*> bad[] = {
      {"number.ver", "mCurrentVersion == currdims[0]+mHist.size()",
       "oops: CurrentVersion = 2, expected 1"},
      {"rank.ver", "ndims==2", "Expected dim of 2, got 1"},
      {"columns.ver", "dims[1]==2", ""},
      {"bare.ver", "attr>=0", "H5Aopen failed"},
      {"numbers.ver", "H5Tget_class(fileType)==H5T_STRING", "H5Dread failed"},
      {"absent.ver", "h5_exists==mExistsInFile", "Existence of group is inconsistently"}};
  for (const auto& [name, condition, message] : bad) {
    EXPECT_TRUE(IsReport(ReportOf([&, n = name] { read(n); }), condition, message)) << name;
  }
}

}  // namespace

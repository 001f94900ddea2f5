#include "Utils/Store/H5_ObjectVersion.hpp"

#include <gtest/gtest.h>

#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Version;
using PlainH5::IsReport;
using PlainH5::ReportOf;

TEST(VersionTest, WritesItsHistoryOnce) {
  const PlainH5::TempDir dir;
  const auto file = PlainH5::File::Create(dir / "v.h5");
  const Version::History history = {{"a1", "first"}, {"b2", ""}, {"c3", "third\nline"}};
  Version version("V.ver", false, 0);
  version.Initialize(history);
  EXPECT_EQ(version.GetCurrentVersion(), 3u);
  EXPECT_EQ(version.SizeOfCache(), 21u);
  version.OpenObject(file.Id());
  version.WriteCache();
  EXPECT_EQ(version.SizeOfCache(), 0u);
  EXPECT_EQ(version.RetrieveVersionHistory(), history);
  EXPECT_EQ(version.RetrieveVersionHistorySingleString(),
            "Hash a1:\nfirst\nHash b2:\n\nHash c3:\nthird\nline\n");
  version.CloseObject();
  EXPECT_EQ(file.ReadStrings("V.ver"),
            (std::vector<std::string>{"a1", "first", "b2", "", "c3", "third\nline"}));

  version.Initialize(history);
  EXPECT_TRUE(IsReport(ReportOf([&] { version.OpenObject(file.Id()); }),
                       "mCurrentVersion == currdims[0]+mHist.size()", "oops: CurrentVersion = 3"));
  EXPECT_TRUE(IsReport(ReportOf([&] { version.WriteCache(); }), "mSize==0",
                       "This can be written only once, "));
  version.CloseObject();
}

TEST(VersionTest, ReadsWhatOthersWroteAndRefusesWhatDisagrees) {
  const PlainH5::TempDir dir;
  auto file = PlainH5::File::Create(dir / "v.h5");
  file.Strings("utf8.ver", {"h", "\xc3\xa9"}, {1, 2}, H5T_CSET_UTF8);
  file.Strings("number.ver", {"a", "b"}, {1, 2});
  file.VersionNumber("number.ver", 2);
  file.Strings("columns.ver", {"a", "b", "c"}, {1, 3});
  file.Table("numbers.ver", {{1, 2}});
  for (const char* name : {"utf8.ver", "columns.ver", "numbers.ver"}) {
    file.VersionNumber(name, 1);
  }
  Version::History history;
  const auto read = [&](const std::string& name) {
    return ReportOf([&] {
      Version version(name, true, 0);
      version.OpenObject(file.Id());
      history = version.RetrieveVersionHistory();
      version.CloseObject();
    });
  };
  EXPECT_EQ(read("utf8.ver"), "");
  EXPECT_EQ(history, (Version::History{{"h", "\xc3\xa9"}}));
  const std::tuple<const char*, const char*, const char*> bad[] = {
      {"number.ver", "mCurrentVersion == currdims[0]+mHist.size()",
       "oops: CurrentVersion = 2, expected 1"},
      {"columns.ver", "dims[1]==2", ""},
      {"numbers.ver", "H5Tget_class(fileType)==H5T_STRING", "H5Dread failed"},
      {"absent.ver", "h5_exists==mExistsInFile", "Existence of group is inconsistently"}};
  for (const auto& [name, condition, message] : bad) {
    EXPECT_TRUE(IsReport(read(name), condition, message)) << name;
  }
}

}  // namespace

#include "Utils/H5/H5_Node.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "Utils/H5/H5_File.hpp"
#include "Utils/H5/H5_ObjectDat.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using PlainH5::IsReport;
using PlainH5::ReportOf;

class NodeTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return mDir / name; }
  std::string ReportOfOpening(const std::string& name) {
    return ReportOf([&] { const H5_File file(Path(name), ReadOnly, 0); });
  }
  PlainH5::TempDir mDir;
};

TEST_F(NodeTest, FindsNodesByPath) {
  {
    auto file = PlainH5::File::Create(Path("a.h5"));
    file.Table("a.dir/b.dat", {{1}});
    file.Table("a.dir/(odd *.dir/[x] \xc3\xa9|y.dat", {{1}});
    file.Table("z.dat", {{1}});
    file.Version("V.ver", 1);
  }
  const H5_File file(Path("a.h5"), ReadOnly, 0);
  const H5_Node& root = *file.Root();
  EXPECT_EQ(root.GetNode("/a.dir//b.dat/").FullName(), "/a.dir/b.dat");
  EXPECT_EQ(root.GetNode("a.dir/../z.dat").Name(), "z.dat");
  EXPECT_EQ(root.GetNode("a.dir/b.dat").Path(), "/a.dir/");
  EXPECT_EQ(root.GetNode("").FullName(), "/");
  EXPECT_TRUE(root.Exists("/a.dir/(odd *.dir/[x] \xc3\xa9|y.dat"));
  EXPECT_FALSE(root.Exists("a.dir/b.dat/c.dat"));
  EXPECT_FALSE(root.GetNode("z.dat").IsObjectOpen()) << "nobody asked for it";
  EXPECT_TRUE(IsReport(ReportOf([&] { root.GetNode("../z.dat"); }), "ptr->Parent()!=nullptr",
                       "Trying to proceed to parent directory of Root().  Impossible"));
  EXPECT_TRUE(
      IsReport(ReportOf([&] { root.GetNode("no.dat"); }), "ptr!=nullptr", "Node no.dat not found"));

  EXPECT_EQ(
      file.GetNames("*.dat", false),
      (MyVector<std::string>{"/a.dir/(odd *.dir/[x] \xc3\xa9|y.dat", "/a.dir/b.dat", "/z.dat"}));
  EXPECT_EQ(file.GetNames("*.dir", true).size(), 0u) << "groups are not objects";
}

TEST_F(NodeTest, CreatesOnDiskOnlyWhatHoldsData) {
  {
    H5_File file(Path("new.h5"), ReadWrite, 0);
    auto& x = file.Root()->CreateNode("A.dir/B.dir/x.dat").GetObject<H5_Objects::Dat>();
    file.Root()->CreateNode("A.dir/empty.dat");
    x.Initialize({"time"}, false, 4);
    x.Append({1});
    EXPECT_EQ(file.CummulativeCacheSize(), 12u);
    EXPECT_EQ(file.Root()->GetNode("A.dir").CummulativeCacheSize(), 12u);
    std::uint64_t dirs = 0;
    std::uint64_t objects = 0;
    std::uint64_t objectsWithCache = 0;
    std::uint64_t timeSteps = 0;
    std::uint64_t bytes = 0;
    file.Statistics(dirs, objects, objectsWithCache, timeSteps, bytes);
    EXPECT_EQ((std::vector{dirs, objects, objectsWithCache, timeSteps, bytes}),
              (std::vector<std::uint64_t>{3, 2, 1, 1, 12}));
    std::ostringstream info;
    file.WriteInfo(info, 1);
    EXPECT_NE(info.str().find("|  3 dir(s) with 2 dataset(s) (1 with cached data)\n"
                              "|  12 bytes, 1 timesteps cached (average 1 steps/dataset)\n"),
              std::string::npos);
    file.WriteCache();
    EXPECT_EQ(file.CummulativeCacheSize(), 0u);
    x.Append({2});
    file.CloseFile();
    file.WriteCache();
    EXPECT_TRUE(file.IsFileOpen()) << "opened to write, and left open";
    EXPECT_TRUE(IsReport(ReportOf([&] { file.Root()->CreateChild("a/b.dat"); }),
                         "non_path_name.find(\"/\")==std::string::npos", "CreateChild must be"));
    EXPECT_TRUE(IsReport(ReportOf([&] { file.Root()->CreateNode("A.dir/empty.dat/x.dat"); }),
                         "Type()==\"dir\"", "CreateNode must be called on dir's only"));
    EXPECT_TRUE(IsReport(ReportOf([&] { file.Root()->CreateNode("plain"); }),
                         "idx!=std::string::npos",
                         "H5_Node: attempting to create H5_Object node with name 'plain'.\n"));
  }
  const auto file = PlainH5::File::Open(Path("new.h5"));
  EXPECT_EQ(file.ReadTable("A.dir/B.dir/x.dat"), (PlainH5::Rows{{1}, {2}}));
  EXPECT_FALSE(file.Has("/A.dir/empty.dat"));
}

TEST_F(NodeTest, RefusesStrangers) {
  PlainH5::File::Create(Path("bare.h5")).Group("plain");
  EXPECT_TRUE(
      IsReport(ReportOfOpening("bare.h5"), "idx!=std::string::npos", "H5_Node: attempting"));
  {
    auto file = PlainH5::File::Create(Path("unknown.h5"));
    file.Group("a.dir/b.one");
    file.Group("a.dir/c.two");
  }
  const std::string report = ReportOfOpening("unknown.h5");
  EXPECT_TRUE(IsReport(report, "false", "H5_Node: file " + Path("unknown.h5")));
  EXPECT_NE(report.find("b.one c.two"), std::string::npos) << report;
  EXPECT_NE(report.find("'/a.dir'"), std::string::npos) << report;
  {
    auto file = PlainH5::File::Create(Path("swapped.h5"));
    file.Group("g.dat");
    file.Table("d.dir", {{1}});
  }
  EXPECT_NE(ReportOfOpening("swapped.h5"), "") << "a dataset where a group is expected";
}

TEST_F(NodeTest, LinksThatGoRoundInCirclesEnd) {
  {
    auto file = PlainH5::File::Create(Path("hard.h5"));
    file.Group("a.dir/b.dir");
    H5Lcreate_hard(file.Id(), "a.dir", file.Id(), "a.dir/b.dir/loop.dir", H5P_DEFAULT, H5P_DEFAULT);
  }
  {
    auto file = PlainH5::File::Create(Path("soft.h5"));
    file.Group("a.dir");
    H5Lcreate_soft("/", file.Id(), "a.dir/loop.dir", H5P_DEFAULT, H5P_DEFAULT);
  }
  {
    // Every group holds the next one twice: no circle, but 2^40 paths.
    auto file = PlainH5::File::Create(Path("bomb.h5"));
    std::string group = "0.dir";
    file.Group(group);
    for (int i = 1; i <= 40; ++i) {
      const std::string next = group + "/x.dir";
      file.Group(next);
      H5Lcreate_hard(file.Id(), next.c_str(), file.Id(), (group + "/y.dir").c_str(), H5P_DEFAULT,
                     H5P_DEFAULT);
      group = next;
    }
  }
  EXPECT_TRUE(IsReport(ReportOfOpening("hard.h5"), "!isItself",
                       "Group '/a.dir/b.dir/loop.dir' of file " + Path("hard.h5")));
  EXPECT_TRUE(IsReport(ReportOfOpening("soft.h5"), "!isItself", "Group '/a.dir/loop.dir' of"));
  EXPECT_TRUE(IsReport(ReportOfOpening("bomb.h5"), "mNodes<=mMostNodes", "File "));
}

}  // namespace

#include "Utils/Store/H5_Node.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_File.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using PlainH5::IsReport;
using PlainH5::ReportOf;

class NodeTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return mDir / name; }
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
    file.SetUnfinished(false);
    H5_Node& root = *file.Root();
    auto& x = root.CreateNode("A.dir/B.dir/x.dat").GetObject<H5_Objects::Dat>();
    root.CreateNode("A.dir/empty.dat");
    x.Initialize({"time"}, false, 4);
    x.Append({1});
    EXPECT_EQ(root.GetNode("A.dir").CummulativeCacheSize(), 12u);
    file.WriteCache();
    EXPECT_EQ(file.CummulativeCacheSize(), 0u);
    x.Append({2});
    file.CloseFile();
    file.WriteCache();
    EXPECT_TRUE(file.IsFileOpen()) << "opened to write, and left open";
    EXPECT_TRUE(IsReport(ReportOf([&] { root.CreateNode("A.dir/empty.dat/x.dat"); }),
                         "Type()==\"dir\"", "CreateNode must be called on dir's only"));
    EXPECT_TRUE(IsReport(ReportOf([&] { root.CreateNode("plain"); }), "idx!=std::string::npos",
                         "H5_Node: attempting to create H5_Object node with name 'plain'.\n"));
  }
  const auto file = PlainH5::File::Open(Path("new.h5"));
  EXPECT_EQ(file.ReadTable("A.dir/B.dir/x.dat"), (PlainH5::Rows{{1}, {2}}));
  EXPECT_FALSE(file.Has("/A.dir/empty.dat"));
}

TEST_F(NodeTest, RefusesStrangersAndLinksThatGoRoundInCircles) {
  const auto hardLink = [](const PlainH5::File& file, const char* to, const std::string& from) {
    H5Lcreate_hard(file.Id(), to, file.Id(), from.c_str(), H5P_DEFAULT, H5P_DEFAULT);
  };
  const std::tuple<std::function<void(PlainH5::File&)>, const char*, std::string> cases[] = {
      {[](PlainH5::File& file) { file.Group("plain"); }, "idx!=std::string::npos",
       "H5_Node: attempting"},
      {[](PlainH5::File& file) {
         file.Group("a.dir/b.one");
         file.Group("a.dir/c.two");
       },
       "false",
       "H5_Node: file " + Path("1.h5") + " contains these unidentified objects:\nb.one c.two"},
      {[](PlainH5::File& file) { file.Table("d.dir", {{1}}); }, "", ""},
      {[&](PlainH5::File& file) {
         file.Group("a.dir/b.dir");
         hardLink(file, "a.dir", "a.dir/b.dir/loop.dir");
       },
       "!isItself", "Group '/a.dir/b.dir/loop.dir' of file " + Path("3.h5")},
      {[](PlainH5::File& file) {
         file.Group("a.dir");
         H5Lcreate_soft("/", file.Id(), "a.dir/loop.dir", H5P_DEFAULT, H5P_DEFAULT);
       },
       "!isItself", "Group '/a.dir/loop.dir' of"},
      {[&](PlainH5::File& file) {
         // Every group holds the next one twice: no circle, but 2^40 paths.
         std::string group = "0.dir";
         for (int i = 1; i <= 40; ++i) {
           const std::string next = group + "/x.dir";
           file.Group(next);
           hardLink(file, next.c_str(), group + "/y.dir");
           group = next;
         }
       },
       "mNodes<=mMostNodes", "File "}};
  int number = 0;
  for (const auto& [write, condition, message] : cases) {
    const std::string path = Path(std::to_string(number++) + ".h5");
    {
      auto file = PlainH5::File::Create(path);
      write(file);
    }
    const std::string report = ReportOf([&] { const H5_File file(path, ReadOnly, 0); });
    EXPECT_TRUE(IsReport(report, condition, message)) << message << report;
  }
}

}  // namespace

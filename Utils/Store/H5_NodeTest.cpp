#include "Utils/Store/H5_Node.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_File.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using PlainH5::ExpectReport;

TEST(NodeTest, FindsAndMakesNodesByPath) {
  const PlainH5::TempDir dir;
  const std::string odd = "/a.dir/(odd *.dir/[x] \xc3\xa9|y.dat";
  {
    // Groups of another file are no circle, though they stand at the same place of theirs.
    PlainH5::File::Create(dir / "b.h5").Table("c.dir/d.dat", {{1}});
    auto file = PlainH5::File::Create(dir / "a.h5");
    file.Table("a.dir/b.dat", {{1}});
    file.Table(odd, {{1}});
    file.Table("z.dat", {{1}});
    H5Lcreate_external("b.h5", "/", file.Id(), "other.dir", H5P_DEFAULT, H5P_DEFAULT);
  }
  H5_File file(dir / "a.h5", ReadWrite, 0, true);
  H5_Node& root = *file.Root();
  EXPECT_EQ(root.GetNode("/a.dir//b.dat/").FullName(), "/a.dir/b.dat");
  EXPECT_EQ(root.GetNode("a.dir/../z.dat").Name(), "z.dat");
  EXPECT_FALSE(root.Exists("a.dir/b.dat/c.dat"));
  EXPECT_FALSE(root.GetNode("z.dat").IsObjectOpen()) << "nobody asked for it";
  EXPECT_EQ(file.GetNames("*.dat", false),
            (MyVector<std::string>{odd, "/a.dir/b.dat", "/other.dir/c.dir/d.dat", "/z.dat"}));
  EXPECT_EQ(file.GetNames("*.dir", true).size(), 0u) << "groups are not objects";

  // On disk only what holds data is made.
  auto& x = root.CreateNode("A.dir/B.dir/x.dat").GetObject<H5_Objects::Dat>();
  root.CreateNode("A.dir/empty.dat");
  x.Initialize({"time"}, false, 4);
  x.Append({1});
  EXPECT_EQ(root.GetNode("A.dir").CummulativeCacheSize(), 12u);
  file.WriteCache();
  EXPECT_EQ(file.CummulativeCacheSize(), 0u);
  file.CloseFile();
  const auto plain = PlainH5::File::Open(dir / "a.h5");
  EXPECT_EQ(plain.ReadTable("A.dir/B.dir/x.dat"), (PlainH5::Rows{{1}}));
  EXPECT_FALSE(plain.Has("/A.dir/empty.dat"));

  ExpectReport([&] { root.GetNode("../z.dat"); }, "ptr->Parent()!=nullptr",
               "Trying to proceed to parent");
  ExpectReport([&] { root.CreateNode("plain"); }, "idx!=std::string::npos",
               "H5_Node: attempting to");
}

TEST(NodeTest, FindsObjectsOfAFileThatWasReplaced) {
  const PlainH5::TempDir dir;
  for (const char* name : {"a.h5", "b.h5"}) {
    auto plain = PlainH5::File::Create(dir / name);
    if (name[0] == 'b') {
      plain.Table("y.dat", {{2}});  // where the other file has the table that is looked for
    }
    plain.Table("x.dat", {{1}});
  }
  H5_File file(dir / "a.h5", ReadOnly, 0, true);
  const H5_Node& node = file.Root()->GetNode("x.dat");
  for (const bool isReplaced : {false, true}) {
    file.CloseFile();
    if (isReplaced) {
      std::filesystem::rename(dir / "b.h5", dir / "a.h5");
    }
    file.OpenFile();
    node.OpenObject();
    EXPECT_EQ(node.GetObject<H5_Objects::Dat>().RetrieveTimes(), MyVector<double>{1});
    EXPECT_EQ(file.HasKnownAddresses(), !isReplaced);
  }
}

}  // namespace

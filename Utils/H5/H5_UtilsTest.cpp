#include "Utils/H5/H5_Utils.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Utils/H5/Handle.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using PlainH5::IsReport;
using PlainH5::ReportOf;

class UtilsTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return mDir / name; }
  PlainH5::TempDir mDir;
};

TEST_F(UtilsTest, StringListsSurviveInOneAttribute) {
  auto file = PlainH5::File::Create(Path("a.h5"));
  const MyVector<std::string> lists[] = {{}, {""}, {"time", "", "a b", "\xc3\xa9"}};
  for (const MyVector<std::string>& list : lists) {
    const std::string name = "List" + std::to_string(list.size());
    Vexa_H5::AttachStringsToAttributes(file.Id(), name, list, 0);
    EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(file.Id(), name, false, 0), list);
    EXPECT_EQ(file.ReadStringAttribute("/", name),
              std::vector<std::string>(list.begin(), list.end()));
  }
  Vexa_H5::AttachAttributes<unsigned long>(file.Id(), "Numbers", {1, ~0UL}, 0);
  EXPECT_EQ(Vexa_H5::RetrieveAttributes<unsigned long>(file.Id(), "Numbers", false, 0),
            (std::vector<unsigned long>{1, ~0UL}));
}

TEST_F(UtilsTest, AttributesOfOthersAreReadAndRefused) {
  auto file = PlainH5::File::Create(Path("a.h5"));
  const hid_t id = file.Id();
  file.FixedStringAttribute("/", "Fixed", {"abc", "ab", ""}, 3);
  EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(id, "Fixed", false, 0),
            (MyVector<std::string>{"abc", "ab", ""}));
  EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(id, "Absent", true, 0).size(), 0u);
  EXPECT_TRUE(
      IsReport(ReportOf([&] { Vexa_H5::RetrieveStringsFromAttributes(id, "Absent", false, 0); }),
               "attr>=0", "H5Aopen failed"));
  Vexa_H5::AttachAttributes<unsigned long>(id, "Numbers", {1}, 0);
  EXPECT_TRUE(
      IsReport(ReportOf([&] { Vexa_H5::RetrieveStringsFromAttributes(id, "Numbers", false, 0); }),
               "", "H5Aread to read Legend of dat-set failed"));
  const hsize_t dims[2] = {1, 1};
  {
    const DataspaceHandle space(H5Screate_simple(2, dims, nullptr));
    const AttributeHandle attribute(
        H5Acreate2(id, "Two", H5T_NATIVE_ULLONG, space, H5P_DEFAULT, H5P_DEFAULT));
  }
  EXPECT_TRUE(
      IsReport(ReportOf([&] { Vexa_H5::RetrieveAttributes<unsigned long>(id, "Two", false, 0); }),
               "ndims==1", "Dimensionality of Attribute is wrong"));
}

TEST_F(UtilsTest, GroupNamesAscendByBytes) {
  auto file = PlainH5::File::Create(Path("a.h5"));
  for (const char* name : {"b", "B", "a", "A", "a1"}) {
    file.Group(name);
  }
  EXPECT_EQ(Vexa_H5::ReadGroupNames(file.Id(), 0),
            (MyVector<std::string>{"A", "B", "a", "a1", "b"}));
}

TEST_F(UtilsTest, OpensCreatesAndRefusesFiles) {
  for (const bool oldFormat : {false, true}) {
    PlainH5::File::Create(Path("f.h5"), oldFormat);
    const hid_t id = Vexa_H5::OpenFile(Path("f.h5"), ReadOnly, 0);
    EXPECT_GE(id, 0);
    H5Fclose(id);
  }
  const hid_t made = Vexa_H5::OpenFile(Path("new.h5"), ReadWrite, 0);
  H5Fclose(made);
  EXPECT_EQ(PlainH5::File::Open(Path("new.h5")).SuperblockVersion(), 2u);

  EXPECT_TRUE(IsReport(
      ReportOf([&] { Vexa_H5::OpenFile(Path("no.h5"), ReadOnly, 0); }), "access==ReadWrite",
      "Attempting to create non-existent file '" + Path("no.h5") + "' in ReadOnly mode"));
  EXPECT_FALSE(std::filesystem::exists(Path("no.h5")));
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { Vexa_H5::OpenFile(Path("fifo"), ReadOnly, 0); }), "",
                       "'" + Path("fifo") + "' is not a regular file"));
}

}  // namespace

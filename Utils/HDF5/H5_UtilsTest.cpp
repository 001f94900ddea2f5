#include "Utils/HDF5/H5_Utils.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

using namespace Vexa_H5;

namespace {

using PlainH5::IsReport;
using PlainH5::ReportOf;

TEST(UtilsTest, AttributesSurviveAndThoseOfOthersAreReadOrRefused) {
  const PlainH5::TempDir dir;
  auto file = PlainH5::File::Create(dir / "a.h5");
  const hid_t id = file.Id();
  const MyVector<std::string> lists[] = {{}, {""}, {"time", "", "a b", "\xc3\xa9"}};
  for (const MyVector<std::string>& list : lists) {
    const std::string name = "List" + std::to_string(list.size());
    Vexa_H5::AttachStringsToAttributes(id, name, list, 0);
    EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(id, name, false, 0), list);
    EXPECT_EQ(file.ReadStringAttribute("/", name),
              std::vector<std::string>(list.begin(), list.end()));
  }
  Vexa_H5::AttachAttributes<unsigned long>(id, "Numbers", {1, ~0UL}, 0);
  EXPECT_EQ(Vexa_H5::RetrieveAttributes<unsigned long>(id, "Numbers", false, 0),
            (std::vector<unsigned long>{1, ~0UL}));
  file.FixedStringAttribute("/", "Fixed", {"abc", "ab", ""}, 3);
  EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(id, "Fixed", false, 0),
            (MyVector<std::string>{"abc", "ab", ""}));

  EXPECT_EQ(Vexa_H5::RetrieveStringsFromAttributes(id, "Absent", true, 0).size(), 0u);
  const auto refusal = [&](const std::string& name) {
    return ReportOf([&] { Vexa_H5::RetrieveStringsFromAttributes(id, name, false, 0); });
  };
  {
    const hsize_t dims[2] = {1, 1};
    const DataspaceHandle space(H5Screate_simple(2, dims, nullptr));
    const AttributeHandle attribute(
        H5Acreate2(id, "Two", H5T_NATIVE_ULLONG, space, H5P_DEFAULT, H5P_DEFAULT));
  }
  EXPECT_TRUE(IsReport(refusal("Absent"), "attr>=0", "H5Aopen failed"));
  EXPECT_TRUE(IsReport(refusal("Numbers"), "", "H5Aread to read Legend of dat-set failed"));
  EXPECT_TRUE(IsReport(refusal("Two"), "ndims==1", "Dimensionality of Attribute is wrong"));

  for (const char* name : {"b", "B", "a", "A", "a1"}) {
    file.Group(name);
  }
  EXPECT_EQ(Vexa_H5::ReadGroupNames(id, 0), (MyVector<std::string>{"A", "B", "a", "a1", "b"}));
}

TEST(UtilsTest, OpensCreatesAndRefusesFiles) {
  const PlainH5::TempDir dir;
  const std::string path = dir / "new.h5";
  EXPECT_TRUE(IsReport(ReportOf([&] { Vexa_H5::OpenFile(path, ReadOnly, 0); }), "access==ReadWrite",
                       "Attempting to create non-existent file '" + path + "' in ReadOnly mode"));
  EXPECT_FALSE(std::filesystem::exists(path));
  H5Fclose(Vexa_H5::OpenFile(path, ReadWrite, 0));
  EXPECT_EQ(PlainH5::File::Open(path).SuperblockVersion(), 2u);
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { Vexa_H5::OpenFile(dir / "fifo", ReadOnly, 0); }), "",
                       "'" + (dir / "fifo") + "' is not a regular file"));
}

}  // namespace

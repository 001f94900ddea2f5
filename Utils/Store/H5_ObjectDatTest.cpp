#include "Utils/Store/H5_ObjectDat.hpp"

#include <gtest/gtest.h>

#include <limits>

#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Dat;
using PlainH5::ExpectReport;
using PlainH5::Rows;

// The tests open and close their tables by hand, in a group that stands for the file.
using DatTest = PlainH5::FileTest;

TEST_F(DatTest, WritesTheLayoutThatOthersRead) {
  Dat dat("x.dat", false, 0);
  dat.Initialize({"time", "x"}, true, 4);
  EXPECT_EQ(dat.SizeOfCache(), 5u) << "the legend's characters";
  dat.Append({0, 10});
  dat.Append({1, 11});
  dat.OpenObject(mFile.Id());
  EXPECT_EQ(dat.SizeOfCache(), 32u);
  EXPECT_EQ(dat.GetExtents()[0], 2u);
  dat.WriteCache();
  dat.Append({2, 12});
  // These rows make a whole chunk, but begin inside one.
  dat.WriteManyStepsImmediately_(4, [](Tables::ColumnWriter& writer) {
    writer.Append(std::vector<double>{3, 4, 5, 6, 13, 14, 15, 16});
  });
  // Of what cannot be written nothing is left.
  EXPECT_THROW(dat.WriteManyStepsImmediately_(1, [](auto&) { throw 1; }), int);
  dat.WriteManyStepsImmediately({});
  dat.CloseObject();
  EXPECT_EQ(mFile.ReadTable("x.dat"),
            (Rows{{0, 10}, {1, 11}, {2, 12}, {3, 13}, {4, 14}, {5, 15}, {6, 16}}));
  Dat longest("longest.dat", false, 0);
  longest.Initialize({"time"}, false, 0xffffffffULL / 8 + 2);
  longest.OpenObject(mFile.Id());
  longest.CloseObject();
  const Vexa_H5::DatasetHandle written(H5Dopen2(mFile.Id(), "longest.dat", H5P_DEFAULT));
  hsize_t chunk[2] = {};
  H5Pget_chunk(Vexa_H5::PropertyListHandle(H5Dget_create_plist(written)), 2, chunk);
  EXPECT_EQ(chunk[0], (1U << 28) + 1) << "a chunk is less than 4 GiB";
}

TEST_F(DatTest, RowsOfAllColumnsMakeTheFileThatColumnsMake) {
  const auto bytesWith = [this](const std::string& name, const auto& fill) {
    const PlainH5::File file = PlainH5::File::Create(mDir / name);
    Dat dat("x.dat", false, 0);
    dat.Initialize({"time", "x"}, false, 3);
    dat.OpenObject(file.Id());
    dat.WriteManyStepsImmediately_(6, fill);
    dat.CloseObject();
    EXPECT_EQ(file.ReadTable("x.dat"),
              (Rows{{0, 10}, {1, 11}, {2, 12}, {3, 13}, {4, 14}, {5, 15}}));
    H5Fflush(file.Id(), H5F_SCOPE_GLOBAL);
    return PlainH5::Bytes(mDir / name);
  };
  const std::string byColumns = bytesWith("columns.h5", [](Tables::ColumnWriter& writer) {
    writer.Append(std::vector<double>{0, 1, 2, 3, 4, 5, 10, 11, 12, 13, 14, 15});
  });
  const std::string byRows = bytesWith("rows.h5", [](Tables::ColumnWriter& writer) {
    writer.WriteRows({0, 2, 0, 4}, std::vector<double>{0, 1, 2, 3, 10, 11, 12, 13}.data());
    writer.WriteRows({0, 2, 4, 2}, std::vector<double>{4, 5, 14, 15}.data());
  });
  EXPECT_EQ(byRows, byColumns);
}

TEST_F(DatTest, Refusals) {
  mFile.Table("there.dat", {{0, 1}});
  Dat dat("there.dat", true, 0);
  dat.OpenObject(mFile.Id());
  dat.Append({2, 3});
  const auto refuses = [&](int column, int first, int onePastLast, const char* condition) {
    ExpectReport([&] { dat.RetrieveColumns({column}, first, onePastLast); }, condition,
                 "Dat::RetrieveColumns ");
  };
  refuses(0, 0, 3, "one_past_last <= GetExtents()[0]");
  refuses(0, 0, 2, "one_past_last <= mExtents[0]");  // reaches into the cache
  refuses(2, 0, 1, "columns[j]>=0 && static_cast<unsigned long long>(columns[j])<");
  ExpectReport([&] { dat.Append({1}); }, "static_cast<int>(mExtents[1])==data.Size()",
               "data being appended inconsistent with Extents\nName=there.dat");
  Dat widths("there.dat", true, 0);
  widths.Append({1, 2, 3});
  ExpectReport([&] { widths.Append({1}); }, "mNumberOfColumnsPerRow==data.size()",
               "data being appended must be");
  widths.DropCache();
  dat.WriteCache();
  EXPECT_EQ(dat.RetrieveColumns({1, 0}, 1, 2), (MyVector<MyVector<double>>{{3}, {2}}));
  EXPECT_EQ(dat.RetrieveData(), (MyVector<MyVector<double>>{{0, 1}, {2, 3}}));
  dat.CloseObject();
  const auto lose = [] {
    Dat lost("a.dat", false, 0);
    lost.Initialize({"time"}, false, 8);
    lost.Append({1});
  };
  EXPECT_EXIT(lose(), testing::ExitedWithCode(255),
              "Attempting to destruct H5_ObjectDat with non-empty Cache");
}

}  // namespace

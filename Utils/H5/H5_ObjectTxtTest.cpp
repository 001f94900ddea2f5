#include "Utils/H5/H5_ObjectTxt.hpp"

#include <gtest/gtest.h>

#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Txt;
using PlainH5::IsReport;
using PlainH5::ReportOf;

class TxtTest : public testing::Test {
 protected:
  TxtTest() : mFile(PlainH5::File::Create(mDir / "t.h5")) {}
  PlainH5::TempDir mDir;
  PlainH5::File mFile;
};

TEST_F(TxtTest, EveryWriteOfTheCacheIsOneMoreString) {
  Txt txt("log.txt", false, 0);
  EXPECT_TRUE(IsReport(ReportOf([&] { txt.GetSize(); }), "AreAttributesKnown()",
                       "Must OpenObject before calling GetSize"));
  txt << "step " << 7 << ", t=" << 0.5;
  EXPECT_EQ(txt.SizeOfCache(), 13u);
  txt.OpenObject(mFile.Id());
  EXPECT_EQ(txt.GetSize(), 1u) << "text in memory is one more string";
  txt.WriteCache();
  txt.WriteCache();
  EXPECT_EQ(txt.SizeOfCache(), 0u);
  txt << "b";
  txt.WriteCache();
  EXPECT_EQ(txt.RetrieveData(), "step 7, t=0.5b");
  txt << std::string("a\0b", 3);
  EXPECT_TRUE(IsReport(ReportOf([&] { txt.WriteCache(); }), "text.find", "Text of log.txt holds"));
  txt.CloseObject();
  EXPECT_EQ(mFile.ReadStrings("log.txt"), (std::vector<std::string>{"step 7, t=0.5", "b"}));
  EXPECT_EQ(mFile.Chunk("log.txt"), (std::vector<hsize_t>{16}));
  EXPECT_EQ(mFile.MaxDims("log.txt"), (std::vector<hsize_t>{H5S_UNLIMITED}));
}

TEST_F(TxtTest, NoTextIsLostWithoutAWord) {
  Txt txt("log.txt", false, 0);
  txt << "text";
  EXPECT_THROW(txt << static_cast<const char*>(nullptr), std::ios_base::failure);
  EXPECT_EQ(txt.SizeOfCache(), 4u);
}

TEST_F(TxtTest, ReadsOtherFormatsAndRefusesToExtendThem) {
  mFile.Strings("scalar.txt", {"whole text"}, {});
  mFile.Strings("utf8.txt", {"\xc3\xa9", "", "x"}, {3}, H5T_CSET_UTF8);
  mFile.Characters("old.txt", std::string("old text\0\0", 10));
  mFile.Strings("rank2.txt", {"a", "b"}, {1, 2});
  mFile.Table("numbers.txt", {{1}, {2}});

  const auto read = [&](const std::string& name, const std::string& append) {
    Txt txt(name, true, 0);
    txt.OpenObject(mFile.Id());
    const std::string text = txt.RetrieveData();
    txt << append;
    txt.WriteCache();
    txt.CloseObject();
    return text;
  };
  EXPECT_EQ(read("scalar.txt", ""), "whole text");
  EXPECT_EQ(read("utf8.txt", ""), "\xc3\xa9x");
  EXPECT_TRUE(IsReport(ReportOf([&] { read("scalar.txt", "more"); }), "",
                       "H5_ObjectTxt attempting to append to a *scalar* string dataset\n"));
  EXPECT_TRUE(IsReport(ReportOf([&] { read("old.txt", "more"); }), "!mOldDatatype",
                       "Cannot write new Txt format into old.txt,\nwhich has existing data"));
  EXPECT_TRUE(
      IsReport(ReportOf([&] { read("rank2.txt", ""); }), "", "Expected dim of 0 or 1, got 2"));
  EXPECT_NE(ReportOf([&] { read("numbers.txt", ""); }), "");
  Txt old("old.txt", true, 0);
  old.OpenObject(mFile.Id());
  EXPECT_EQ(old.RetrieveData(), "old text");
  old.CloseObject();
}

}  // namespace

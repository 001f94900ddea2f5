#include "Utils/Store/H5_ObjectTxt.hpp"

#include <gtest/gtest.h>

#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Txt;
using PlainH5::IsReport;
using PlainH5::ReportOf;

TEST(TxtTest, EveryWriteOfTheCacheIsOneMoreString) {
  const PlainH5::TempDir dir;
  const auto file = PlainH5::File::Create(dir / "t.h5");
  Txt txt("log.txt", false, 0);
  txt << "step " << 7 << ", t=" << 0.5;
  txt.OpenObject(file.Id());
  EXPECT_EQ(txt.GetSize(), 1u) << "text in memory is one more string";
  txt.WriteCache();
  txt.WriteCache();
  txt << "b";
  txt.WriteCache();
  EXPECT_EQ(txt.RetrieveData(), "step 7, t=0.5b");
  // No text is lost without a word.
  txt << std::string("a\0b", 3);
  EXPECT_THROW(txt << static_cast<const char*>(nullptr), std::ios_base::failure);
  EXPECT_EQ(txt.SizeOfCache(), 3u);
  EXPECT_TRUE(IsReport(ReportOf([&] { txt.WriteCache(); }), "text.find", "Text of log.txt holds"));
  txt.CloseObject();
  EXPECT_EQ(file.ReadStrings("log.txt"), (PlainH5::Strings{"step 7, t=0.5", "b"}));
}

TEST(TxtTest, KeepsACharacterSetAndChoosesThatOfNewText) {
  const PlainH5::TempDir dir;
  auto file = PlainH5::File::Create(dir / "t.h5");
  const std::tuple<const char*, H5T_cset_t, bool> cases[] = {
      // text, label, whether the dataset exists
      {"\xc3\xa9", H5T_CSET_UTF8, true},  {"plain", H5T_CSET_UTF8, true},
      {"\xc3\xa9", H5T_CSET_ASCII, true}, {"plain", H5T_CSET_ASCII, false},
      {"\xc3\xa9", H5T_CSET_UTF8, false}, {"latin \xe9", H5T_CSET_ASCII, false}};
  for (const auto& [text, set, exists] : cases) {
    const std::string name = std::to_string(&std::get<0>(cases[0]) - &text) + ".txt";
    if (exists) {
      file.Strings(name, {"first"}, {1}, set);
    }
    Txt txt(name, exists, 0);
    txt << text;
    txt.OpenObject(file.Id());
    txt.WriteCache();
    txt.CloseObject();
    EXPECT_EQ(file.CharacterSet(name), set) << text;
    EXPECT_EQ(file.ReadStrings(name).back(), text);
  }
}

TEST(TxtTest, ReadsOtherFormatsAndRefusesToExtendThem) {
  const PlainH5::TempDir dir;
  auto file = PlainH5::File::Create(dir / "t.h5");
  file.Strings("scalar.txt", {"whole text"}, {});
  file.Characters("old.txt", std::string("old text\0\0", 10));
  const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
      // name, text read, condition and message of the report over more text
      {"scalar.txt", "whole text", "ndims!=0", "H5_ObjectTxt attempting to append to a *scalar*"},
      {"old.txt", "old text", "!mOldDatatype", "Cannot write new Txt format into old.txt,\nwhich"}};
  for (const auto& [name, expected, condition, message] : cases) {
    Txt txt(name, true, 0);
    txt.OpenObject(file.Id());
    EXPECT_EQ(txt.RetrieveData(), expected);
    txt << "more";
    EXPECT_TRUE(IsReport(ReportOf([&txt] { txt.WriteCache(); }), condition, message)) << name;
    txt.CloseObject();
  }
}

}  // namespace

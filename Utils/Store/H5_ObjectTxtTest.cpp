#include "Utils/Store/H5_ObjectTxt.hpp"

#include <gtest/gtest.h>

#include <tuple>

#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

using H5_Objects::Txt;
using PlainH5::ExpectReport;

using TxtTest = PlainH5::FileTest;

TEST_F(TxtTest, EveryWriteOfTheCacheIsOneMoreString) {
  Txt txt("log.txt", false, 0);
  txt << "step " << 7 << ", t=" << 0.5;
  txt.OpenObject(mFile.Id());
  EXPECT_EQ(txt.GetSize(), 1u) << "text in memory is one more string";
  txt.WriteCache();
  txt.WriteCache();
  txt << "b";
  txt.WriteCache();
  EXPECT_EQ(txt.RetrieveData(), "step 7, t=0.5b");
  // No text is lost without a word.
  txt << std::string("a\0b", 3);
  EXPECT_THROW(txt << static_cast<const char*>(nullptr), std::ios_base::failure);
  ExpectReport([&] { txt.WriteCache(); }, "text.find", "Text of log.txt holds");
  txt.CloseObject();
  EXPECT_EQ(mFile.ReadStrings("log.txt"), (PlainH5::Strings{"step 7, t=0.5", "b"}));
}

TEST_F(TxtTest, KeepsACharacterSetAndChoosesThatOfNewText) {
  const std::tuple<const char*, H5T_cset_t, bool> cases[] = {
      // text, label, whether the dataset exists
      {"\xc3\xa9", H5T_CSET_UTF8, true},  {"plain", H5T_CSET_UTF8, true},
      {"\xc3\xa9", H5T_CSET_ASCII, true}, {"plain", H5T_CSET_ASCII, false},
      {"\xc3\xa9", H5T_CSET_UTF8, false}, {"latin \xe9", H5T_CSET_ASCII, false}};
  for (const auto& [text, set, exists] : cases) {
    const std::string name = std::to_string(&std::get<0>(cases[0]) - &text) + ".txt";
    if (exists) {
      mFile.Strings(name, {"first"}, {1}, set);
    }
    Txt txt(name, exists, 0);
    txt << text;
    txt.OpenObject(mFile.Id());
    txt.WriteCache();
    txt.CloseObject();
    EXPECT_EQ(mFile.CharacterSet(name), set) << text;
    EXPECT_EQ(mFile.ReadStrings(name).back(), text);
  }
}

}  // namespace

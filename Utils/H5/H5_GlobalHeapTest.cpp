#include "Utils/H5/H5_GlobalHeap.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Utils/H5/H5_ObjectTxt.hpp"
#include "Utils/H5/H5_Utils.hpp"
#include "Utils/H5/Handle.hpp"
#include "Utils/H5/TestSupport/PlainH5.hpp"

namespace {

using PlainH5::ReportOf;
using testing::HasSubstr;

using Strings = std::vector<std::string>;

// Reads the text s.txt and the list A of the root of a file that is open for reading only.
std::string ReadText(const std::string& path) {
  const Handle<H5Fclose> file_id(Vexa_H5::OpenFile(path, ReadOnly, 0));
  H5_Objects::Txt txt("s.txt", true, 0);
  txt.OpenObject(file_id);
  std::string text = txt.RetrieveData();
  txt.CloseObject();
  return text;
}
Strings ReadList(const std::string& path) {
  const Handle<H5Fclose> file_id(Vexa_H5::OpenFile(path, ReadOnly, 0));
  const MyVector<std::string> list = Vexa_H5::RetrieveStringsFromAttributes(file_id, "A", false, 0);
  return {list.begin(), list.end()};
}

std::string LittleEndian(std::uint64_t number, std::size_t bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes; ++i) {
    text += static_cast<char>(number >> 8 * i & 0xff);
  }
  return text;
}

class GlobalHeapTest : public testing::Test {
 protected:
  std::string Path() const { return mDir / "s.h5"; }

  // What a file may differ in.
  struct Form {
    hsize_t mUserBlock = 0;
    std::size_t mAddressBytes = 8;
    std::size_t mSizeBytes = 8;
    H5D_layout_t mLayout = H5D_CONTIGUOUS;
    bool mCompress = false;
    const char* mFillValue = nullptr;  // of a text that is not written
    bool mCacheImage = false;
  };
  void Write(const Form& form, const Strings& text, const Strings& list) {
    const PropertyListHandle format(H5Pcreate(H5P_FILE_CREATE));
    H5Pset_userblock(format, form.mUserBlock);
    H5Pset_sizes(format, form.mAddressBytes, form.mSizeBytes);
    const PropertyListHandle access(H5Pcreate(H5P_FILE_ACCESS));
    if (form.mCacheImage) {
      H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
      H5AC_cache_image_config_t image = {H5AC__CURR_CACHE_IMAGE_CONFIG_VERSION, true, false,
                                         H5AC__CACHE_IMAGE__ENTRY_AGEOUT__NONE};
      ASSERT_GE(H5Pset_mdc_image_config(access, &image), 0);
    }
    const Handle<H5Fclose> file(H5Fcreate(Path().c_str(), H5F_ACC_TRUNC, format, access));
    const hsize_t extent = text.size();
    const hsize_t chunk = 2;
    const PropertyListHandle list_id(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_layout(list_id, form.mLayout);
    if (form.mLayout == H5D_CHUNKED) {
      H5Pset_chunk(list_id, 1, &chunk);
    }
    if (form.mCompress) {
      H5Pset_deflate(list_id, 1);
    }
    const DataspaceHandle space(H5Screate_simple(1, &extent, nullptr));
    const DatatypeHandle type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type, H5T_VARIABLE);
    if (form.mFillValue != nullptr) {
      H5Pset_fill_value(list_id, type, &form.mFillValue);
    }
    std::vector<const char*> pointers;
    for (const std::string& string : text) {
      pointers.push_back(string.c_str());
    }
    const DatasetHandle dataset(
        H5Dcreate2(file, "s.txt", type, space, H5P_DEFAULT, list_id, H5P_DEFAULT));
    if (form.mFillValue == nullptr) {
      ASSERT_GE(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, pointers.data()), 0);
    }
    Vexa_H5::AttachStringsToAttributes(file, "A", MyVector<std::string>(list), 0);
  }

  PlainH5::TempDir mDir;
};

TEST_F(GlobalHeapTest, SoundStringsOfEveryFormAreRead) {
  // Some fill collections of their own.
  const Strings text = {"one", "", "three", std::string(5000, 'x'), std::string(70001, 'y'), "six"};
  const Strings list = {"a", "", std::string(4096, 'z'), "bcd"};
  const Form forms[] = {{},
                        {.mUserBlock = 1024},
                        {.mAddressBytes = 4, .mSizeBytes = 4},
                        {.mUserBlock = 512, .mSizeBytes = 4},
                        {.mLayout = H5D_COMPACT},
                        {.mLayout = H5D_CHUNKED},
                        {.mAddressBytes = 4, .mLayout = H5D_CHUNKED, .mCompress = true},
                        {.mCacheImage = true}};
  for (const Form& form : forms) {
    SCOPED_TRACE(std::to_string(&form - forms));
    Write(form, text, list);
    EXPECT_EQ(ReportOf([&] {
                EXPECT_EQ(ReadText(Path()), "onethree" + text[3] + text[4] + "six");
                EXPECT_EQ(ReadList(Path()), list);
              }),
              "");
  }
}

TEST_F(GlobalHeapTest, StringsThatWereNeverWrittenShareTheFillValue) {
  Write({.mFillValue = "fill"}, {"", "", ""}, {});
  EXPECT_EQ(ReadText(Path()), "fillfillfill");
}

// The library keeps some bytes for each index up to the highest.
TEST_F(GlobalHeapTest, ManyCollectionsOfHighIndicesAreRefused) {
  const Strings text(100, "x");
  Write({}, text, {});
  std::string bytes = PlainH5::Bytes(Path());
  const std::string element = LittleEndian(1, 4) + LittleEndian(bytes.find("GCOL"), 8);
  std::size_t at = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    at = bytes.find(element, at);
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at + 4, 12, LittleEndian(bytes.size(), 8) + LittleEndian(65535, 4));
    bytes += "GCOL" + LittleEndian(1, 4) + LittleEndian(4096, 8) + LittleEndian(65535, 8) +
             LittleEndian(1, 8) + LittleEndian('x', 8) + LittleEndian(0, 8) +
             LittleEndian(4096 - 40, 8) + std::string(4096 - 56, '\0');
  }
  std::ofstream(Path(), std::ios::binary) << bytes;
  EXPECT_THAT(ReportOf([&] { ReadText(Path()); }), HasSubstr("claim more strings than they have"));
}

TEST_F(GlobalHeapTest, StringsThatAreNotWhereTheirElementsSayAreRefused) {
  Write({}, {"one", "three", "two"}, {"A0", "list"});
  const std::string sound = PlainH5::Bytes(Path());
  const std::size_t heap = sound.find("GCOL");
  ASSERT_NE(heap, std::string::npos);
  const auto elementOf = [&](const std::string& string) {
    // An object is its index and size, and then the string itself.
    const std::size_t object = sound.find(LittleEndian(string.size(), 8) + string, heap) - 8;
    return sound.find(LittleEndian(string.size(), 4) + LittleEndian(heap, 8) +
                      sound.substr(object, 2));
  };
  const std::string at = std::to_string(heap);
  const struct {
    const char* mWhat;
    std::size_t mAt;
    std::string mBytes;
    std::string mMessage;
  } damages[] = {
      {"shorter", 0, LittleEndian(4, 4), "has 5 characters instead of 4"},
      {"longer", 0, LittleEndian(6, 4), "has 5 characters instead of 6"},
      {"of no length", 0, LittleEndian(0, 4), "has 5 characters instead of 0"},
      {"huge", 0, LittleEndian(0xfffffff0, 4), "has 5 characters instead of 4294967280"},
      {"without address", 4, LittleEndian(0, 8), "a string of 5 characters has no address"},
      {"beside the heap", 4, LittleEndian(heap + 8, 8), "there is no collection of strings at "},
      {"beyond the file", 4, LittleEndian(sound.size(), 8), "is beyond the end of the file"},
      {"far beyond", 4, LittleEndian(~0ULL - 7, 8), "is beyond the end of the file"},
      {"absent", 12, LittleEndian(77, 4), "there is no string 77 in the collection at " + at},
      {"far absent", 12, LittleEndian(~0U, 4), "there is no string 4294967295 in the"}};
  for (const char* string : {"three", "list"}) {
    const std::size_t element = elementOf(string);
    ASSERT_NE(element, std::string::npos);
    for (const auto& damage : damages) {
      SCOPED_TRACE(std::string(string) + " " + damage.mWhat);
      std::string bytes = sound;
      bytes.replace(element + damage.mAt, damage.mBytes.size(), damage.mBytes);
      std::ofstream(Path(), std::ios::binary) << bytes;
      if (string == std::string("three")) {
        EXPECT_THAT(ReportOf([&] { ReadText(Path()); }), HasSubstr(damage.mMessage));
        EXPECT_EQ(ReadList(Path()), (Strings{"A0", "list"}));
      } else if (std::string(damage.mMessage).find("5 characters") == std::string::npos) {
        EXPECT_THAT(ReportOf([&] { ReadList(Path()); }), HasSubstr(damage.mMessage));
        EXPECT_EQ(ReadText(Path()), "onethreetwo");
      }
    }
  }
  std::string bytes = sound;
  bytes.replace(elementOf("one"), 16, sound.substr(elementOf("two"), 16));
  std::ofstream(Path(), std::ios::binary) << bytes;
  EXPECT_THAT(ReportOf([&] { ReadText(Path()); }), HasSubstr("H5Dread failed: two strings are"));
}

TEST_F(GlobalHeapTest, DamagedCollectionsAreRefused) {
  Write({}, {"one", "three", "two"}, {"A0", "list"});
  const std::string sound = PlainH5::Bytes(Path());
  const std::size_t heap = sound.find("GCOL");
  ASSERT_NE(heap, std::string::npos);
  const std::string at = " at " + std::to_string(heap);
  const std::string damagedAtFirst = at + " is damaged at " + std::to_string(heap + 16);
  const struct {
    const char* mWhat;
    std::size_t mAt;
    std::string mBytes;
    std::string mMessage;
  } damages[] = {
      {"signature", 3, "M", "there is no collection of strings" + at},
      {"version", 4, LittleEndian(2, 1), "there is no collection of strings" + at},
      {"huge", 8, LittleEndian(~0ULL, 8), at + " has 18446744073709551615 bytes, its file"},
      {"smaller than its header", 8, LittleEndian(8, 8), at + " has 8 bytes, its file"},
      {"small", 8, LittleEndian(4088, 8), at + " has 4088 bytes, its file"},
      {"index of the next", 16, sound.substr(heap + 40, 2), at + " has string 2 twice"},
      {"free room of no size", 16, std::string(16, '\0'), damagedAtFirst},
      {"huge object", 24, LittleEndian(~0ULL, 8), damagedAtFirst},
      {"object beyond the end", 24, LittleEndian(4096, 8), damagedAtFirst}};
  for (const auto& damage : damages) {
    SCOPED_TRACE(damage.mWhat);
    std::string bytes = sound;
    bytes.replace(heap + damage.mAt, damage.mBytes.size(), damage.mBytes);
    std::ofstream(Path(), std::ios::binary) << bytes;
    EXPECT_THAT(ReportOf([&] { ReadText(Path()); }), HasSubstr("H5Dread failed: "));
    EXPECT_THAT(ReportOf([&] { ReadText(Path()); }), HasSubstr(damage.mMessage));
    EXPECT_THAT(ReportOf([&] { ReadList(Path()); }), HasSubstr(damage.mMessage));
  }
}

}  // namespace

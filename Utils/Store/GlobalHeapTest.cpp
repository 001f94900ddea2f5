#include "Utils/HDF5/GlobalHeap.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"

namespace {

using testing::HasSubstr;

using Strings = std::vector<std::string>;

// A file with the text s.txt and the list A of the root, read while it is open for reading only.
class GlobalHeapTest : public testing::Test {
 protected:
  // What is read, or the report.
  std::string Text() {
    std::string text;
    const std::string report = PlainH5::ReportOf([&] {
      const Vexa_H5::Handle<H5Fclose> file_id(Vexa_H5::OpenFile(mPath, ReadOnly, 0));
      H5_Objects::Txt txt("s.txt", true, 0);
      txt.OpenObject(file_id);
      text = txt.RetrieveData();
      txt.CloseObject();
    });
    return report + text;
  }
  std::string List() {
    std::string list;
    const std::string report = PlainH5::ReportOf([&] {
      const Vexa_H5::Handle<H5Fclose> file_id(Vexa_H5::OpenFile(mPath, ReadOnly, 0));
      for (const auto& text : Vexa_H5::RetrieveStringsFromAttributes(file_id, "A", false, 0)) {
        list += text + ",";
      }
    });
    return report + list;
  }

  PlainH5::TempDir mDir;
  const std::string mPath = mDir / "s.h5";
};

TEST_F(GlobalHeapTest, SoundStringsOfEveryFormAreRead) {
  // Some fill collections of their own.
  const Strings text = {"one", "", "three", std::string(5000, 'x'), std::string(70001, 'y'), "six"};
  const MyVector<std::string> list = {"a", "", std::string(4096, 'z'), "bcd"};
  const struct {
    H5D_layout_t mLayout;
    hsize_t mUserBlock = 0;
    std::size_t mAddressBytes = 8;
    std::size_t mSizeBytes = 8;
    bool mHasCacheImage = false;  // in which the strings are, and not in their place
    bool mIsWritten = true;       // or all strings are the fill value, and share it
  } forms[] = {{H5D_CONTIGUOUS},
               {H5D_COMPACT, 1024},
               {H5D_CHUNKED, 512, 8, 4},
               {H5D_CHUNKED, 0, 4, 8},
               {H5D_CHUNKED, 0, 8, 8, true},
               {H5D_CONTIGUOUS, 0, 8, 8, false, false}};
  for (const auto& form : forms) {
    SCOPED_TRACE(&form - forms);
    {
      const Vexa_H5::PropertyListHandle format(H5Pcreate(H5P_FILE_CREATE));
      H5Pset_userblock(format, form.mUserBlock);
      H5Pset_sizes(format, form.mAddressBytes, form.mSizeBytes);
      const Vexa_H5::PropertyListHandle access(H5Pcreate(H5P_FILE_ACCESS));
      if (form.mHasCacheImage) {
        H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
        H5AC_cache_image_config_t image = {H5AC__CURR_CACHE_IMAGE_CONFIG_VERSION, true, false,
                                           H5AC__CACHE_IMAGE__ENTRY_AGEOUT__NONE};
        ASSERT_GE(H5Pset_mdc_image_config(access, &image), 0);
      }
      const Vexa_H5::Handle<H5Fclose> file(H5Fcreate(mPath.c_str(), H5F_ACC_TRUNC, format, access));
      const hsize_t extent = text.size();
      const hsize_t chunk = 2;
      const Vexa_H5::PropertyListHandle creation(H5Pcreate(H5P_DATASET_CREATE));
      H5Pset_layout(creation, form.mLayout);
      if (form.mLayout == H5D_CHUNKED) {
        H5Pset_chunk(creation, 1, &chunk);
        H5Pset_deflate(creation, 1);
      }
      const Vexa_H5::DataspaceHandle space(H5Screate_simple(1, &extent, nullptr));
      const Vexa_H5::DatatypeHandle type(H5Tcopy(H5T_C_S1));
      H5Tset_size(type, H5T_VARIABLE);
      std::vector<const char*> pointers;
      for (const std::string& string : text) {
        pointers.push_back(string.c_str());
      }
      H5Pset_fill_value(creation, type, pointers.data());
      const Vexa_H5::DatasetHandle dataset(
          H5Dcreate2(file, "s.txt", type, space, H5P_DEFAULT, creation, H5P_DEFAULT));
      if (form.mIsWritten) {
        ASSERT_GE(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, pointers.data()), 0);
      }
      Vexa_H5::AttachStringsToAttributes(file, "A", list, 0);
    }
    EXPECT_EQ(Text(),
              form.mIsWritten ? "onethree" + text[3] + text[4] + "six" : "oneoneoneoneoneone");
    EXPECT_EQ(List(), "a,," + list[2] + ",bcd,");
  }
}

std::string LittleEndian(std::uint64_t number, std::size_t bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes; ++i) {
    text += static_cast<char>(number >> 8 * i & 0xff);
  }
  return text;
}

TEST_F(GlobalHeapTest, DamagedElementsAndCollectionsAreRefused) {
  {
    auto file = PlainH5::File::Create(mPath, true);
    file.Strings("s.txt", {"one", "three", "two"}, {3});
    file.StringAttribute("/", "A", {"A0", "list"});
  }
  const std::string sound = PlainH5::Bytes(mPath);
  const std::size_t heap = sound.find("GCOL");
  ASSERT_NE(heap, std::string::npos);
  const auto elementOf = [&](const std::string& string) {
    // An object is its index and size, and then the string itself.
    const std::size_t object = sound.find(LittleEndian(string.size(), 8) + string, heap) - 8;
    return sound.find(LittleEndian(string.size(), 4) + LittleEndian(heap, 8) +
                      sound.substr(object, 2));
  };
  const std::size_t three = elementOf("three");
  const std::size_t list = elementOf("list");
  ASSERT_TRUE(three != std::string::npos && list != std::string::npos);
  const std::string at = " at " + std::to_string(heap);
  const std::string damagedAtFirst = at + " is damaged at " + std::to_string(heap + 16);
  const struct {
    const char* mWhat;
    std::size_t mAt;
    std::string mBytes;
    std::string mMessage;
  } damages[] = {
      {"shorter", three, LittleEndian(4, 4), "has 5 characters instead of 4"},
      {"longer", three, LittleEndian(6, 4), "has 5 characters instead of 6"},
      {"of no length", three, LittleEndian(0, 4), "has 5 characters instead of 0"},
      {"huge", three, LittleEndian(0xfffffff0, 4), "has 5 characters instead of 4294967280"},
      {"without address", three + 4, LittleEndian(0, 8), "of 5 characters has no address"},
      {"beside the heap", three + 4, LittleEndian(heap + 8, 8), "is no collection of strings at "},
      {"beyond the file", three + 4, LittleEndian(sound.size(), 8), "is beyond the end of the"},
      {"far beyond", three + 4, LittleEndian(~0ULL - 7, 8), "is beyond the end of the file"},
      {"absent", three + 12, LittleEndian(77, 4), "there is no string 77 in the collection" + at},
      {"far absent", three + 12, LittleEndian(~0U, 4), "there is no string 4294967295 in the"},
      {"another's", three, sound.substr(elementOf("one"), 16), "two strings are string"},
      {"absent", list + 12, LittleEndian(77, 4), "there is no string 77 in the collection" + at},
      {"signature", heap + 3, "M", "there is no collection of strings" + at},
      {"version", heap + 4, LittleEndian(2, 1), "there is no collection of strings" + at},
      {"huge", heap + 8, LittleEndian(~0ULL, 8), at + " has 18446744073709551615 bytes, its file"},
      {"smaller than its header", heap + 8, LittleEndian(8, 8), at + " has 8 bytes, its file"},
      {"small", heap + 8, LittleEndian(4088, 8), at + " has 4088 bytes, its file"},
      {"index of the next", heap + 16, sound.substr(heap + 40, 2), at + " has string 2 twice"},
      {"free room of no size", heap + 16, std::string(16, '\0'), damagedAtFirst},
      {"huge object", heap + 24, LittleEndian(~0ULL, 8), damagedAtFirst},
      {"object beyond the end", heap + 24, LittleEndian(4096, 8), damagedAtFirst}};
  for (const auto& [what, place, bytes, message] : damages) {
    SCOPED_TRACE(what);
    std::ofstream(mPath, std::ios::binary)
        << std::string(sound).replace(place, bytes.size(), bytes);
    const bool isInElementOfText = place >= three && place < three + 16;
    const bool isInElementOfList = place >= list && place < list + 16;
    EXPECT_THAT(Text(), isInElementOfList ? HasSubstr("onethreetwo") : HasSubstr(message));
    EXPECT_THAT(List(), isInElementOfText ? HasSubstr("A0,list,") : HasSubstr(message));
  }
}

// Of which small files could have as many as to take gigabytes: the library keeps some bytes for
// each index up to the highest, and reads whole collections.
TEST_F(GlobalHeapTest, CollectionsBeyondWhatAFileHasRoomForAreRefused) {
  const Strings text(100, "x");
  PlainH5::File::Create(mPath, true).Strings("s.txt", text, {text.size()});
  const std::string sound = PlainH5::Bytes(mPath);
  const std::string element = LittleEndian(1, 4) + LittleEndian(sound.find("GCOL"), 8);
  const std::string header = "GCOL" + LittleEndian(1, 4) + LittleEndian(4096, 8);
  const std::string objects = LittleEndian(65535, 8) + LittleEndian(1, 8) + LittleEndian('x', 8) +
                              LittleEndian(0, 8) + LittleEndian(4096 - 40, 8);
  for (const std::size_t distance : {4096, 2048}) {
    std::string bytes = sound;
    const std::size_t first = bytes.size();
    bytes.resize(first + text.size() * 4096);
    std::size_t at = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const std::size_t collection = first + i * distance;
      at = bytes.find(element, at);
      ASSERT_NE(at, std::string::npos);
      bytes.replace(at + 4, 12, LittleEndian(collection, 8) + LittleEndian(65535, 4));
      bytes.replace(collection, 16 + objects.size(), header + objects);
    }
    std::ofstream(mPath, std::ios::binary) << bytes;
    EXPECT_THAT(Text(), HasSubstr(distance == 4096 ? "claim more strings than they have room for"
                                                   : "overlaps with another"));
  }
}

}  // namespace

#include "Utils/HDF5/GlobalHeap.hpp"

#include <gmock/gmock.h>

#include <fstream>

#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Handle.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

namespace {

// The root of a file has the list A, which is read while the file is open for reading only.
class GlobalHeapTest : public testing::Test {
 protected:
  std::string List() const {
    std::string list;
    const Vexa_H5::Handle<H5Fclose> file(Vexa_H5::OpenFile(mPath, ReadOnly, 0));
    for (const auto& text : Vexa_H5::RetrieveStringsFromAttributes(file, "A", false, 0)) {
      list += text + ",";
    }
    return list;
  }

  PlainH5::TempDir mDir;
  const std::string mPath = mDir / "s.h5";
};

TEST_F(GlobalHeapTest, SoundStringsOfEveryFormAreRead) {
  const struct {
    hsize_t mUserBlock;
    std::size_t mAddressBytes;
    std::size_t mSizeBytes;
    bool mHasCacheImage;  // in which the strings are, and not in their place
  } forms[] = {{512, 8, 4, false}, {0, 4, 8, false}, {0, 8, 8, true}};
  for (const auto& [userBlock, addressBytes, sizeBytes, hasCacheImage] : forms) {
    const Vexa_H5::PropertyListHandle format(H5Pcreate(H5P_FILE_CREATE));
    H5Pset_userblock(format, userBlock);
    H5Pset_sizes(format, addressBytes, sizeBytes);
    const Vexa_H5::PropertyListHandle access(H5Pcreate(H5P_FILE_ACCESS));
    if (hasCacheImage) {
      H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
      H5AC_cache_image_config_t image = {H5AC__CURR_CACHE_IMAGE_CONFIG_VERSION, true, false,
                                         H5AC__CACHE_IMAGE__ENTRY_AGEOUT__NONE};
      ASSERT_GE(H5Pset_mdc_image_config(access, &image), 0);
    }
    const std::string large(70001, 'y');  // which fills a collection of its own
    Vexa_H5::Handle<H5Fclose> file(H5Fcreate(mPath.c_str(), H5F_ACC_TRUNC, format, access));
    Vexa_H5::AttachStringsToAttributes(file, "A", {"a", "", large, "bc"}, 0);
    file.Close();
    EXPECT_EQ(List(), "a,," + large + ",bc,") << addressBytes << sizeBytes;
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
  PlainH5::File::Create(mPath, true).StringAttribute("/", "A", {"one", "three", "two"});
  const std::string sound = PlainH5::Bytes(mPath);
  const std::size_t heap = sound.find("GCOL");
  ASSERT_NE(heap, std::string::npos);
  // The elements stand together, each with its length and its place: collection and index.
  const std::size_t one = sound.find(LittleEndian(3, 4) + LittleEndian(heap, 8));
  ASSERT_NE(one, std::string::npos);
  const std::size_t three = one + 16;
  const std::string at = " at " + std::to_string(heap);
  const std::string damagedAtFirst = at + " is damaged at " + std::to_string(heap + 16);
  const struct {
    std::size_t mAt;
    std::string mBytes;
    std::string mMessage;
  } damages[] = {
      {three, LittleEndian(4, 4), "has 5 characters instead of 4"},
      {three + 4, LittleEndian(0, 8), "of 5 characters has no address"},
      {three + 4, LittleEndian(~0ULL - 7, 8), "is beyond the end of the file"},
      {three + 12, LittleEndian(77, 4), "there is no string 77 in the collection" + at},
      {three, sound.substr(one, 16), "two strings are string"},
      {heap + 4, LittleEndian(2, 1), "there is no collection of strings" + at},
      {heap + 8, LittleEndian(~0ULL, 8), at + " has 18446744073709551615 bytes, its file"},
      {heap + 16, sound.substr(heap + 40, 2), at + " has string 2 twice"},
      {heap + 16, std::string(16, '\0'), damagedAtFirst},  // free room of no size
      {heap + 24, LittleEndian(4096, 8), damagedAtFirst}};
  for (const auto& [place, bytes, message] : damages) {
    SCOPED_TRACE(message);
    std::ofstream(mPath, std::ios::binary)
        << std::string(sound).replace(place, bytes.size(), bytes);
    EXPECT_THAT(PlainH5::ReportOf([this] { List(); }), testing::HasSubstr(message));
  }
}

}  // namespace

#include "Utils/HDF5/H5_Utils.hpp"

#include <gtest/gtest.h>

#include "Utils/HDF5/ExternalFiles.hpp"
#include "Utils/HDF5/FilePieces.hpp"
#include "Utils/HDF5/StoredChunks.hpp"
#include "Utils/HDF5/TestSupport/PlainH5.hpp"

using namespace Vexa_H5;

namespace {

// Writes a list "L" with a type of the caller's own.
void WriteList(hid_t id, hid_t type, hsize_t size, const void* values) {
  const DataspaceHandle space(H5Screate_simple(1, &size, nullptr));
  const AttributeHandle attribute(H5Acreate2(id, "L", type, space, H5P_DEFAULT, H5P_DEFAULT));
  EXPECT_GE(H5Awrite(attribute, type, values), 0);
}

using UtilsTest = PlainH5::FileTest;

TEST_F(UtilsTest, AttributesSurviveAndThoseOfOthersAreRead) {
  const hid_t id = mFile.Id();
  const MyVector<std::string> lists[] = {{}, {""}, {"time", "", "a b", "\xc3\xa9"}};
  for (const MyVector<std::string>& list : lists) {
    AttachStringsToAttributes(id, "L", list, 0);
    EXPECT_EQ(RetrieveStringsFromAttributes(id, "L", false, 0), list);
    EXPECT_EQ(mFile.ReadStringAttribute("/", "L"), PlainH5::Strings(list.begin(), list.end()));
    H5Adelete(id, "L");
  }
  const DatatypeHandle fixed(H5Tcopy(H5T_C_S1));
  H5Tset_size(fixed, 3);
  for (const H5T_str_t padding : {H5T_STR_NULLPAD, H5T_STR_SPACEPAD}) {
    H5Tset_strpad(fixed, padding);
    WriteList(id, fixed, 3, padding == H5T_STR_SPACEPAD ? "abcab    " : "abcab\0\0\0");
    EXPECT_EQ(RetrieveStringsFromAttributes(id, "L", false, 0),
              (MyVector<std::string>{"abc", "ab", ""}));
    H5Adelete(id, "L");
  }
  EXPECT_EQ(RetrieveStringsFromAttributes(id, "L", true, 0).size(), 0u);
  AttachAttributes<unsigned long>(id, "L", {1, ~0UL}, 0);
  EXPECT_EQ(RetrieveAttributes<unsigned long>(id, "L", false, 0),
            (std::vector<unsigned long>{1, ~0UL}));
}

TEST(ExternalFilesTest, AreThoseThatLinksOfAFileLeadTo) {
  const PlainH5::TempDir dir;
  PlainH5::File::Create(dir / "c.h5").Group("g");
  PlainH5::File::Create(dir / "plain.h5").Group("g");
  for (const auto& [from, to] : {std::pair("b.h5", "c.h5"), {"a.h5", "b.h5"}}) {
    const auto file = PlainH5::File::Create(dir / from);
    H5Lcreate_external(to, "g", file.Id(), "g", H5P_DEFAULT, H5P_DEFAULT);
  }
  for (const char* const name : {"a.h5", "plain.h5"}) {
    const Handle<H5Fclose> file(OpenFile(dir / name, ReadOnly, 0));
    const GroupHandle group(H5Gopen2(file, "g", GroupAccess()));
    NoteOpened(group);
  }
  std::string found;
  for (const auto& [path, stamp] : ExternalFilesOf(dir / "a.h5")) {
    found += path + (stamp == Vexa::FileStamp(path) ? "\n" : " has another stamp\n");
  }
  EXPECT_EQ(found, (dir / "b.h5") + "\n" + (dir / "c.h5") + "\n");
}

TEST(StoredChunksTest, APlaceForEachChunkThatIsBegun) {
  EXPECT_EQ((ChunkGrid{{10, 3}, {4, 3}}).Places(), 3);
  EXPECT_EQ((ChunkGrid{{8, 3}, {}}).Places(), 0);
}

TEST(FilePiecesTest, TheLatestBytesCount) {
  FilePieces pieces;
  std::string file(40, '.');
  const auto write = [&](std::size_t at, std::size_t size, char byte) {
    const std::string bytes(size, byte);
    pieces.Write(at, reinterpret_cast<const unsigned char*>(bytes.data()), size);
    file.replace(at, size, bytes);
  };
  const auto overlaid = [&] {
    std::string read(40, '.');
    pieces.Overlay(0, reinterpret_cast<unsigned char*>(read.data()), read.size());
    return read;
  };
  write(10, 5, 'a');
  write(20, 5, 'b');
  write(30, 5, 'c');
  write(8, 15, 'd');  // covers one piece and reaches into the next
  write(25, 2, 'e');  // just behind it
  EXPECT_EQ(overlaid(), file);
  EXPECT_EQ(pieces.Size(), 24u);
  EXPECT_FALSE(pieces.Overlaps(27, 3));
  EXPECT_TRUE(pieces.Overlaps(26, 1));
  pieces.Cut(32);
  EXPECT_EQ(pieces.TakeFrom(20).Size(), 2u);
  EXPECT_EQ(overlaid(), file.substr(0, 27) + std::string(13, '.'));
}

}  // namespace

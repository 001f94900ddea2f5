#include "Executables/Kelmor/Tests/BadInputs.hpp"

#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"
#include "Utils/ChunkCodec/ChunkEncoder.hpp"
#include "Utils/H5/Handle.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using PlainH5::Rows;
using Builder = std::function<void(const std::string& path)>;

constexpr double sNaN = std::numeric_limits<double>::quiet_NaN();

// Builders of an HDF5 file in which one thing is wrong.
Builder In(const std::function<void(File&)>& write) {
  return [write](const std::string& path) {
    File file = File::Create(path);
    write(file);
  };
}
Builder Coef(const Rows& index, std::size_t values = 4) {
  return In([=](File& file) { WriteCoef(file, "/c.coef", index, Count(0, values)); });
}
Builder Tdm(const Rows& index, std::size_t values = 12,
            const std::string& spec = sTwoDimensionalSpec) {
  return In([=](File& file) { WriteTdm(file, "/t.tdm", index, Count(0, values), spec); });
}
Builder Spec(const std::string& spec) {
  return Tdm({{0, 12, 2, 2}}, 12, spec);
}
Builder Shape(const std::string& dim, const std::string& symm, const std::string& meshDim) {
  return Spec("TensorDim=" + dim + "; TensorSymm=" + symm + "; DataMeshDim=" + meshDim + ";");
}
// A dataset of any extents that nobody wrote to.
Builder NoData(const char* path, const std::vector<hsize_t>& dims, hid_t type) {
  return In([=](File& file) {
    const int rank = static_cast<int>(dims.size());
    const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(list, rank, std::vector<hsize_t>(dims.size(), 1024).data());
    const DataspaceHandle space(H5Screate_simple(
        rank, dims.data(), std::vector<hsize_t>(dims.size(), H5S_UNLIMITED).data()));
    const DatasetHandle dataset(
        H5Dcreate2(file.Id(), path, type, space, H5P_DEFAULT, list, H5P_DEFAULT));
    EXPECT_GE(dataset, 0);
  });
}

void DamageChunkOf(std::size_t rows, const std::string& path) {
  haddr_t address = 0;
  hsize_t size = 0;
  {
    File file = File::Create(path);
    file.Table("/x.dat", TaggedRows(std::vector<double>(rows, 1), 1),
               {.mChunk = {rows, 1}, .mCompress = true});
    const DatasetHandle dataset(H5Dopen2(file.Id(), "/x.dat", H5P_DEFAULT));
    const DataspaceHandle space(H5Dget_space(dataset));
    hsize_t offset[2] = {};
    unsigned mask = 0;
    EXPECT_GE(H5Fflush(file.Id(), H5F_SCOPE_LOCAL), 0);
    EXPECT_GE(H5Dget_chunk_info(dataset, space, 1, offset, &mask, &address, &size), 0);
  }
  std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
  stream.seekp(static_cast<std::streamoff>(address + size / 2));
  stream.put('\x5a').put('\xa5');
}

void DamageChunk(const std::string& path) {
  DamageChunkOf(1000, path);
}

// One that is decoded when its file is closed again.
void DamageLongChunk(const std::string& path) {
  DamageChunkOf(100000, path);
}

// A chunk that no filter made, with fewer bytes than its values have. Only files of the older
// format tell so.
void CutChunk(const std::string& path) {
  const Handle<H5Fclose> file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
  const hsize_t extents[2] = {4, 2};
  const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_chunk(list, 2, extents);
  const DataspaceHandle space(H5Screate_simple(2, extents, nullptr));
  const DatasetHandle dataset(
      H5Dcreate2(file, "/x.dat", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
  const hsize_t offset[2] = {};
  const double values[2] = {0, 1};
  EXPECT_GE(H5Dwrite_chunk(dataset, H5P_DEFAULT, 0, offset, sizeof(values), values), 0);
}

// A chunk that the library has to decode, for it holds two columns, and that inflates to half of
// what it should.
void DeflateHalfAChunk(File& file) {
  const hsize_t extents[2] = {4, 2};
  const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_chunk(list, 2, extents);
  H5Pset_deflate(list, 1);
  const DataspaceHandle space(H5Screate_simple(2, extents, nullptr));
  const DatasetHandle dataset(
      H5Dcreate2(file.Id(), "/x.dat", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
  const double values[4] = {0, 1, 2, 3};
  const std::vector<std::byte> stored = ChunkCodec::EncodeChunk(values, {.mDeflate = true});
  const hsize_t offset[2] = {};
  EXPECT_GE(H5Dwrite_chunk(dataset, H5P_DEFAULT, 0, offset, stored.size(), stored.data()), 0);
}

// A filter whose damage the library does not notice.
void ScaleOffset(File& file) {
  const hsize_t extents[2] = {4, 2};
  const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
  H5Pset_chunk(list, 2, extents);
  H5Pset_scaleoffset(list, H5Z_SO_INT, 0);
  const DataspaceHandle space(H5Screate_simple(2, extents, nullptr));
  const DatasetHandle dataset(
      H5Dcreate2(file.Id(), "/x.dat", H5T_NATIVE_INT, space, H5P_DEFAULT, list, H5P_DEFAULT));
  const int values[8] = {};
  EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values), 0);
}

// A string whose element claims another length.
void LengthenString(const std::string& path) {
  {
    File file = File::Create(path);
    file.Strings("/s.txt", {"text"}, {1});
  }
  std::string bytes = PlainH5::Bytes(path);
  const std::uint32_t length = 4;
  const std::uint64_t heap = bytes.find("GCOL");
  std::string element(12, '\0');
  std::memcpy(element.data(), &length, sizeof(length));
  std::memcpy(element.data() + sizeof(length), &heap, sizeof(heap));
  bytes.at(bytes.find(element) + 3) = '\x7f';
  std::ofstream(path, std::ios::binary) << bytes;
}

// A virtual table that is made of itself; or one, or a text, whose values are in another file.
void IsItsOwnSource(File& file) {
  const hsize_t extents[2] = {4, 2};
  const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
  const DataspaceHandle space(H5Screate_simple(2, extents, nullptr));
  EXPECT_GE(H5Pset_virtual(list, space, ".", "/x.dat", space), 0);
  const DatasetHandle dataset(
      H5Dcreate2(file.Id(), "/x.dat", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT));
  EXPECT_GE(dataset, 0);
}
Builder IsElsewhere(const char* path, const std::vector<hsize_t>& dims, hid_t type) {
  return In([=](File& file) {
    const PropertyListHandle list(H5Pcreate(H5P_DATASET_CREATE));
    EXPECT_GE(H5Pset_external(list, "/dev/zero", 0, H5F_UNLIMITED), 0);
    const DataspaceHandle space(
        H5Screate_simple(static_cast<int>(dims.size()), dims.data(), nullptr));
    const DatasetHandle dataset(
        H5Dcreate2(file.Id(), path, type, space, H5P_DEFAULT, list, H5P_DEFAULT));
    EXPECT_GE(dataset, 0);
  });
}

// Where an absolute path leads nowhere, its last part is looked for beside the file.
void LinkToFifo(const std::string& path) {
  const std::string fifo = path + ".fifo";
  mkfifo(fifo.c_str(), 0600);
  File file = File::Create(path);
  const std::string nowhere = "/nowhere/" + fs::path(fifo).filename().string();
  EXPECT_GE(
      H5Lcreate_external(nowhere.c_str(), "/x.dat", file.Id(), "/x.dat", H5P_DEFAULT, H5P_DEFAULT),
      0);
}

// Twenty groups, each linked twice in the one before: a million names in a small file.
void LinkTwiceEach(File& file) {
  std::string group = "/G0.dir";
  file.Group(group);
  for (int i = 0; i < 20; ++i) {
    const std::string inner = group + "/A.dir";
    file.Group(inner);
    EXPECT_GE(H5Lcreate_hard(file.Id(), inner.c_str(), file.Id(), (group + "/B.dir").c_str(),
                             H5P_DEFAULT, H5P_DEFAULT),
              0);
    group = inner;
  }
}

Builder Table(const char* path, const Rows& rows, const Strings& legend = {}) {
  return In([=](File& file) { file.Table(path, rows, {.mLegend = legend}); });
}
Builder Text(const char* path, const Strings& strings, const std::vector<hsize_t>& dims) {
  return In([=](File& file) { file.Strings(path, strings, dims); });
}
Builder Version(const Strings& strings, const std::vector<hsize_t>& dims, int number) {
  return In([=](File& file) {
    file.Strings("/v.ver", strings, dims);
    file.VersionNumber("/v.ver", static_cast<unsigned long long>(number));
  });
}
Builder Bytes(const char* bytes) {
  return [=](const std::string& path) { std::ofstream(path) << bytes; };
}
void Truncated(const std::string& path) {
  Table("/x.dat", {{0, 1}})(path);
  fs::resize_file(path, fs::file_size(path) / 2);
}
Builder Group(const char* path) {
  return In([=](File& file) { file.Group(path); });
}
Builder Link(const std::string& target, const std::string& link, bool isSoft) {
  return In([=](File& file) {
    file.Group("/A.dir/B.dir");
    const herr_t err =
        isSoft ? H5Lcreate_soft(target.c_str(), file.Id(), link.c_str(), H5P_DEFAULT, H5P_DEFAULT)
               : H5Lcreate_hard(file.Id(), target.c_str(), file.Id(), link.c_str(), H5P_DEFAULT,
                                H5P_DEFAULT);
    EXPECT_GE(err, 0);
  });
}

}  // namespace

const std::vector<BadInput>& BadInputs() {
  const hid_t doubles = H5T_NATIVE_DOUBLE;
  const hsize_t many = hsize_t{1} << 40;
  static const std::vector<BadInput> inputs = {
      // Offsets into the values of a set.
      {"negative", "/c.coef", Coef({{0, -1}, {1, 4}}), "holds the offset -1"},
      {"negative zero is 0", "/c.coef", Coef({{0, -0.0}}), "ends at 0, but there are 4"},
      {"not a number", "/c.coef", Coef({{0, sNaN}, {1, 4}}), "holds the offset nan"},
      {"not whole", "/c.coef", Coef({{0, 1.5}, {1, 4}}), "holds the offset 1.5"},
      {"decreasing", "/c.coef", Coef({{0, 3}, {1, 2}, {2, 4}}), "decreases from 3 to 2"},
      {"past the values", "/c.coef", Coef({{0, 5}}), "holds the offset 5, but there are 4"},
      {"short of the values", "/c.coef", Coef({{0, 3}}), "ends at 3, but there are 4 values"},
      {"values without steps", "/c.coef", Coef({}), "ends at 0, but there are 4 values"},
      {"enormous", "/c.coef", Coef({{0, 1e300}}), "holds the offset 1e+300"},
      {"2^64", "/c.coef", Coef({{0, 18446744073709551616.0}}), "holds the offset 1.8"},
      {"tensors past them", "/t.tdm", Tdm({{0, 13, 2, 2}}), "holds the offset 13"},
      {"not a number", "/t.tdm", Tdm({{0, sNaN, 2, 2}}), "holds the offset nan"},
      {"no index", "/c.coef", Table("/c.coef/coefs.dat", {{0}}), "mName=index.dat, h5_exists=0"},
      {"no values", "/c.coef", Table("/c.coef/index.dat", {{0, 1}}), "mName=coefs.dat, h5_exists"},
      // Meshes.
      {"negative extents", "/t.tdm", Tdm({{0, 12, -2, -2}}), "holds the mesh extent -2"},
      {"not whole", "/t.tdm", Tdm({{0, 12, 2.5, 2}}), "holds the mesh extent 2.5"},
      {"not a number", "/t.tdm", Tdm({{0, 12, sNaN, 2}}), "holds the mesh extent nan"},
      {"enormous", "/t.tdm", Tdm({{0, 12, 1e300, 2}}), "holds the mesh extent 1e+300"},
      {"overflow", "/t.tdm", Tdm({{0, 12, 2147483647, 2147483647}}), "has too many points"},
      {"larger than the step", "/t.tdm", Tdm({{0, 12, 2, 3}}), "of 6 points, offset[0]=12"},
      {"half a tensor", "/t.tdm", Tdm({{0, 11, 2, 2}, {1, 12, 0, 0}}), "points, offset[0]=11"},
      {"one dimension less", "/t.tdm", Tdm({{0, 12, 4}}), "has 3 columns instead of 4"},
      {"one more", "/t.tdm", Tdm({{0, 12, 2, 2, 1}}), "has 5 columns instead of 4"},
      // Structures of tensors.
      {"absent", "/t.tdm", Spec(""), "H5Aopen failed"},
      {"empty", "/t.tdm", Spec(" # none"), "KEY NOT FOUND"},
      {"no options", "/t.tdm", Spec("3"), "NO EQUALS SIGN"},
      {"no key", "/t.tdm", Spec("TensorDim=3; DataMeshDim=2;"), "\"TensorSymm\" requested"},
      {"extra key", "/t.tdm", Spec(std::string(sTwoDimensionalSpec) + "More=1;"), "=== More\n"},
      {"key twice", "/t.tdm", Spec(std::string(sTwoDimensionalSpec) + "TensorDim=3;"),
       "DUPLICATE KEY"},
      {"text", "/t.tdm", Shape("x", "1", "2"), "While parsing the key 'TensorDim'"},
      {"past an int", "/t.tdm", Shape("1e30", "1", "2"), "While parsing the key 'TensorDim'"},
      {"negative", "/t.tdm", Shape("-3", "1", "2"), "must be positive, got -3"},
      {"enormous", "/t.tdm", Shape("2000000000", "12", "2"), "has too many components"},
      {"negative mesh", "/t.tdm", Shape("3", "1", "-1"), "got -1"},
      {"enormous mesh", "/t.tdm", Shape("3", "1", "2000000000"), "got 2000000000"},
      {"long", "/t.tdm", Shape("3", std::string(200, '1'), "2"), "20 indices, got 200"},
      // Objects that are not what their names say.
      {"group as table", "/x.dat", Group("/x.dat"), "Opening of dataset x.dat failed"},
      {"group as text", "/s.txt", Group("/s.txt"), "H5Dopen2 failed"},
      {"table as group", "/A.dir", Table("/A.dir", {{0, 1}}), "H5Gopen2 failed"},
      {"table as set", "/c.coef", Table("/c.coef", {{0, 1}}), "H5Gopen2 failed"},
      {"vector", "/x.dat", NoData("/x.dat", {5}, doubles), "Dimension mismatch."},
      {"table of texts", "/x.dat", Text("/x.dat", {"a", "b"}, {1, 2}), "H5Dread failed"},
      {"table of texts", "/s.txt", Text("/s.txt", {"a", "b"}, {1, 2}), "of 0 or 1, got 2"},
      {"text of fixed length", "/s.txt", NoData("/s.txt", {5}, H5T_C_S1), "of fixed length"},
      {"short chunk", "/x.dat", CutChunk, "Damaged chunks in x.dat: 16 bytes"},
      {"text of numbers", "/s.txt", NoData("/s.txt", {5}, doubles), "H5Dread failed: expected"},
      {"vector", "/v.ver", Version({"a"}, {1}, 1), "Expected dim of 2, got 1"},
      {"three columns", "/v.ver", Version({"a", "b", "c"}, {1, 3}, 1), "dims[1]==2"},
      {"wrong number", "/v.ver", Version({"a", "b"}, {1, 2}, 3), "CurrentVersion = 3, expected 1"},
      {"no number", "/v.ver", Text("/v.ver", {"a", "b"}, {1, 2}), "H5Aopen failed"},
      {"short legend", "/x.dat", Table("/x.dat", {{0, 1}}, {"t"}), "internal consistency error"},
      {"no columns", "/x.dat", NoData("/x.dat", {3, 0}, doubles), "Dataset /x.dat has"},
      {"2^40 rows", "/x.dat", NoData("/x.dat", {many, 2}, doubles), "x.dat claims 1.7"},
      {"2^40 columns", "/x.dat", NoData("/x.dat", {2, many}, doubles), "x.dat claims 109951162"},
      {"2^40 letters", "/s.txt", NoData("/s.txt", {many}, H5T_NATIVE_SCHAR), "s.txt claims 1.0"},
      {"damage", "/x.dat", DamageChunk,
       "H5Dread failed for name=x.dat: damaged chunk at row 0 of column 1"},
      {"late damage", "/x.dat", DamageLongChunk,
       "H5Dread failed for name=x.dat: damaged chunk at row 0 of column 1"},
      {"half a chunk", "/x.dat", In(DeflateHalfAChunk),
       "H5Dread failed for name=x.dat: damaged chunk at row 0 of column 0: too few values"},
      {"scale-offset", "/x.dat", In(ScaleOffset), "with other filters than shuffle, deflate and"},
      {"2^31 characters", "/s.txt", LengthenString, "has 4 characters instead of 2130706436"},
      {"its own source", "/x.dat", In(IsItsOwnSource), "x.dat has its values in other files"},
      {"external", "/x.dat", IsElsewhere("/x.dat", {4, 2}, doubles), "has its values in other"},
      {"external", "/s.txt", IsElsewhere("/s.txt", {4}, H5T_NATIVE_CHAR), "has its values in oth"},
      // Groups and links.
      {"cycle", "/A.dir/B.dir/C.dir", Link("/A.dir", "/A.dir/B.dir/C.dir", false),
       "itself through"},
      {"soft cycle", "/A.dir/S.dir", Link("/A.dir", "/A.dir/S.dir", true), "itself through a link"},
      {"cycle of the root", "/R.dir", Link("/", "/R.dir", true), "contains itself through a link"},
      {"link to itself", "/A.dir/x.dat", Link("/A.dir/x.dat", "/A.dir/x.dat", true), "Opening of"},
      {"link to nothing", "/C.dir", Link("/nothing", "/C.dir", true), "H5Gopen2 failed"},
      {"multiplying", "", In(LinkTwiceEach), "leads to more objects than it has room for"},
      {"link to a FIFO", "/x.dat", LinkToFifo, "Opening of"},
      {"no extension", "", Group("/A.dir/plain"), "create H5_Object node with name 'plain'"},
      {"unknown", "", Table("/A.dir/x.data", {{0}}), "these unidentified objects:\nx.data"},
      // No HDF5 file.
      {"text", "", Bytes("text"), "H5Fopen("},
      {"empty", "", Bytes(""), "H5Fopen("},
      {"truncated", "", Truncated, "H5Fopen("},
      {"directory", "", [](const auto& path) { fs::create_directory(path); }, "not a regular file"},
      {"FIFO", "", [](const auto& path) { mkfifo(path.c_str(), 0600); }, "not a regular file"},
      {"dangling", "", [](const auto& path) { fs::create_symlink("gone", path); }, "not found"},
  };
  return inputs;
}

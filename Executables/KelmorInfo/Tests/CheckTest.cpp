#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"
#include "Utils/HDF5/Handle.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using testing::HasSubstr;

class CheckTest : public InfoFixture {
 protected:
  void WriteInputs() {
    for (int k = 0; k < 3; ++k) {
      File& file = Input(std::to_string(k) + ".h5");
      const double t = 2.5 * k;
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
      WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 7}}, Count(10 * k, 7));
      WriteTdm(file, "/t.tdm", {{t, 12, 2, 2}, {t + 3, 15, 1, 1}}, Count(10 * k, 15));
      file.Strings("/s.txt", {"text", std::to_string(k)}, {2});
      file.Strings("/empty.txt", {""}, {1});
      file.Table("/empty.dat", {}, {}, 3);
      file.Version("/V.ver", 2);
    }
  }

  // Changes the joined file.
  void Mutate(const std::function<void(hid_t file)>& change) {
    const Vexa_H5::Handle<H5Fclose> file(
        H5Fopen(Path("out.h5").c_str(), H5F_ACC_RDWR, H5P_DEFAULT));
    ASSERT_GE(file, 0);
    change(file);
  }
};

using Change = std::function<void(hid_t)>;

// One number of a table replaced.
Change Set(const char* table, hsize_t row, hsize_t column, double value) {
  return [=](hid_t file) {
    const Vexa_H5::DatasetHandle dataset(H5Dopen2(file, table, H5P_DEFAULT));
    const Vexa_H5::DataspaceHandle space(H5Dget_space(dataset));
    const Vexa_H5::DataspaceHandle one(H5Screate(H5S_SCALAR));
    const hsize_t at[2] = {row, column};
    EXPECT_GE(H5Sselect_elements(space, H5S_SELECT_SET, 1, at), 0);
    EXPECT_GE(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, one, space, H5P_DEFAULT, &value), 0);
  };
}

// All strings of a dataset or an attribute replaced.
Change Rewrite(const char* path, const char* attribute, std::vector<const char*> strings) {
  return [=](hid_t file) {
    const Vexa_H5::DatatypeHandle type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type, H5T_VARIABLE);
    const Vexa_H5::Handle<H5Oclose> object(H5Oopen(file, path, H5P_DEFAULT));
    if (attribute == nullptr) {
      EXPECT_GE(H5Dwrite(object, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, strings.data()), 0);
    } else {
      const Vexa_H5::AttributeHandle handle(H5Aopen(object, attribute, H5P_DEFAULT));
      EXPECT_GE(H5Awrite(handle, type, strings.data()), 0);
    }
  };
}

Change Remove(const char* path) {
  return [=](hid_t file) { EXPECT_GE(H5Ldelete(file, path, H5P_DEFAULT), 0); };
}

Change Copy(const char* from, const char* to) {
  return [=](hid_t file) { EXPECT_GE(H5Ocopy(file, from, file, to, H5P_DEFAULT, H5P_DEFAULT), 0); };
}

TEST_F(CheckTest, TheFirstDifferenceIsTold) {
  WriteInputs();
  Join({"0.h5", "1.h5", "2.h5"});
  fs::rename(Path("out.h5"), Path("joined.h5"));
  const std::pair<Change, const char*> cases[] = {
      {Set("/A.dir/x.dat", 4, 1, 102.5),
       "/A.dir/x.dat differs in column 1 (value): row 4 of out.h5 has 102.5, "
       "step 1 (t = 3.5) of 1.h5 has 101\n"},
      {Set("/A.dir/x.dat", 0, 0, -0.0), "row 0 of out.h5 has -0, step 0 (t = 0) of 0.h5 has 0\n"},
      {Set("/c.coef/coefs.dat", 3, 0, -1),
       "/c.coef differs: row 3 of out.h5 has -1, value 1 of step 0 (t = 2.5) of 1.h5 has 11\n"},
      {Set("/c.coef/index.dat", 0, 0, -0.0), "/c.coef: the time of step 0 is -0 in out.h5"},
      {[](hid_t file) {
         Set("/t.tdm/index.dat", 0, 2, 4)(file);
         Set("/t.tdm/index.dat", 0, 3, 1)(file);
       },
       "/t.tdm: the extent 0 of the mesh of step 0 is 4 in out.h5, but should be 2\n"},
      {Rewrite("/A.dir/x.dat", "Legend", {"time", "other"}),
       "/A.dir/x.dat: the legend is (time,other) in out.h5, but should be (time,value)\n"},
      {Rewrite("/V.ver", nullptr, {"hash0", "help0", "hash1", "other"}),
       "/V.ver: the text of entry 1 is other in out.h5, but should be help1\n"},
      {Rewrite("/s.txt", nullptr, {"text0texX1text2"}),
       "/s.txt differs at character 8 of out.h5, which is character 3 of 1.h5\n"},
      {Rewrite("/s.txt", nullptr, {"text0text1text2+"}),
       "/s.txt: the length of the text is 16 in out.h5, but should be 15\n"},
      {Remove("/empty.dat"), "/empty.dat is in 0.h5, but not in out.h5\n"},
      {Copy("/s.txt", "/more.txt"), "/more.txt is in out.h5, but not among what is joined\n"},
      {Copy("/s.txt", "/empty.txt"), "/empty.txt is in out.h5, but all inputs of it are empty\n"},
  };
  for (const auto& [change, text] : cases) {
    fs::remove(Path("out.h5"));
    fs::copy_file(Path("joined.h5"), Path("out.h5"));
    Mutate(change);
    EXPECT_THAT(Print({"-check", "out.h5", "0.h5", "1.h5", "2.h5"}, 1), HasSubstr(text));
  }
  EXPECT_THAT(Print({"-check", "joined.h5", "-NoWipe", "0.h5", "1.h5", "2.h5"}, 1),
              HasSubstr("/A.dir/x.dat: the number of steps is 10 in joined.h5, but should be 12"));
}

}  // namespace

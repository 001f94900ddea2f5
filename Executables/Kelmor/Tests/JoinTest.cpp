// What runs of the tool are compared with here is told or counted; what they join is compared with
// an independent join in Stress/.
#include <gmock/gmock.h>

#include <filesystem>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"
#include "Executables/Series/Inputs.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

namespace {

using PlainH5::File;
using testing::HasSubstr;

class JoinTest : public KelmorFixture {};

// Its columns would come from two files.
TEST_F(JoinTest, FilesThatChangeWhileTheyAreReadAreNoticed) {
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) {
    WriteTimes(Input(std::to_string(i)), "/x.dat", {0, 1, 2});
    names.push_back(Path(std::to_string(i)));
  }
  for (const char* name : {"other", "far"}) {
    WriteTimes(Input(name), "/x.dat", {0, 1, 2});
  }
  H5Lcreate_external("far", "x.dat", Input("0").Id(), "y.dat", H5P_DEFAULT, H5P_DEFAULT);
  CloseInputs();
  Inputs inputs{MyVector<std::string>(names)};
  const auto read = [&inputs] {
    inputs.Visit<H5_Objects::Dat>(39, "/x.dat", [](const auto& dat) { dat.RetrieveTimes(); });
  };
  read();
  std::filesystem::rename(Path("other"), names.back());
  EXPECT_THAT(PlainH5::ReportOf(read), HasSubstr("The file has changed since"));
  std::filesystem::last_write_time(names[1], {});
  inputs.Visit<H5_Objects::Dat>(0, "/y.dat", [](const auto& dat) { dat.RetrieveTimes(); });
  std::filesystem::resize_file(Path("far"), 100);
  EXPECT_THAT(PlainH5::ReportOf([&inputs] { inputs.RequireUnchanged(); }),
              HasSubstr("\n" + names[1] + "\n" + names.back() + "\n" + Path("far") + "\n"));
}

TEST_F(JoinTest, FilesThatDisagreeAreToldTogether) {
  Arguments arguments = {"-o", "out.h5"};
  for (const std::string name :
       {"a.h5", "b.h5", "c.h5", "d.h5", "e.h5", "f.h5", "g.h5", "h.h5", "i.h5"}) {
    arguments.push_back(name);
    Input(name).Table("/x.dat", {std::vector<double>(name < "f" ? 2 : 3)});
  }
  EXPECT_THAT(Run(arguments).mReports,
              HasSubstr("in different files.\n2 columns in " + Path("a.h5") + ", " + Path("b.h5") +
                        ", " + Path("c.h5") + " and 2 more\n3 columns in " + Path("f.h5") + ", " +
                        Path("g.h5") + ", " + Path("h.h5") + ", " + Path("i.h5") + "\n"));
}

}  // namespace

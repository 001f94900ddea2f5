#include <gmock/gmock.h>

#include <filesystem>

#include "Executables/Kelmor/Tests/BadInputs.hpp"
#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

namespace fs = std::filesystem;
using PlainH5::File;
using testing::HasSubstr;

class BadInputTest : public KelmorFixture {};

TEST_F(BadInputTest, EndsInAReportThatNamesIt) {
  File& file = Input("good.h5");
  WriteTimes(file, "/x.dat", {0, 1});
  WriteTimes(file, "/A.dir/x.dat", {0, 1});
  WriteCoef(file, "/c.coef", {{-1, 4}}, Count(0, 4));
  WriteTdm(file, "/t.tdm", {{-1, 12, 2, 2}}, Count(0, 12), sTwoDimensionalSpec);
  file.Strings("/s.txt", {"good"}, {1});
  Join({"good.h5"});
  for (const BadInput& bad : BadInputs()) {
    SCOPED_TRACE(bad.mObject + (": " + std::string(bad.mName)));
    fs::remove_all(Path("bad.h5"));
    bad.mBuild(Path("bad.h5"));
    for (const Arguments& inputs : {Arguments{"bad.h5"}, Arguments{"good.h5", "bad.h5"}}) {
      const std::string report = Refuse(inputs);
      for (const std::string& text :
           {std::string(bad.mText), std::string(bad.mObject), std::string("bad.h5")}) {
        EXPECT_THAT(report, HasSubstr(text));
      }
    }
  }
}

TEST_F(BadInputTest, AFileCanBeGivenOnce) {
  WriteTimes(Input("a.h5"), "/x.dat", {0, 1});
  fs::create_directory(Path("folder"));
  fs::create_symlink("../a.h5", Path("folder/link.h5"));
  fs::create_symlink("folder/link.h5", Path("link.h5"));
  Join({"link.h5"});
  for (const char* again : {"a.h5", "./a.h5", "folder/../a.h5", "folder/link.h5", "link.h5"}) {
    const std::string report = Refuse({"a.h5", again});
    EXPECT_THAT(report, HasSubstr("Do you use **multiple** instances of CachedH5File to access"));
    EXPECT_THAT(report, HasSubstr(Path("a.h5")));
    EXPECT_FALSE(fs::exists(Path("out.h5")));
  }
}

}  // namespace

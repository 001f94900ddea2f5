#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <tuple>

#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

namespace {

using PlainH5::Rows;
using testing::HasSubstr;

class ShowTest : public InfoFixture {
 protected:
  void WriteInputs() {
    for (int k = 0; k < 2; ++k) {
      PlainH5::File& file = Input(std::to_string(k) + ".h5");
      const double t = 2.5 * k - 3;
      WriteTimes(file, "/A.dir/x.dat", {t, t + 1, t + 2, t + 3}, k);
      WriteCoef(file, "/c.coef", {{t, 2}, {t + 1, 2}, {t + 3, 5}}, Count(10 * k, 5));
      WriteTdm(file, "/t.tdm", {{t, 6, 2, 1}, {t + 3, 18, 1, 4}}, Count(10 * k, 18),
               "TensorDim=2; TensorSymm=aa; DataMeshDim=2;");
      file.Strings("/s.txt", {"text", std::to_string(k) + "\n"}, {2});
      file.Version("/V.ver", 2);
    }
  }
  std::string Show(const std::string& name, Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), {"-show", name});
    arguments.insert(arguments.end(), {"0.h5", "1.h5"});
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, status) << result.mErrors;
    return result.mOutput + result.mErrors;
  }
};

TEST_F(ShowTest, PrintsRowsAndStepsAsIfJoined) {
  WriteInputs();
  const struct {
    const char* mName;
    Arguments mArguments;
    const char* mPrinted;
  } cases[] = {
      {"A.dir/x.dat",
       {"-csv"},
       "time,value\n-3,0\n-2,1\n-1,2\n-0.5,100\n0.5,101\n1.5,102\n2.5,103\n"},
      {"/A.dir/x.dat",
       {"-from", " -2", "-to", " -0.5"},
       "time  value\n  -2      1\n  -1      2\n-0.5    100\n"},
      {"/A.dir/x.dat",
       {"-csv", "-NoWipe", "-to", "0", "-from", " -0.5", "-columns", "value,0,value"},
       "value,time,value\n3,0,3\n100,-0.5,100\n"},
      {"/A.dir/x.dat", {"-csv", "-DeltaT", "2", "-columns", "0"}, "time\n-2\n0.5\n2.5\n"},
      {"/A.dir/x.dat", {"-at", " -0.6", "-columns", "value"}, "time  value\n  -1      2\n"},
      {"/A.dir/x.dat", {"-NoWipe", "-at", "0.2", "-csv"}, "time,value\n0,3\n"},
      {"/A.dir/x.dat", {"-from", "7"}, "time  value\n"},
      {"/c.coef", {"-csv"}, "t,values\n-3,2\n-2,0\n-0.5,2\n0.5,0\n2.5,3\n"},
      {"/c.coef", {"-at", "9", "-csv"}, "time,number,value\n2.5,0,12\n2.5,1,13\n2.5,2,14\n"},
      {"/c.coef", {"-at", "1"}, "step 3, t = 0.5: power, 0 values\nnumber  value\n"},
      {"/t.tdm",
       {"-from", "0", "-columns", "Extents[1],values"},
       "Extents[1]  values\n         4      12\n"},
      {"/t.tdm",
       {"-at", " -3"},
       "step 0, t = -3: shift, dimension 2, symmetry 'aa', 3 components, mesh of 2 x 1 points\n"
       "Index[0]  Index[1]  Point[0]  Point[1]  value\n"
       "       0         0         0         0      0\n"
       "       0         0         1         0      1\n"
       "       1         0         0         0      2\n"
       "       1         0         1         0      3\n"
       "       1         1         0         0      4\n"
       "       1         1         1         0      5\n"},
      {"/s.txt", {}, "text0\ntext1\n"},
      {"/V.ver", {}, "version 2\n  1  hash0  help0\n  2  hash1  help1\n"},
  };
  for (const auto& [name, arguments, printed] : cases) {
    EXPECT_EQ(Show(name, arguments), printed) << name << " " << testing::PrintToString(arguments);
  }
}

TEST_F(ShowTest, PrintsJson) {
  WriteInputs();
  const auto show = [this](const Arguments& arguments) {
    Json json = PrintJson(arguments);
    EXPECT_EQ(json["format"], 1);
    EXPECT_EQ(json["program"]["name"], "KelmorInfo");
    json.erase("format");
    json.erase("program");
    return json;
  };
  EXPECT_EQ(show({"-show", "/A.dir/x.dat", "-at", "9", "0.h5"}),
            Json::parse(R"({"name": "/A.dir/x.dat", "kind": "dat", "columns": ["time", "value"],
                            "rows": [[0, 3]]})"));
  EXPECT_EQ(show({"-show", "/c.coef", "-at", " -0.5", "0.h5", "1.h5"}),
            Json::parse(R"({"name": "/c.coef", "kind": "coef", "step": 2, "time": -0.5,
                            "description": "power", "tensor": null, "components": null,
                            "extents": null, "numbers": [10, 11]})"));
  EXPECT_EQ(show({"-show", "/t.tdm", "-at", "3", "0.h5", "1.h5"}),
            Json::parse(R"({"name": "/t.tdm", "kind": "tdm", "step": 2, "time": 2.5,
                            "description": "shift",
                            "tensor": {"dimension": 2, "symmetry": "aa", "mesh_dimension": 2},
                            "components": [[0, 0], [1, 0], [1, 1]], "extents": [1, 4],
                            "numbers": [[16, 17, 18, 19], [20, 21, 22, 23], [24, 25, 26, 27]]})"));
  EXPECT_EQ(show({"-show", "s.txt", "0.h5", "1.h5"})["text"], "text0\ntext1\n");
  EXPECT_EQ(show({"-show", "V.ver", "0.h5"})["history"][1],
            Json::parse(R"({"hash": "hash1", "text": "help1"})"));
}

TEST_F(ShowTest, PrintsNumbersAndNamesSoThatTheyAreReadBack) {
  const double infinity = std::numeric_limits<double>::infinity();
  Input("0.h5").Table("/x.dat", {{0, 0.1, -0.0, 1e22}, {1, NAN, -infinity, 100000}},
                      {.mLegend = {"t", "a,\"b\"\n", "", "1"}});
  EXPECT_EQ(Print({"-show", "x.dat", "-csv", "0.h5"}),
            "t,\"a,\"\"b\"\"\n\",\"\",1\n0,0.1,-0,1e+22\n1,nan,-inf,100000\n");
  EXPECT_EQ(Print({"-show", "x.dat", "-columns", "1,a,\"b\"\n,2", "-at", "0", "0.h5"}),
            "t      1  a,\"b\"\\n\n0  1e+22      0.1  -0\n");
  const Json json = PrintJson({"-show", "x.dat", "0.h5"});
  EXPECT_EQ(json["columns"][1], "a,\"b\"\n");
  EXPECT_EQ(json["rows"].dump(), R"([[0,0.1,-0.0,1e+22],[1,"NaN","-Infinity",100000]])");
}

// Chunks are longer than what is in memory of a column, files and runs end within them, and text is
// aligned before all rows are known.
TEST_F(ShowTest, PrintsMoreRowsThanAreHeld) {
  Rows rows[2];
  std::string expected = "time,y\n";
  for (int k = 0; k < 2; ++k) {
    for (int i = 0; i < 6000; ++i) {
      const double t = 5000.0 * k + i;
      rows[k].push_back({t, k + 0.5, -t});
      expected += k == 1 || i < 5000
                      ? std::to_string(5000 * k + i) + ',' + std::to_string(-5000 * k - i) + '\n'
                      : "";
    }
  }
  expected.replace(expected.find("0,0\n"), 4, "0,-0\n");
  Input("0.h5").Table("/x.dat", rows[0], {.mChunk = {6000, 1}, .mLegend = {"time", "x", "y"}});
  Input("1.h5").Table("/x.dat", rows[1], {.mChunk = {7, 2}, .mLegend = {"time", "x", "y"}});
  EXPECT_EQ(Show("x.dat", {"-csv", "-columns", "time,y"}), expected);
  std::istringstream text(Show("x.dat", {}));
  double t = 0;
  std::size_t lines = 0;
  for (std::string line; std::getline(text, line); ++lines) {
    ASSERT_EQ(line.size(), 76U) << line;
    t += lines > 0 ? std::stod(line) : 0;
  }
  EXPECT_EQ(lines, 11001U);
  EXPECT_EQ(t, 11000.0 * 10999 / 2);
}

TEST_F(ShowTest, SaysWhatIsNotThere) {
  WriteInputs();
  const std::tuple<const char*, Arguments, const char*, int> cases[] = {
      {"x.dat", {}, "There is no dataset '/x.dat' in the files. There are: /A.dir/x.dat, ", 2},
      {"A.dir/x.dat",
       {"-columns", "time,2"},
       "There is no column '2'. There are: 0 'time', 1 'value'",
       2},
      {"A.dir/x.dat",
       {"-at", " -3.5"},
       "/A.dir/x.dat has no step at or before t = -3.5: the first is at t = -3",
       2},
      {"A.dir/x.dat", {"-at", "1", "-to", "2"}, "-at goes neither with -from nor with -to.", 2},
      {"A.dir/x.dat", {"-from", "2", "-to", "1"}, "-from 2 is later than -to 1.", 2},
      {"c.coef",
       {"-at", "1", "-columns", "t"},
       "-columns means nothing for one step of /c.coef",
       2},
      {"s.txt", {"-csv"}, "/s.txt is no table: -columns and -csv mean nothing for it.", 2},
      {"V.ver", {"-at", "1"}, "/V.ver has no steps: -at, -from and -to mean nothing for it.", 2},
  };
  for (const auto& [name, arguments, reason, status] : cases) {
    EXPECT_THAT(Show(name, arguments, status), HasSubstr(reason));
  }
  Print({"-view", "view.h5", "0.h5", "1.h5"});
  EXPECT_THAT(Info({"-show", "A.dir/x.dat", "view.h5"}).mErrors,
              HasSubstr("Name its segments instead"));
}

}  // namespace

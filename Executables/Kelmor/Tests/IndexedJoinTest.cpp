#include <gmock/gmock.h>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

namespace {

using PlainH5::File;
using PlainH5::Rows;
using testing::HasSubstr;

Rows operator+(Rows rows, const Rows& more) {
  rows.insert(rows.end(), more.begin(), more.end());
  return rows;
}

// The segments that a verbose run told of: after how many inputs each was full.
Strings Segments(const std::string& output) {
  Strings segments;
  const std::string before = "    trigger output after ";
  for (std::size_t at = output.find(before); at != std::string::npos;
       at = output.find(before, at + 1)) {
    const std::size_t begin = at + before.size();
    segments.push_back(output.substr(begin, output.find(" segments\n", begin) - begin));
  }
  return segments;
}

class IndexedJoinTest : public KelmorFixture {};

TEST_F(IndexedJoinTest, CoefficientsFollowTheirSteps) {
  WriteCoef(Input("1.h5"), "/c.coef", {{0, 2}, {1, 2}, {2, 5}, {3, 9}}, Count(10, 9));
  WriteTimes(Input("2.h5"), "/x.dat", {0});
  WriteCoef(Input("3.h5"), "/c.coef", {{2.5, 0}, {4, 1}}, Count(30, 1));
  WriteCoef(Input("3.h5"), "/late.coef", {{0, 1}}, Count(7, 1));
  struct Case {
    Arguments mArguments;
    Rows mIndex;
    Rows mCoefs;
  };
  const Case cases[] = {
      {{"1.h5", "2.h5", "3.h5"},
       {{0, 2}, {1, 2}, {2, 5}, {2.5, 5}, {4, 6}},
       Count(10, 5) + Count(30, 1)},
      {{"3.h5", "1.h5"}, {{0, 2}, {1, 2}, {2, 5}, {3, 9}}, Count(10, 9)},
      {{"1.h5", "3.h5", "-DeltaT", "1.5"}, {{1, 0}, {2.5, 0}, {4, 1}}, Count(30, 1)},
      {{"1.h5", "3.h5", "-NoWipe"},
       {{0, 2}, {1, 2}, {2, 5}, {3, 9}, {2.5, 9}, {4, 10}},
       Count(10, 9) + Count(30, 1)},
  };
  for (const Case& c : cases) {
    for (const char* cacheSize : {"1001", "1e9"}) {
      Arguments arguments = c.mArguments;
      arguments.insert(arguments.end(), {"-cachesize", cacheSize});
      Join(arguments);
      EXPECT_EQ(Output().ReadTable("/c.coef/index.dat"), c.mIndex) << c.mArguments[0];
      EXPECT_EQ(Output().ReadTable("/c.coef/coefs.dat"), c.mCoefs) << c.mArguments[0];
    }
  }
  Join({"1.h5", "3.h5"});
  EXPECT_EQ(Output().ReadTable("/late.coef/coefs.dat"), (Rows{{7}}));
}

TEST_F(IndexedJoinTest, TensorsFollowTheirStepsInAnySegments) {
  const std::string spec = "TensorDim=2; TensorSymm=11; DataMeshDim=2;";  // three components
  WriteTdm(Input("1.h5"), "/t.tdm", {{0, 60, 4, 5}, {1, 63, 1, 1}, {2, 153, 30, 1}}, Count(0, 153),
           spec);
  WriteTdm(Input("2.h5"), "/t.tdm", {{1.5, 0, 0, 7}, {3, 90, 6, 5}, {4, 210, 4, 10}},
           Count(1000, 210), "DataMeshDim = 2 ;TensorSymm= 11; # the same\n TensorDim =2");
  WriteTdm(Input("3.h5"), "/t.tdm", {{3.5, 90, 30, 1}}, Count(2000, 90), spec);
  struct Case {
    Arguments mOptions;
    Rows mIndex;
    Rows mData;
    Strings mSegments;
  };
  // Kept are 63, 90 and 90 values; the limit is an eighth of the cache.
  const Rows index = {
      {0, 60, 4, 5}, {1, 63, 1, 1}, {1.5, 63, 0, 7}, {3, 153, 6, 5}, {3.5, 243, 30, 1}};
  const Rows whole = {{0, 60, 4, 5},  {1, 63, 1, 1},   {2, 153, 30, 1},  {1.5, 153, 0, 7},
                      {3, 243, 6, 5}, {4, 363, 4, 10}, {3.5, 453, 30, 1}};
  const Rows data = Count(0, 63) + Count(1000, 90) + Count(2000, 90);
  const Rows all = Count(0, 153) + Count(1000, 210) + Count(2000, 90);
  const Case cases[] = {
      {{}, index, data, {"3"}},
      {{"-cachesize", "1944"}, index, data, {"3"}},
      {{"-cachesize", "1224"}, index, data, {"3"}},
      {{"-cachesize", "1223"}, index, data, {"2", "3"}},
      {{"-NoWipe", "-cachesize", "1223"}, whole, all, {"1", "2", "3"}},
  };
  for (const Case& c : cases) {
    Arguments arguments = c.mOptions;
    arguments.insert(arguments.end(), {"-v", "1.h5", "2.h5", "3.h5"});
    EXPECT_EQ(Segments(Join(arguments)), c.mSegments) << arguments[1];
    EXPECT_EQ(Output().ReadTable("/t.tdm/index.dat"), c.mIndex) << arguments[1];
    EXPECT_EQ(Output().ReadTable("/t.tdm/data.dat"), c.mData) << arguments[1];
    EXPECT_EQ(Output().ReadStringAttribute("/t.tdm", "TensorSpec"), Strings{spec});
  }
}

TEST_F(IndexedJoinTest, ScalarsAndSinglePointsAreTensorsToo) {
  File& file = Input("1.h5");
  WriteTdm(file, "/s.tdm", {{0, 2, 2}, {1, 5, 3}}, Count(0, 5),
           "TensorDim=3; TensorSymm=; DataMeshDim=1;");
  WriteTdm(file, "/p.tdm", {{0, 3}, {1, 6}}, Count(0, 6),
           "TensorDim=3; TensorSymm=1; DataMeshDim=0;");
  Join({"1.h5"});
  EXPECT_EQ(Output().ReadTable("/s.tdm/index.dat"), (Rows{{0, 2, 2}, {1, 5, 3}}));
  EXPECT_EQ(Output().ReadTable("/p.tdm/index.dat"), (Rows{{0, 3}, {1, 6}}));
  EXPECT_EQ(Output().ReadTable("/p.tdm/data.dat"), Count(0, 6));
}

TEST_F(IndexedJoinTest, LongSeriesAreWholeAcrossChunks) {
  // Runs of kept values that begin and end within chunks of the inputs and of the output.
  const auto write = [this](const char* name, double time, double first) {
    File& file = Input(name);
    const Rows index = {{time, 90000, 30000}, {time + 1, 180000, 30000}, {time + 2, 210003, 10001}};
    WriteTdm(file, "/t.tdm", index, Count(first, 210003));
    file.Table("/c.coef/index.dat", {{time, 90000}, {time + 1, 180000}, {time + 2, 210003}});
    file.Table("/c.coef/coefs.dat", Count(first, 210003), {.mChunk = {5000, 1}, .mCompress = true});
  };
  write("1.h5", 0, 0);
  write("2.h5", 1.5, 1e6);
  const Rows expected = Count(0, 180000) + Count(1e6, 210003);
  for (const char* cacheSize : {"2000", "1e9"}) {
    Join({"-cachesize", cacheSize, "1.h5", "2.h5"});
    EXPECT_TRUE(Output().ReadTable("/t.tdm/data.dat") == expected) << cacheSize;
    EXPECT_TRUE(Output().ReadTable("/c.coef/coefs.dat") == expected) << cacheSize;
  }
}

TEST_F(IndexedJoinTest, TensorsMustHaveOneStructure) {
  File& file = Input("1.h5");
  WriteTimes(file, "/x.dat", {0, 1});
  WriteTdm(file, "/a.tdm", {{0, 3, 1}}, Count(0, 3));
  WriteTdm(file, "/t.tdm", {{0, 18, 2, 1}}, Count(0, 18),
           "TensorDim=3; TensorSymm=12; DataMeshDim=2;");
  const struct {
    const char* mSpec;
    Rows mIndex;
    const char* mReport;
  } others[] = {
      {"TensorDim=3; TensorSymm=11; DataMeshDim=2;", {{1, 12, 2, 1}}, "TensorStructure"},
      {"TensorDim=2; TensorSymm=12; DataMeshDim=2;", {{1, 8, 2, 1}}, "TensorStructure"},
      {"TensorDim=3; TensorSymm=1; DataMeshDim=2;", {{1, 6, 2, 1}}, "TensorStructure"},
      {"TensorDim=3; TensorSymm=12; DataMeshDim=1;", {{1, 18, 2}}, "dimension of DataMesh"},
  };
  for (const auto& [spec, index, expected] : others) {
    WriteTdm(Input("2.h5"), "/t.tdm", index, Count(0, static_cast<std::size_t>(index[0][1])), spec);
    const std::string report = Refuse({"1.h5", "2.h5"});
    EXPECT_THAT(report, HasSubstr(std::string("Tdm::Append ") + expected + " inconsistent\n"));
    EXPECT_THAT(report, HasSubstr("Dataset /t.tdm has "));
    EXPECT_THAT(report, HasSubstr(Path("2.h5")));
  }
}

TEST_F(IndexedJoinTest, TextsOfEveryFormatAreOneText) {
  Input("array.h5").Strings("/log.txt", {"ab\n", "", "größer\n"}, {3}, H5T_CSET_UTF8);
  Input("scalar.h5").Strings("/log.txt", {"one "}, {});
  Input("old.h5").Characters("/log.txt", "characters");
  Input("long.h5").Strings("/log.txt", {std::string(100000, 'x')}, {1});
  Input("empty.h5").Strings("/log.txt", {"", ""}, {2});
  const std::pair<Arguments, std::string> cases[] = {
      {{"array.h5"}, "ab\ngrößer\n"},
      {{"old.h5"}, "characters"},
      {{"scalar.h5", "empty.h5", "array.h5", "old.h5"}, "one ab\ngrößer\ncharacters"},
      {{"old.h5", "long.h5", "scalar.h5"}, "characters" + std::string(100000, 'x') + "one "},
  };
  for (auto [arguments, text] : cases) {
    arguments.push_back("-v");
    const std::string line = "\n/log.txt writing " + std::to_string(text.size()) + " characters.\n";
    EXPECT_THAT(Join(arguments), HasSubstr(line));
    EXPECT_EQ(Output().ReadStrings("/log.txt"), Strings{text});
  }
}

}  // namespace

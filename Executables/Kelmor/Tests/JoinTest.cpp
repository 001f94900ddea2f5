#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>

#include "Executables/Kelmor/Inputs.hpp"
#include "Executables/Kelmor/Tests/KelmorFixture.hpp"
#include "Utils/H5/H5_ObjectDat.hpp"

namespace {

using PlainH5::File;
using PlainH5::IsReport;
using PlainH5::Rows;
using testing::HasSubstr;

class JoinTest : public KelmorFixture {};

// Its columns would come from two files.
TEST_F(JoinTest, AFileIsNotReadAfterAnotherTookItsPlace) {
  std::vector<std::string> names;
  for (int i = 0; i < 40; ++i) {
    WriteTimes(Input(std::to_string(i)), "/x.dat", {0, 1, 2});
    names.push_back(Path(std::to_string(i)));
  }
  WriteTimes(Input("other"), "/x.dat", {0, 1, 2});
  CloseInputs();
  Inputs inputs{MyVector<std::string>(names)};
  const auto read = [&inputs] {
    inputs.Visit<H5_Objects::Dat>(39, "/x.dat", [](const auto& dat) { dat.RetrieveTimes(); });
  };
  EXPECT_EQ(PlainH5::ReportOf(read), "");
  std::filesystem::rename(Path("other"), names.back());
  EXPECT_THAT(PlainH5::ReportOf(read), HasSubstr("The file has changed since"));
}

TEST_F(JoinTest, RowsFollowTheirTimes) {
  struct TimesCase {
    const char* mName;
    std::vector<std::vector<double>> mTimes;  // per file
    Arguments mOptions;
    std::vector<double> mKept;  // tags of the rows: 100 * file + row
  };
  const TimesCase cases[] = {
      {"later file restarts", {{0, 1, 2, 3}, {2.5, 3.5}}, {}, {0, 1, 2, 100, 101}},
      {"other order", {{2.5, 3.5}, {0, 1, 2, 3}}, {}, {100, 101, 102, 103}},
      {"holes within a file", {{0, 5, 1}, {3, 2, 4}}, {}, {0, 2, 101, 102}},
      {"equal times", {{0, 1}, {1, 2}, {2, 2}}, {}, {0, 100, 201}},
      {"equal times at 0", {{0, 1}, {1, 2}}, {"-DeltaT", "0"}, {0, 1, 100, 101}},
      {"a gap of DeltaT", {{0, 0.5}, {1}}, {"-DeltaT", "0.5"}, {0, 1, 100}},
      {"a gap below", {{0, 0.5}, {1}}, {"-DeltaT", "0.50000001"}, {0, 100}},
      {"no wipe", {{0, 2}, {1, 1}}, {"-NoWipe"}, {0, 1, 100, 101}},
      {"a file without rows", {{0, 1}, {}, {2}}, {}, {0, 1, 200}},
  };
  for (const TimesCase& c : cases) {
    Arguments arguments = c.mOptions;
    int file = 0;
    for (const std::vector<double>& times : c.mTimes) {
      arguments.push_back(std::to_string(file) + ".h5");
      WriteTimes(Input(arguments.back()), "/x.dat", times, file++);
    }
    Join(arguments);
    std::vector<double> kept;
    for (const std::vector<double>& row : Output().ReadTable("/x.dat")) {
      EXPECT_EQ(row[0], c.mTimes[std::size_t(row[1]) / 100][std::size_t(row[1]) % 100]) << c.mName;
      kept.push_back(row[1]);
    }
    EXPECT_EQ(kept, c.mKept) << c.mName;
  }
}

// The lines of a verbose run, but for those that tell sizes of the cache.
std::string Progress(const std::string& output) {
  std::string progress;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("CachedH5FileHolder holds ")) {
      progress += line + "\n";
    }
  }
  return progress;
}

TEST_F(JoinTest, AVerboseRunTellsEveryStage) {
  File& first = Input("1.h5");
  WriteTimes(first, "/b.dat", {0, 1, 2, 3});
  WriteTimes(first, "/Run.dir/z.dat", {0, 0.25, -5});
  WriteCoef(first, "/c.coef", {{0, 2}, {1, 2}, {2, 5}}, Count(0, 5));
  WriteTdm(first, "/t.tdm", {{0, 3, 1}, {1, 6, 1}}, Count(0, 6));
  WriteTdm(first, "/u.tdm", {{0, 150, 50}, {1, 450, 100}}, Count(0, 450));
  first.Strings("/log.txt", {"a", "b"}, {2});
  first.Version("/VersionHist.ver", 3);
  File& second = Input("2.h5");
  WriteTimes(second, "/a.dat", {1});
  WriteTimes(second, "/b.dat", {2.5, 3.5});
  WriteCoef(second, "/c.coef", {{1.5, 1}}, Count(5, 1));
  WriteTdm(second, "/t.tdm", {{1, 3, 1}}, Count(6, 3));
  WriteTdm(second, "/u.tdm", {{0.5, 150, 50}, {1, 300, 50}}, Count(450, 300));
  second.Strings("/log.txt", {"cde"}, {}, H5T_CSET_UTF8);
  second.Version("/VersionHist.ver", 3);
  WriteTdm(Input("3.h5"), "/u.tdm", {{2, 150, 50}}, Count(750, 150));
  // Of /u.tdm, 150 + 300 kept values of two files exceed the 2001 / 8 that fit in the cache.
  EXPECT_EQ(Progress(Join({"-v", "-cachesize", "2001", "1.h5", "2.h5", "3.h5"})),
            "opening 3 input files\n"
            "found 3 dat-datasets\n"
            "found 1 coef-datasets\n"
            "found 2 tdm-datasets\n"
            "found 1 txt-datasets\n"
            "found 1 ver-datasets\n"
            "/VersionHist.ver writing version 3\n"
            "/Run.dir/z.dat keeping 1 steps out of 3, maximum time-gap is 5\n"
            "/b.dat keeping 5 steps out of 6, maximum time-gap is 1\n"
            "/a.dat keeping 1 steps out of 1, maximum time-gap is 0\n"
            "/c.coef keeping 3 steps out of 4, maximum time-gap is 1\n"
            "working on /t.tdm\n"
            "    trigger output after 2 segments\n"
            "/t.tdm keeping 2 steps out of 3, maximum time-gap is 1\n"
            "working on /u.tdm\n"
            "    trigger output after 2 segments\n"
            "/u.tdm keeping 4 steps out of 5, maximum time-gap is 1\n"
            "    trigger output after 3 segments\n"
            "all Tdm sets joined and written\n"
            "/log.txt writing 5 characters.\n"
            "all data processed, starting cleanup\n"
            "clearing input H5-Files\n"
            "purging H5-caches though PurgeCache()\n"
            "H5-caches purged.\n"
            "exit\n");
  // The stage of tensors ends even if there were none; what NoWipe keeps has no gaps.
  EXPECT_EQ(Progress(Join({"-v", "-NoWipe", "-skip", "*.coef|*.tdm|*.txt|/b.dat", "1.h5"})),
            "opening 1 input files\n"
            "found 1 dat-datasets\n"
            "found 1 ver-datasets\n"
            "/VersionHist.ver writing version 3\n"
            "/Run.dir/z.dat keeping 3 steps out of 3, maximum time-gap is 0\n"
            "all Tdm sets joined and written\n"
            "all data processed, starting cleanup\n"
            "clearing input H5-Files\n"
            "purging H5-caches though PurgeCache()\n"
            "H5-caches purged.\n"
            "exit\n");
  EXPECT_EQ(Join({"1.h5", "2.h5", "3.h5"}), "") << "without -v nothing is told";
}

// The datasets that a verbose run tells of, a line for each, in order.
std::string Joined(const std::string& output) {
  std::string names;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    for (const char* verb : {" keeping ", " writing "}) {
      if (const std::size_t at = line.find(verb); at != std::string::npos) {
        names += line.substr(0, at) + "\n";
      }
    }
  }
  return names;
}

TEST_F(JoinTest, EveryFileAddsItsNames) {
  WriteTimes(Input("1.h5"), "/b.dat", {0});
  WriteTimes(Input("1.h5"), "/B.dat", {0});
  for (const char* name : {"/b.dat", "/a.dat", "/Z.dir/Y.dir/a.dat", "/Z.dir/b.dat"}) {
    WriteTimes(Input("2.h5"), name, {1});
  }
  Input("2.h5").Strings("/Z.dir/n.txt", {"text"}, {1});
  Input("2.h5").Version("/Z.dir/a.ver", 1);
  const std::pair<Arguments, const char*> cases[] = {
      {{"1.h5", "2.h5"},
       "/Z.dir/a.ver\n/B.dat\n/b.dat\n/Z.dir/Y.dir/a.dat\n/Z.dir/b.dat\n/a.dat\n/Z.dir/n.txt\n"},
      {{"2.h5", "1.h5"},
       "/Z.dir/a.ver\n/Z.dir/Y.dir/a.dat\n/Z.dir/b.dat\n/a.dat\n/b.dat\n/B.dat\n/Z.dir/n.txt\n"},
      {{"-skip", "*", "1.h5", "2.h5"}, "/Z.dir/a.ver\n"},
      {{"-skip", "/Z*", "1.h5", "2.h5"}, "/Z.dir/a.ver\n/B.dat\n/b.dat\n/a.dat\n"},
      {{"-skip", "*a.dat|/?.dat|*.ver", "1.h5", "2.h5"},
       "/Z.dir/a.ver\n/Z.dir/b.dat\n/Z.dir/n.txt\n"},
      {{"-skip", "b.dat", "1.h5"}, "/B.dat\n/b.dat\n"},  // a name begins with a slash
      {{"-skip", " /b.dat ", "1.h5"}, "/B.dat\n"},       // trimmed
      {{"-skip", "", "1.h5"}, "/B.dat\n/b.dat\n"},
  };
  for (auto [arguments, names] : cases) {
    arguments.push_back("-v");
    EXPECT_EQ(Joined(Join(arguments)), names);
  }
  Join({"1.h5", "2.h5"});
  EXPECT_EQ(Output().ReadTable("/b.dat"), (Rows{{0, 0}, {1, 0}}));
  EXPECT_EQ(Output().ReadTable("/B.dat"), (Rows{{0, 0}}));
  EXPECT_EQ(Output().ReadTable("/Z.dir/Y.dir/a.dat"), (Rows{{1, 0}}));
  EXPECT_EQ(Output().ReadStrings("/Z.dir/n.txt"), Strings{"text"});
}

TEST_F(JoinTest, NamesAreTakenAsTheyAre) {
  const Strings names = {"/a b.dat",           "/ .dat",       "/größe.dat",
                         "/x*y?[z].dat",       "/xxy1[z].dat", "/f(1|2).dat",
                         "/Run (1).dir/q.dat", "/a.txt.b.dat", "/.dir/.dat"};
  const Arguments inputs = {"1.h5", "2 *(ü).h5"};
  for (const std::string& input : inputs) {
    const int number = input[0] - '0';
    for (const std::string& name : names) {
      WriteTimes(Input(input), name, {1.0 * number}, number);
    }
    Input(input).Strings("/(a|b).txt", {"x"}, {1});
  }
  Join(inputs);
  const File output = Output();
  for (const std::string& name : names) {
    EXPECT_EQ(output.ReadTable(name), (Rows{{1, 100}, {2, 200}})) << name;
  }
  EXPECT_EQ(output.ReadStrings("/(a|b).txt"), Strings{"xx"});
}

TEST_F(JoinTest, LegendsComeFromTheFirstFileThatHasOne) {
  const Strings good = {"t", "v"};
  const Strings undefined = {"undefined", "v"};
  struct LegendCase {
    Strings mFirst;  // no attribute if empty
    Strings mSecond;
    Strings mJoined;
  };
  const LegendCase cases[] = {
      {good, {"T", "V"}, good},
      {undefined, good, good},
      {undefined, {"undefined", "w"}, {"undefined", "w"}},
      {{"t", "undefined"}, good, {"t", "undefined"}},
      {{}, good, {"undef 0", "undef 1"}},
      {undefined, {}, {"undef 0", "undef 1"}},
      {{"", "Zeit / ms (größer)"}, good, {"", "Zeit / ms (größer)"}},
  };
  for (const LegendCase& c : cases) {
    Input("1.h5").Table("/x.dat", {{0, 0}}, {.mLegend = c.mFirst});
    Input("2.h5").Table("/x.dat", {{1, 0}}, {.mLegend = c.mSecond});
    Join({"1.h5", "2.h5"});
    EXPECT_EQ(Output().ReadStringAttribute("/x.dat", "Legend"), c.mJoined);
  }
}

TEST_F(JoinTest, InputsMustAgree) {
  Input("1.h5").Table("/Run.dir/x.dat", {{0, 0}});
  Input("1.h5").Version("/V.ver", 2);
  Input("1.h5").Version("/W?.ver", 1);
  Input("columns.h5").Table("/Run.dir/x.dat", {{1, 1, 1}});
  Input("number.h5").Version("/V.ver", 3);
  Input("history.h5").Strings("/V.ver", {"hash0", "help0", "hash1", "Help1"}, {2, 2});
  Input("history.h5").VersionNumber("/V.ver", 2);
  Input("plain.h5").Table("/Run.dir/x.dat", {{5, 5}});
  Input("plain too.h5").Table("/Run.dir/x.dat", {{6, 6}});
  Input("glob.h5").Version("/W1.ver", 1);
  struct Disagreement {
    Arguments mArguments;
    const char* mCondition;
    const char* mMessage;
  };
  const Disagreement cases[] = {
      {{"1.h5", "columns.h5"},
       "Ncols==static_cast<int>(dat.GetExtents()[1])",
       "Dataset /Run.dir/x.dat has different number of columns\nin different files."},
      {{"1.h5", "number.h5"},
       "ver.GetCurrentVersion() == version_number",
       "Version mismatch '/V.ver': 3 2"},
      {{"-skip", "*", "number.h5", "plain.h5", "1.h5"},
       "ver.GetCurrentVersion() == version_number",
       "Version mismatch '/V.ver': 2 3"},
      {{"1.h5", "history.h5"},
       "ver.RetrieveVersionHistory() == version_history",
       "Version mismatch '/V.ver' in history: 2 2"},
      {{"1.h5", "glob.h5"},
       "data_sets.size()==0",
       "Version information '/W?.ver' not found in all h5 files.\n"
       "Cannot join h5 files with different versions\n"},
  };
  for (const Disagreement& c : cases) {
    const std::string report = Refuse(c.mArguments);
    EXPECT_TRUE(IsReport(report, c.mCondition, c.mMessage)) << report;
    EXPECT_THAT(report, HasSubstr("\n#### Kelmor (line "));
    EXPECT_THAT(report, HasSubstr(Path(c.mArguments.back())));
  }
  // A file without the record says nothing about versions, wherever it stands.
  Join({"plain.h5", "1.h5", "plain too.h5"});
  EXPECT_EQ(Output().ReadStrings("/V.ver"), (Strings{"hash0", "help0", "hash1", "help1"}));
  EXPECT_EQ(Output().Dims("/W?.ver"), (std::vector<hsize_t>{1, 2}));
}

}  // namespace

// A folder with files, and both tools run in it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

class InfoFixture : public KelmorFixture {
 protected:
  using Json = nlohmann::json;

  /// A run of KelmorInfo.
  RunResult Info(const Arguments& arguments) { return Run(arguments, KELMORINFO_PROGRAM); }

  /// One that must end with this status and nothing on standard error; its standard output.
  std::string Print(const Arguments& arguments, int status = 0) {
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, status) << result.mOutput;
    EXPECT_EQ(result.mErrors, "");
    return result.mOutput;
  }

  /// The same, as JSON.
  Json PrintJson(Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), "-json");
    return Json::parse(Print(arguments, status));
  }
};

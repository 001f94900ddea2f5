#include "Executables/KelmorInfo/Tests/InfoFixture.hpp"

RunResult InfoFixture::Info(const Arguments& arguments) {
  return Run(KELMORINFO_PROGRAM, arguments);
}

std::string InfoFixture::Print(const Arguments& arguments, int status) {
  const RunResult result = Info(arguments);
  EXPECT_EQ(result.mStatus, status) << result.mOutput;
  EXPECT_EQ(result.mErrors, "");
  return result.mOutput;
}

InfoFixture::Json InfoFixture::PrintJson(Arguments arguments, int status) {
  arguments.insert(arguments.begin(), "-json");
  return Json::parse(Print(arguments, status));
}

InfoFixture::Json InfoFixture::Plan(Arguments arguments, int status) {
  arguments.insert(arguments.begin(), "-plan");
  return PrintJson(arguments, status);
}

// A folder with files, and both tools run in it. No run may touch a file.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

class InfoFixture : public KelmorFixture {
 protected:
  using Json = nlohmann::json;

  /// A run of KelmorInfo.
  RunResult Info(const Arguments& arguments);
  /// One that must end with this status and nothing on standard error; its standard output.
  std::string Print(const Arguments& arguments, int status = 0);
  /// The same, as JSON.
  Json PrintJson(Arguments arguments, int status = 0);
  /// The plan of a join.
  Json Plan(Arguments arguments, int status = 0);
};

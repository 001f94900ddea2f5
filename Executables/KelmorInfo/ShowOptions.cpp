#include "Executables/KelmorInfo/ShowOptions.hpp"

#include "Utils/ErrorHandling/Require.hpp"

ShowOptions::ShowOptions(const CommandLineParser& parser)
    : mName(parser.Get<std::string>("show", "")),
      mFrom(parser.Get<double>("from", -sInfinity)),
      mTo(parser.Get<double>("to", sInfinity)),
      mColumns(parser.Get<std::string>("columns", "")) {
  if (!mName.starts_with('/') && parser.KeyExists("show")) {
    mName.insert(0, 1, '/');
  }
  const bool hasAt = parser.KeyExists("at");
  const bool hasRange = parser.KeyExists("from") || parser.KeyExists("to");
  REQUIRE(!(hasAt && hasRange), "-at goes neither with -from nor with -to.");
  REQUIRE(mFrom <= mTo, "-from " << mFrom << " is later than -to " << mTo << ".");
  if (hasAt) {
    mAt = parser.Get<double>("at", 0);
  }
  const bool isCsv = parser.Get<bool>("csv", false);
  const bool isJson = parser.Get<bool>("json", false);
  REQUIRE(!(isCsv && isJson), "-csv does not go with -json.");
  mFormat = isCsv ? Format::CSV : isJson ? Format::JSON : Format::Aligned;
}

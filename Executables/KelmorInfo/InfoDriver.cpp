#include "Executables/KelmorInfo/InfoDriver.hpp"

#include <iostream>

#include "Executables/KelmorInfo/InfoOptions.hpp"
#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/Listing.hpp"

int RunInfo(int argc, char** argv) {
  const CommandLineParser parser(argc, argv, InfoHelpText(), InfoBooleanOptions());
  const InfoOptions options(parser);
  InputFiles files(options.mJoin.mInputs);
  const Listing listing = MakeListing(files, options.mJoin.mSkip);
  if (options.mJson) {
    PrintListingAsJson(std::cout, listing);
  } else {
    PrintListing(std::cout, listing, options.mJoin.mVerbose);
  }
  std::cout.flush();
  RequireNoProblems(listing);
  return 0;
}

#include "Executables/Series/JoinOptions.hpp"

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"

JoinOptions::JoinOptions(const CommandLineParser& parser, Output output, Files files) {
  const double DeltaT = parser.Get<double>("DeltaT", 1e-10);
  mDeltaT = DeltaT;
  mVerbose = parser.Get<bool>("v", false);
  mNoWipe = parser.Get<bool>("NoWipe", false);
  mNoGzip = parser.Get<bool>("NoGzip", false);
  const double tmp2 = parser.Get<double>("cachesize", 1e9);
  REQUIRE(tmp2>1e3 && tmp2<1.1e12, "cachesize=" << tmp2 << " seems unreasonable.\n"
                                                << "If desired, please change this REQUIRE");
  mCacheSize = static_cast<std::uint64_t>(tmp2);
  TheCachedH5FileHolder().SetMaxCacheSize(mCacheSize);
  REQUIRE(DeltaT >= 0.0, "DeltaT most be non-negative.");
  mSkip = parser.Get<std::string>("skip", "");
  mOutput =
      output == Output::Required ? parser.Get<std::string>("o") : parser.Get<std::string>("o", "");
  const MyVector<std::string> Filenames = parser.GetAllArguments();
  for (std::ptrdiff_t i = 0; files == Files::MustExist && i < Filenames.Size(); ++i) {
    REQUIRE(FileExists(Filenames[i]), "File " << Filenames[i] << " not found");
  }
  mInputs = Filenames;
}

#include "Executables/Series/Output.hpp"

#include <cerrno>
#include <cstdio>
#include <memory>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

void FlushOutputToDisk(const Vexa::FileDescriptor& written, const std::string& path,
                       const std::string& what) {
  int error = written.FlushToDisk();
  REQUIRE(error==0, "Flushing " << path << " to disk failed: " << StrError(error));
  const std::string directory = GetDirectoryFromPath(path);
  error = Vexa::FlushToDisk(directory);
  // A directory may be written to but not read, and some file systems flush no directories.
  const bool isPossible = error != EACCES && error != EINVAL;
  REQUIRE(error==0 || !isPossible, "Flushing directory " << directory << " to disk failed: " << StrError(error));
  REQUIRE(written.HasName(path), "OutputFile " << path << " was removed or replaced while it was "
                                               << "written.\nWhat has its name is not " << what << ".");
  const std::optional<std::uint64_t> bytes = Vexa_H5::SizeWhenClosed(written);
  REQUIRE(written.Bytes()==bytes, "OutputFile " << path << " has " << written.Bytes() << " bytes, not "
                                                << "those that it had when it was closed");
}

void MakeOutput(const std::string& path, const std::string& what,
                const std::function<void(CachedH5File&)>& write) {
  const bool isFileName = !path.empty() && !path.ends_with('/');
  REQUIRE(isFileName, "OutputFile '" << path << "' is not the name of a file");
  const std::unique_ptr<CachedH5File> output = CachedH5File::CreateUnfinished(path);
  const Vexa::FileDescriptor written = output->Hold();
  try {
    write(*output);
    output->SetUnfinished(false);
    TheCachedH5FileHolder().PurgeCache();
    FlushOutputToDisk(written, path, what);
  } catch (...) {
    // What is not whole is of no use, and would be in the way of the next attempt.
    if (written.HasName(path)) {
      std::remove(path.c_str());
    }
    throw;
  }
}

#include "Executables/Kelmor/Driver.hpp"

#include <cerrno>
#include <iostream>
#include <memory>
#include <optional>

#include "Executables/Kelmor/Join.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

Holders Discover(const Inputs& inputs, const JoinOptions& options, const std::string& kind) {
  Holders found = FindEntries(inputs.Files(), "*." + kind, options.mSkip);
  if (!found.empty() && options.mVerbose) {
    std::cout << "found " << found.size() << " " << kind << "-datasets" << std::endl;
  }
  return found;
}

// Flushes the file that was written and has been closed, and fails unless it still has its name.
void FlushOutputToDisk(const FileDescriptor& written, const std::string& path) {
  int error = written.FlushToDisk();
  REQUIRE(error==0, "Flushing " << path << " to disk failed: " << StrError(error));
  const std::string directory = GetDirectoryFromPath(path);
  error = FlushToDisk(directory);
  // A directory may be written to but not read, and some file systems flush no directories.
  const bool isPossible = error != EACCES && error != EINVAL;
  REQUIRE(error==0 || !isPossible, "Flushing directory " << directory << " to disk failed: " << StrError(error));
  REQUIRE(written.HasName(path), "OutputFile " << path << " was removed or replaced while it was "
                                               << "written.\nWhat has its name is not the join.");
  const std::optional<std::uint64_t> bytes = Vexa_H5::SizeWhenClosed(written);
  REQUIRE(written.Bytes()==bytes, "OutputFile " << path << " has " << written.Bytes() << " bytes, not "
                                                << "those that it had when it was closed");
}

void CleanUp(Inputs& inputs, CachedH5File& output, const JoinOptions& options) {
  const bool verbose = options.mVerbose;
  if (verbose) {
    std::cout << "all data processed, starting cleanup\n"
              << "clearing input H5-Files" << std::endl;
  }
  inputs.RequireUnchanged();
  inputs.Clear();
  const FileDescriptor written = output.Hold();
  output.SetUnfinished(false);
  CachedH5FileHolder& holder = TheCachedH5FileHolder();
  if (verbose) {
    holder.WriteInfo(std::cout, 0);
    std::cout << "purging H5-caches though PurgeCache()" << std::endl;
  }
  holder.PurgeCache();
  FlushOutputToDisk(written, options.mOutput);
  if (verbose) {
    std::cout << "H5-caches purged.\n";
    holder.WriteInfo(std::cout, 2);
    std::cout << "exit" << std::endl;
  }
}

}  // namespace

void JoinFiles(const CommandLineParser& parser) {
  const JoinOptions options(parser);
  ReportUnexpectedExit();
  if (options.mVerbose) {
    std::cout << "opening " << options.mInputs.Size() << " input files" << std::endl;
  }
  Inputs inputs(options.mInputs);
  const std::string& OutputFile = options.mOutput;
  REQUIRE(!FileExists(OutputFile), "OutputFile " << OutputFile << " already exists.\n"
                                                 << "Cowardly refusing to write into it.");
  const bool isFileName = !OutputFile.empty() && !OutputFile.ends_with('/');
  REQUIRE(isFileName, "OutputFile '" << OutputFile << "' is not the name of a file");

  // Version records are joined first.
  const Holders dat = Discover(inputs, options, "dat");
  const Holders coef = Discover(inputs, options, "coef");
  const Holders tdm = Discover(inputs, options, "tdm");
  const Holders txt = Discover(inputs, options, "txt");
  const Holders ver = Discover(inputs, options, "ver");
  const std::uint64_t datasets = dat.size() + coef.size() + tdm.size() + txt.size() + ver.size();
  if (datasets == 0) {
    if (options.mVerbose) {
      std::cout << "no datasets found.  Will not create " << OutputFile << std::endl;
    }
    inputs.RequireUnchanged();
    return;
  }

  // A part of a join must not pass for the whole, so the output is readable when it is finished.
  const std::unique_ptr<CachedH5File> output = CachedH5File::CreateUnfinished(OutputFile);
  Progress progress(!options.mVerbose, datasets, inputs.TotalBytes());
  JoinRun run{options, inputs, *output, progress};
  progress.Stage("joining version records");
  ForEachDataset(run, ver, JoinVersion);
  progress.Stage("joining tables");
  ForEachDataset(run, dat, JoinDat);
  progress.Stage("joining sets of coefficients");
  ForEachDataset(run, coef, JoinCoef);
  progress.Stage("joining tensor series");
  ForEachDataset(run, tdm, JoinTdm);
  if (options.mVerbose) {
    std::cout << "all Tdm sets joined and written" << std::endl;
  }
  progress.Stage("joining texts");
  ForEachDataset(run, txt, JoinTxt);
  CleanUp(inputs, *output, options);
}

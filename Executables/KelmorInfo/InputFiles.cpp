#include "Executables/KelmorInfo/InputFiles.hpp"

#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Progress.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/HDF5/Library.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/StringParsing/PathUtilities.hpp"

namespace {

// What the library says against opening the file; empty if it opens.
std::string OpenError(const std::string& path) {
  Vexa_H5::PropertyListHandle fapl_id(H5Pcreate(H5P_FILE_ACCESS));
  Vexa_H5::set_libver_bounds(fapl_id);
  Vexa_H5::Handle<H5Fclose> file_id(H5Fopen(path.c_str(), H5F_ACC_RDONLY, fapl_id));
  // The others only say who passed the first one on.
  const std::vector<std::string> reasons = Vexa_H5::ErrorDescriptions(H5E_DEFAULT);
  return file_id >= 0 || reasons.empty() ? "" : reasons.front();
}

std::string Advice(const std::string& reason, const std::string& path) {
  if (reason.find("consistency flags") != std::string::npos) {
    return "The program that wrote it still runs, or has crashed. After a crash, 'h5clear -s " +
           Quoted(path) +
           "' takes away the mark that the file is being written; run it on a copy. What had not "
           "reached the disk stays lost.";
  }
  if (reason.starts_with("truncated file")) {
    return "The file is shorter than it says it is. A copy of it may be incomplete; or the program "
           "that wrote it has crashed. Then 'h5clear --increment=0 " +
           Quoted(path) +
           "' makes it that long, so that what had reached the disk may be read; run it on a copy.";
  }
  if (reason.starts_with("H5Gopen2 failed on group '/'")) {
    return "The program that wrote it may have crashed before the rest of the file reached the "
           "disk; h5clear cannot bring it back.";
  }
  if (reason.find("unable to lock") != std::string::npos) {
    return "Another program has the file open for writing. Try again when that has ended.";
  }
  return "";
}

void Diagnose(InputFile& file, const CodeError& error) {
  file.mOpens = false;
  file.mProblem = ReasonOf(error);
  // Only what the library does not open is asked for its reasons; else our own are better.
  if (!error.Reason().starts_with("H5Fopen(")) {
    const bool isAboutObject = error.Context().starts_with("Object");
    file.mProblem += isAboutObject ? " (" + Vexa::Printable(error.Context()) + ")" : "";
    file.mIsHdf5 = isAboutObject;
    file.mAdvice = Advice(error.Reason(), file.mName);
    return;
  }
  file.mIsHdf5 = false;
  if (const std::string reason = OpenError(file.mName); !reason.empty()) {
    file.mProblem = OneLine(reason);
    file.mAdvice = Advice(reason, file.mName);
  }
}

}  // namespace

std::string WhyNotOpened(const InputFile& file) {
  if (file.mOpens) {
    return "";
  }
  return "File '" + Vexa::Printable(file.mName) + "' cannot be opened: " + file.mProblem + "\n" +
         Vexa::Printable(file.mAdvice) + (file.mAdvice.empty() ? "" : "\n");
}

void RequireAllOpen(const std::vector<InputFile>& files) {
  std::string problems;
  for (const InputFile& file : files) {
    problems += WhyNotOpened(file);
  }
  REQUIRE(problems.empty(), Vexa::Verbatim(problems));
}

void RequireUnchanged(const std::vector<InputFile>& files, const Inputs& opened) {
  std::string changed;
  for (const InputFile& file : files) {
    changed += Vexa::FileStamp(file.mName) != file.mStamp ? "\n" + Vexa::Printable(file.mName) : "";
  }
  REQUIRE(changed.empty(), "These files have changed while they were read:" << Vexa::Verbatim(changed));
  opened.RequireUnchanged();
}

std::vector<InputFile> TryFiles(const MyVector<std::string>& names) {
  const Vexa_H5::MuteH5Errors mute;
  std::vector<InputFile> files;
  std::map<std::string, std::string> givenNames;  // by path
  Progress progress(true, names.size(), 0, "file");
  for (const std::string& name : names) {
    progress.Next("opening");
    InputFile& file = files.emplace_back(InputFile{name});
    file.mStamp = Vexa::FileStamp(name);
    try {
      REQUIRE(FileExists(name), "The file is not found");
      const auto [first, isFirst] = givenNames.emplace(Realpath(name), name);
      REQUIRE(isFirst, "The file is given twice" << (first->second == name ? "" : ", before as ")
                                                 << (first->second == name ? "" : first->second));
      const bool keepOpen = false;
      CachedH5File(name, ReadOnly, {}, 0, keepOpen);
    } catch (const CodeError& error) {
      Diagnose(file, error);
    }
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(name, error);
    file.mBytes = error ? 0 : bytes;
  }
  return files;
}

#include "Utils/Process/RunInformation.hpp"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <system_error>

#include "Utils/Process/Formatting.hpp"
#include "Utils/Process/Version.hpp"

namespace {

std::string WorkingDirectory() {
  std::error_code error;
  const std::filesystem::path directory = std::filesystem::current_path(error);
  return error ? "." : directory.string();
}

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "unknown host";
}

// This asks for the directory before main() can change it.
[[maybe_unused]] const std::string& sRunDirectory = RunDirectory();

}  // namespace

const std::string& RunDirectory() {
  // The text is never destroyed: reports are written until the very end of the process.
  static const std::string& directory = *new std::string(WorkingDirectory());
  return directory;
}

std::string InfoAtCompile() {
  return "Compiled at " VEXA_BUILD_HOST ":" VEXA_BUILD_DIRECTORY
         "\n"
#ifndef NDEBUG
         "Error checking enabled\n";
#else
         "Error checking disabled (to activate add -DDEBUG to CPPFLAGS)\n";
#endif
}

std::string InfoAtLink() {
  return "Linked with Vexa " VEXA_VERSION "\n";
}

std::string InfoAtRuntime(int argc, char** argv) {
  std::string text = "Command line:";
  for (int i = 0; i < argc; ++i) {
    text += " " + Quoted(argv[i]);
  }
  return text + "\nRun directory: " + RunDirectory() + "\nProcess " + std::to_string(getpid()) +
         " on " + HostName() + ", " + AsciiTime() + "\nVersion " VEXA_VERSION "\n";
}

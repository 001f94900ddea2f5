#include "Utils/ErrorHandling/Backtrace.hpp"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <span>
#include <sstream>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"

namespace {

constexpr int sMaxFrames = 100;
using Frames = std::array<void*, sMaxFrames>;

bool IsSuppressed() {
  const char* value = std::getenv("VEXA_NO_BACKTRACE");
  return value != nullptr && *value != '\0';
}

// Returns the frames from the one with this return address outwards, less `skip` frames; none if
// they were asked for before, as `isTaken` says, or are not wanted. The address is found rather
// than counted, for a sanitizer puts frames of its own on top.
std::span<void* const> TakeFrames(bool& isTaken, Frames& frames, void* caller, int skip) {
  if (std::exchange(isTaken, true) || IsSuppressed()) {
    return {};
  }
  const auto end = frames.begin() + backtrace(frames.data(), sMaxFrames);
  auto first = std::find(frames.begin(), end, caller);
  first = first == end ? frames.begin() : first;
  return {first + std::clamp<std::ptrdiff_t>(skip, 0, end - first), end};
}

struct Frame {
  std::string mObject;
  std::string mPlace;
  const void* mpLoadedAt;  // null if the place has a name
};

Frame Describe(void* address) {
  Dl_info info{};
  // The address is looked up one byte back: a return address behind a call that never returns can
  // already belong to the next function.
  const bool isKnown = dladdr(static_cast<char*>(address) - 1, &info) != 0;
  const bool hasName = isKnown && info.dli_sname != nullptr;
  std::ostringstream place;
  if (hasName) {
    place << Vexa::Demangle(info.dli_sname) << " + 0x" << std::hex
          << static_cast<char*>(address) - static_cast<char*>(info.dli_saddr);
  } else {
    place << "0x0 + " << address;
  }
  return {isKnown && info.dli_fname != nullptr ? info.dli_fname : "???", place.str(),
          hasName ? nullptr : info.dli_fbase};
}

std::string Table(std::span<void* const> frames) {
  std::vector<Frame> table;
  std::size_t width = 0;
  for (void* address : frames) {
    table.push_back(Describe(address));
    width = std::max(width, table.back().mObject.size());
  }
  std::ostringstream text;
  std::set<const void*> loadedAt;
  for (Frame& frame : table) {
    frame.mObject.resize(width, ' ');
    text << frame.mObject << "  " << frame.mPlace << "\n";
    loadedAt.insert(frame.mpLoadedAt);
  }
  // What is left of an address is what tools for debugging take.
  for (const Frame& frame : table) {
    if (frame.mpLoadedAt != nullptr && loadedAt.erase(frame.mpLoadedAt) > 0) {
      text << frame.mObject << "  is loaded at " << frame.mpLoadedAt << "\n";
    }
  }
  return text.str();
}

}  // namespace

std::string Vexa::Demangle(const char* name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  return status == 0 ? demangled.get() : name;
}

[[gnu::noinline]] std::string Backtrace(int skipFrames) {
  static bool sInBacktrace = false;
  Frames frames;
  try {
    return Table(TakeFrames(sInBacktrace, frames, __builtin_return_address(0), skipFrames));
  } catch (const std::bad_alloc&) {
    return "";  // a report without it is better than none
  }
}

[[gnu::noinline]] void PrintSimpleBacktrace(int skipFrames) {
  static bool sInBacktrace = false;
  Frames frames;
  const std::span<void* const> shown =
      TakeFrames(sInBacktrace, frames, __builtin_return_address(0), skipFrames);
  if (!shown.empty()) {
    const SigpipeHeldBack guard;
    backtrace_symbols_fd(shown.data(), static_cast<int>(shown.size()), STDERR_FILENO);
  }
}

void Vexa::PrepareBacktrace() {
  void* frame = nullptr;
  backtrace(&frame, 1);
}

// What the fuzz targets share. A target is one function from bytes to nothing: libFuzzer calls it
// with bytes that it makes up, Replay.cpp with the files of the target's corpus.
//
// For bad input the code under test throws a CodeError. Whatever else ends a call is a finding:
// another exception, a signal, the end of the process, a sanitizer's report, too much time or
// memory, and a FUZZ_CHECK that does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "Utils/ErrorHandling/CodeError.hpp"

namespace Fuzz {

/// Each target defines it.
void Target(std::string_view input);

/// Writes the text to standard error and aborts.
[[noreturn]] inline void Fail(const char* file, int line, const std::string& text) {
  std::fprintf(stderr, "FINDING at %s:%d: %s\n", file, line, text.c_str());
  std::abort();
}

/// False if the action throws a CodeError, true if it throws nothing.
bool Succeeds(const auto& action) {
  try {
    action();
    return true;
  } catch (const CodeError&) {
    return false;
  } catch (const std::exception& error) {
    Fail(__FILE__, __LINE__, std::string("an exception that is no CodeError: ") + error.what());
  }
}

}  // namespace Fuzz

/// Not REQUIRE, whose failure is a normal answer here.
#define FUZZ_CHECK(condition, text)                                                     \
  do {                                                                                  \
    if (!(condition)) {                                                                 \
      Fuzz::Fail(__FILE__, __LINE__, std::string(#condition) + " violated: " + (text)); \
    }                                                                                   \
  } while (false)

// How a libFuzzer program calls its target, and what it is to be set to, however it is started.
#include <cstdlib>
#include <iostream>

#include "Tests/Fuzz/Fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Target({reinterpret_cast<const char*>(data), size});
  return 0;
}

// Our own signal handlers must not take the place of those that save the input that led to the
// signal. Freed memory is held back, but not so much of it that it hides what is really in use.
// Dead stack frames are not: with them, each exception costs more than all the rest.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name is the sanitizer's
extern "C" const char* __asan_default_options() {
  return "handle_segv=2:handle_abort=2:handle_sigfpe=2:handle_sigbus=2:handle_sigill=2:"
         "quarantine_size_mb=16:detect_stack_use_after_return=0";
}

// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" const char* __ubsan_default_options() {
  return "print_stacktrace=1";
}

// Bad input is reported without end, and a backtrace costs more than all the rest.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("VEXA_NO_BACKTRACE", "1", 1);
  std::cerr.rdbuf(nullptr);
  return 0;
}

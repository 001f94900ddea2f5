#include "Tests/Fuzz/Fuzz.hpp"

#include <cstdio>
#include <cstdlib>

void Fuzz::Fail(const char* file, int line, const std::string& text) {
  std::fprintf(stderr, "FINDING at %s:%d: %s\n", file, line, text.c_str());
  std::abort();
}

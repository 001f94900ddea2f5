#include "Utils/Process/SystemError.hpp"

#include <string.h>

namespace {

// strerror_r() exists in two forms; which one a C++ compiler sees is not ours to choose.
[[maybe_unused]] std::string ErrorText(int status, const char* buffer, int errnum) {
  return status == 0 ? buffer : "Unknown error " + std::to_string(errnum);
}
[[maybe_unused]] std::string ErrorText(const char* text, const char* /*buffer*/, int /*errnum*/) {
  return text;
}

}  // namespace

std::string StrError(int errnum) {
  char buffer[1000] = "";
  return ErrorText(strerror_r(errnum, buffer, sizeof(buffer)), buffer, errnum);
}

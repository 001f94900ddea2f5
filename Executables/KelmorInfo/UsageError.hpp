// A mistake on the command line that shows only when the files are open.
#pragma once

#include <stdexcept>
#include <string>

/// Its user can mend it: it is told in a line, with the usage, and without a report.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void RequireUsage(bool isRight, const std::string& message) {
  if (!isRight) {
    throw UsageError(message);
  }
}

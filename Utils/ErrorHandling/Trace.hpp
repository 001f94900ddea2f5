// Trace lines: what a user sees of the library calls made when the verbosity is high enough.
#pragma once

#include <iostream>
#include <string>

#include "Utils/ErrorHandling/ProcID.hpp"

#pragma GCC visibility push(default)

/// Knows a verbosity and prints the lines whose level it reaches to standard output:
///   err = mTrace(5, H5Gclose(id), "H5Gclose(", id, ")");    "[??]     5 H5Gclose(7)=0"
/// The line begins with ProcID_(), as many blanks as the level, and the level. The pieces of text
/// are streamed one after the other, and only if the line is printed.
class Trace {
 public:
  explicit Trace(int verbosity) : mVerbosity(verbosity) {}

  int Verbosity() const { return mVerbosity; }

  /// Prints the pieces, "=" and the value; returns the value.
  template <class Value, class... Pieces>
  Value operator()(int level, Value value, const Pieces&... pieces) const {
    Line(level, pieces..., "=", value);
    return value;
  }

  /// Prints the pieces alone.
  template <class... Pieces>
  void Line(int level, const Pieces&... pieces) const {
    if (mVerbosity >= level) {
      std::cout << ProcID_() << std::string(level, ' ') << level << ' ';
      (std::cout << ... << pieces) << std::endl;
    }
  }

 private:
  int mVerbosity;
};

#pragma GCC visibility pop

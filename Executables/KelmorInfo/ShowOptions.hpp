#pragma once

#include <limits>
#include <optional>
#include <string>

#include "Utils/CommandLine/CommandLineParser.hpp"

/// What is to be shown of which dataset, and how.
struct ShowOptions {
  enum class Format { Aligned, CSV, JSON };

  /// Fails if options exclude each other.
  explicit ShowOptions(const CommandLineParser& parser);

  bool HasRange() const { return mFrom > -sInfinity || mTo < sInfinity; }

  static constexpr double sInfinity = std::numeric_limits<double>::infinity();

  std::string mName;          // with a '/' in front; empty if nothing is to be shown
  std::optional<double> mAt;  // the last step that is not after this time, instead of all
  double mFrom = -sInfinity;  // of steps with times from here
  double mTo = sInfinity;     // to here, both included
  std::string mColumns;       // names or numbers, or empty for all
  Format mFormat = Format::Aligned;
};

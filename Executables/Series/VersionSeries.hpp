#pragma once

#include "Executables/Series/Series.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

/// A version record, which is the same in all files.
class VersionSeries : public Series {
 public:
  using Object = H5_Objects::Version;
  using Series::Series;

  /// Fails if the file lacks the record but has one under a name that the record's name, read as a
  /// glob, matches.
  void RequireJoinable(const CachedH5File& file) const override;
  void TakeIn(int file, Depth depth) override;
  std::uint64_t Bytes() const override;
  std::vector<Property> Properties(bool asInFile) const override;
  const Object::History& VersionHistory() const { return version_history; }
  void Join(CachedH5File& output) override;
  void Describe(int file, Facts& facts) override;

 private:
  unsigned long version_number = 0;  // both are named as reports show them
  Object::History version_history;
};

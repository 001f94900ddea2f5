#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Factory/Register.hpp"
#include "Utils/Store/StringDataSet.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A Version tells the version of the format that a writer used, and the history of how that format
/// changed: pairs of (hash of the commit before this version, help text). The version number is the
/// number of entries. The history is written once, in one piece. Opening fails with "oops:
/// CurrentVersion =
/// ..." if the stored version is not the number of entries.
class Version : public StringDataSet, public Factory::Register<Version> {
 public:
  using History = std::vector<std::pair<std::string, std::string>>;

  static std::string ClassID() { return "ver"; }
  static std::string Help();

  Version(const std::string& name, bool existsOnDisk, int verbosity);

  /// Holds the history of a new record. Fails with "Please call initialize only once".
  void Initialize(const History& history);

  void DropCache() override;
  /// Holds again the whole history of a record that this process wrote, if it is not in the file.
  void HoldAgain() override;

  /// Fails with "Must call Initialize or OpenObject first".
  unsigned long GetCurrentVersion() const;
  /// Reads the entries in the file; the object must be open.
  History RetrieveVersionHistory() const;
  /// Returns the entries as one text: "Hash <hash>:\n<help>\n" for every entry.
  std::string RetrieveVersionHistorySingleString() const;

  /// Returns the number of characters of the entries that are not yet written.
  std::uint64_t SizeOfCache() const override { return mCharacters; }
  std::uint64_t NTimeStepsCached() const override { return mHist.size(); }
  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

 protected:
  void TakeExisting(const std::vector<hsize_t>& currdims) override;
  void AttachAttributes() override;
  std::string OwnAttribute() const override { return "Version"; }
  std::vector<std::string> WaitingStrings() const override;
  /// Fails with "This can be written only once, " if the file holds a history already.
  void RequireWritable(const std::vector<std::string>& strings) const override;

 private:
  void Hold(const History& history);

  unsigned long mCurrentVersion = 0;
  History mHist;                  // entries not yet written
  std::uint64_t mCharacters = 0;  // of all of mHist
  History mWhole;                 // what Initialize got: a file without it is none of that version
};

}  // namespace H5_Objects

#pragma GCC visibility pop

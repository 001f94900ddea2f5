#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Factory/Register.hpp"
#include "Utils/H5/H5_DataSet.hpp"

namespace H5_Objects {

/// The version of the format that a writer used, and the history of how that format changed: pairs
/// of (hash of the commit before this version, help text). The version number is the number of
/// entries. The history is written once, in one piece.
class Version : public DataSet, public Factory::Register<Version> {
 public:
  using History = std::vector<std::pair<std::string, std::string>>;

  static std::string ClassID() { return "ver"; }
  static std::string Help();

  Version(const std::string& name, bool existsOnDisk, int verbosity);
  /// Ends the process if the object is still open.
  ~Version() override;

  /// Holds the history of a new record. Fails with "Please call initialize only once".
  void Initialize(const History& history);

  /// Opens or creates the record. Fails with "oops: CurrentVersion = ..." if the stored version is
  /// not the number of entries.
  void OpenObject(hid_t parentGroupId) override;
  void CloseObject() override;
  bool AreAttributesKnown() const override { return mIsKnown; }

  /// Fails with "This can be written only once, " if the file holds a history already.
  void WriteCache() override;

  /// Fails with "Must call Initialize or OpenObject first".
  unsigned long GetCurrentVersion() const;
  /// The entries in the file; the object must be open.
  History RetrieveVersionHistory() const;
  /// The same as one text: "Hash <hash>:\n<help>\n" for every entry.
  std::string RetrieveVersionHistorySingleString() const;

  /// Characters of the entries that are not yet written.
  std::uint64_t SizeOfCache() const override { return mCharacters; }
  std::uint64_t NTimeStepsCached() const override { return mHist.size(); }
  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

 private:
  void OpenExisting(hid_t parentGroupId);
  void CreateNew(hid_t parentGroupId);

  unsigned long mCurrentVersion = 0;
  unsigned long long mSize = 0;   // rows in the file
  History mHist;                  // entries not yet written
  std::uint64_t mCharacters = 0;  // of all of mHist
  bool mIsKnown = false;
};

}  // namespace H5_Objects

// What the files that hold a dataset must have in common to be joined. Every file is noted, so that
// a failure tells of all of them at once.
#pragma once

#include <functional>
#include <source_location>
#include <string>
#include <vector>

/// Which files have which value.
class Agreement {
 public:
  struct Group {
    std::string mValue;       // "2 columns"
    std::vector<int> mFiles;  // that have it, ascending
  };

  explicit Agreement(std::string name) : mName(std::move(name)) {}

  /// Notes what a file has, as text. Returns whether it is what the first file has.
  bool Add(int file, const std::string& value);
  /// Notes what Require() fails with: a condition, the label of a report, a message, and where the
  /// condition stands. The first call decides.
  void Differ(const char* condition, const std::string& label, const std::string& reason,
              const std::source_location& where = std::source_location::current());

  bool IsReached() const { return mGroups.size() < 2; }
  /// Whether a file, if it was noted, has what the first file has.
  bool Includes(int file) const;
  /// There is a group for each value; the first file is in the first group.
  const std::vector<Group>& Groups() const { return mGroups; }
  /// Says what differs, without who has what; empty while nothing does.
  const std::string& Reason() const { return mReason; }
  /// Fails unless the files agree; the report ends with the groups. `nameOf` names a file.
  void Require(const std::function<std::string(int)>& nameOf) const;

 private:
  std::string mName;
  std::vector<Group> mGroups;
  std::string mReason;
  const char* mCondition = "";
  std::string mLabel;
  std::source_location mWhere;
};

/// "1.h5, 2.h5, 3.h5 and 4 more": about `most` of the names.
std::string ListNames(const std::vector<std::string>& names, std::size_t most);

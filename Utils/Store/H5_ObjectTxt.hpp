#pragma once

#include <cstdint>
#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

#include "Utils/Factory/Register.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/Store/StringDataSet.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A Txt is text. New text is appended with <<, waits in memory, and becomes one further string of
/// an array of strings each time the cache is written. Two other formats are read but never
/// appended to: a single scalar string, as other tools write it, and the older array of characters.
class Txt : public StringDataSet, public Factory::Register<Txt> {
 public:
  static std::string ClassID() { return "txt"; }
  static std::string Help();

  Txt(const std::string& name, bool existsOnDisk, int verbosity);

  /// Appends any printable value to the text in memory. Throws what keeps it from being appended.
  template <class T>
  Txt& operator<<(const T& value) {
    const Vexa::InsideStore inside;
    mText << value;
    ReportCacheSize();
    return *this;
  }

  /// Writes the text in memory as one string. A string ends at its first null character, so text
  /// that holds one is refused. Fails on the formats that cannot be appended to.
  void WriteCache() override;
  void DropCache() override;
  void RolledBack(bool isFileNew) override;

  /// Reads the whole text in the file: all strings without anything between them.
  std::string RetrieveData();
  /// Reads the text up to the first string that cannot be read, and counts the strings before it.
  /// Of the formats that cannot be appended to, all is read or this fails.
  std::string RetrieveReadable_(std::uint64_t& count);

  /// Returns the number of strings; text in memory counts as one more. Fails with "Must OpenObject
  /// before calling GetSize".
  unsigned long long GetSize() const;

  /// Returns how many characters are in memory.
  std::uint64_t SizeOfCache() const override { return mText.view().size(); }
  std::uint64_t NTimeStepsCached() const override { return SizeOfCache() > 0 ? 1 : 0; }
  std::uint64_t StepsInFile() const override { return mSize; }
  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

 protected:
  void TakeExisting(const std::vector<hsize_t>& dims) override;
  std::vector<std::string> WaitingStrings() const override;
  void RequireWritable(const std::vector<std::string>& strings) const override;

 private:
  bool HoldsCharacters() const;
  std::string RetrieveCharacters() const;

  std::ostringstream mText;   // not yet written
  bool mOldDatatype = false;  // an array of characters; known once it was read or written
};

}  // namespace H5_Objects

#pragma GCC visibility pop

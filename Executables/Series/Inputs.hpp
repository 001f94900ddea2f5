#pragma once

#include <functional>
#include <string>

#include "Executables/Series/ReadAhead.hpp"
#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/Store/CachedH5File.hpp"

/// The input files of a join, in command-line order, and what they hold. Of every input the names
/// stay in memory; a file that is open takes the HDF5 library half a megabyte, so only the first
/// few stay open, and the others are opened when something is read from them.
class Inputs {
 public:
  /// Opens every file and reads its names. If all of them will be read, their bytes are brought
  /// into memory meanwhile.
  explicit Inputs(const MyVector<std::string>& filenames,
                  ReadAhead::Need need = ReadAhead::Need::Times);

  int Size() const { return static_cast<int>(mFiles.size()); }
  CachedH5File& operator[](int file) { return mFiles[file]; }
  /// Returns the name that the file was given; the file itself knows its real path.
  const std::string& GivenName(int file) const { return mNames[file]; }
  const MyVector<CachedH5File>& Files() const { return mFiles; }
  /// Fails, with those that are not, unless all files are as they were before they were opened, and
  /// so is every file to which their external links led.
  void RequireUnchanged() const;
  /// Returns how much all files take on disk.
  std::uint64_t TotalBytes() const;

  /// Lends an object of a file to `read`, under a context that names both in reports, and lets go
  /// of what was opened for it unless that fails. Fails if the file has to be opened again and is
  /// not as it was.
  template <class OBJECT, class Read>
  void Visit(int file, const std::string& name, const Read& read) {
    const Vexa::ReportContext context(name, mFiles[file].Filename());
    RequireSameAsOpened(file);
    OBJECT& object = mFiles[file].template GetObjectForRead<OBJECT>(name);
    RequireSameAsOpened(file);
    if (mReadAhead.HasPlan()) {
      const bool isReadAhead = mReadAhead.Reads(static_cast<std::size_t>(file));
      mFiles[file].Hold().SetReadAhead(!isReadAhead);
    }
    read(object);
    Release(file);
  }

  /// What brings the files into memory.
  ReadAhead& Ahead() { return mReadAhead; }

  /// Does what visits the same object again and again: until it is done, what is opened in the
  /// files that stay open stays open as well. If it fails, that is left open.
  void KeepObjectsOpenDuring(const std::function<void()>& action);

  /// Closes all files.
  void Clear() { mFiles.Clear(); }

 private:
  // Closes what was opened in a file.
  void Release(int file);
  void RequireSameAsOpened(int file) const;
  bool HasChanged(int file) const;

  ReadAhead mReadAhead;
  MyVector<CachedH5File> mFiles;
  MyVector<std::string> mNames;      // as they were given
  std::vector<std::string> mStamps;  // of the files
  bool mKeepsObjectsOpen = false;
};

/// For each dataset name that matches the pattern and is not skipped, the files that hold it,
/// ascending. Skipped are the names that match the glob `skip`, which may be empty for none;
/// version records never are. Names come in the order of joining: those of the first file that has
/// any, ascending, then those that a later file adds.
using Entries = MyMap<std::string, std::vector<int>>;
Entries FindEntries(const MyVector<CachedH5File>& inputs, const std::string& pattern,
                    const std::string& skip);

/// Counts the files that FindEntries() finds for each name.
MyMap<std::string, int> ParseEntries(const MyVector<CachedH5File>& inputs,
                                     const std::string& pattern, const std::string& skip);

#pragma once

#include <string>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"
#include "Utils/Store/CachedH5File.hpp"

/// The input files of a join, in command-line order, and what they hold. Of every input the names
/// stay in memory; a file that is open takes the HDF5 library half a megabyte, so only the first
/// few stay open, and the others are opened when something is read from them.
class Inputs {
 public:
  /// Opens every file and reads its names.
  explicit Inputs(const MyVector<std::string>& filenames);

  int Size() const { return static_cast<int>(mFiles.size()); }
  CachedH5File& operator[](int file) { return mFiles[file]; }
  const MyVector<CachedH5File>& Files() const { return mFiles; }
  /// Fails, with those that are not, unless all files are as they were before they were opened, and
  /// so is every file to which their external links led.
  void RequireUnchanged() const;
  /// Returns how much all files take on disk.
  std::uint64_t TotalBytes() const;

  /// Lends an object of a file to `read`, under a context that names both in reports, and lets go
  /// of what was opened for it. Fails if it has to be opened again and is not as it was.
  template <class OBJECT, class Read>
  auto Visit(int file, const std::string& name, const Read& read) {
    const Vexa::ReportContext context(name, mFiles[file].Filename());
    RequireSameAsOpened(file);
    const Visitor visitor(*this, file);
    OBJECT& object = mFiles[file].template GetObjectForRead<OBJECT>(name);
    RequireSameAsOpened(file);
    return read(object);
  }

  /// While one lives, what is opened in the files that stay open stays open as well: for visits of
  /// the same object again and again.
  class KeptOpen {
   public:
    explicit KeptOpen(Inputs& inputs) : mInputs(inputs) { mInputs.mKeepsObjectsOpen = true; }
    ~KeptOpen() noexcept(false);
    KeptOpen(const KeptOpen&) = delete;
    KeptOpen& operator=(const KeptOpen&) = delete;

   private:
    Inputs& mInputs;
  };

  /// Closes all files.
  void Clear() { mFiles.Clear(); }

 private:
  // Closes what was opened in a file, unless a failure is on its way.
  class Visitor {
   public:
    Visitor(Inputs& inputs, int file) : mInputs(inputs), mFile(file) {}
    ~Visitor() noexcept(false);
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

   private:
    Inputs& mInputs;
    int mFile;
  };

  void Release(int file);
  void RequireSameAsOpened(int file) const;
  bool HasChanged(int file) const;

  MyVector<CachedH5File> mFiles;
  std::vector<std::string> mNames;   // as they were given
  std::vector<std::string> mStamps;  // of the files
  bool mKeepsObjectsOpen = false;
};

/// Whether a join leaves the dataset out: its name matches the glob, which may be empty for none.
/// Version records are never left out.
bool IsSkipped(const std::string& name, const std::string& skip);

/// For each dataset name that matches the pattern and is not skipped, the files that hold it,
/// ascending. Names come in the order of joining: those of the first file that has any, ascending,
/// then those that a later file adds.
using Entries = MyMap<std::string, std::vector<int>>;
Entries FindEntries(const MyVector<CachedH5File>& inputs, const std::string& pattern,
                    const std::string& skip);

/// Counts the files that FindEntries() finds for each name.
MyMap<std::string, int> ParseEntries(const MyVector<CachedH5File>& inputs,
                                     const std::string& pattern, const std::string& skip);

// A dataset across all files that hold it, as if they were joined. Whoever joins, plans, checks or
// lists a dataset does it through its series, so all that is particular to a kind stands in the
// kind's class, and SeriesKinds.cpp is the only place that names it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Executables/Series/Agreement.hpp"
#include "Executables/Series/Facts.hpp"
#include "Executables/Series/Inputs.hpp"
#include "Executables/Series/JoinOptions.hpp"
#include "Executables/Series/Progress.hpp"
#include "Executables/Series/SeriesKinds.hpp"

/// What all series of a run work with.
struct SeriesRun {
  Inputs& mInputs;
  const JoinOptions& mOptions;
  Progress& mProgress;
};

class Series {
 public:
  /// How much TakeIn() reads of a file: what must agree (of a version record that comes first only
  /// its number), and from Times on also the times.
  /// TimesIfReadable, for a plan, also notes what a join passes over in silence, and fails if the
  /// values cannot be read for another reason than damage. Values also reads values that are few
  /// enough to be held until they are written.
  enum class Depth { Agreement, Times, TimesIfReadable, Values };

  /// Something small that a join writes besides the values, and what it is called in reports.
  struct Property {
    std::string mName;
    std::variant<std::string, MyVector<std::string>> mValue;
  };

  /// Files by what they have.
  using Parts = std::map<std::string, std::vector<int>>;

  Series(const SeriesRun& run, const Dataset& dataset)
      : mRun(run), mDataset(dataset), mAgreement(dataset.mName), mLegends(dataset.mName) {}
  virtual ~Series() = default;
  Series(const Series&) = delete;
  Series& operator=(const Series&) = delete;

  /// Fails if the file, which may hold the dataset or not, keeps the others from being joined.
  virtual void RequireJoinable(const CachedH5File& /*file*/) const {}
  /// Reads the dataset in one more file; of one that does not agree with the first, only what must
  /// agree is read.
  virtual void TakeIn(int file, Depth depth) = 0;
  /// Takes in every file that holds the dataset, and fails unless they agree.
  void TakeInAll(Depth depth);

  /// All below is about the files that were taken in.
  const Agreement& Agreed() const { return mAgreement; }
  /// Which legends the files have; those that name nothing are passed over. A join writes the one
  /// of the first file.
  const Agreement& Legends() const { return mLegends; }
  /// Which files have something in the dataset that no join writes, by what it is.
  const Parts& ForeignParts() const { return mForeignParts; }
  /// The bytes of what is kept, uncompressed.
  virtual std::uint64_t Bytes() const = 0;
  /// Whether a join writes the dataset at all.
  virtual bool IsWritten() const { return Bytes() > 0; }
  /// The properties as a join writes them, or as they stand in the first file.
  virtual std::vector<Property> Properties(bool /*asInFile*/) const { return {}; }

  /// Takes in all files and writes them to the output.
  virtual void Join(CachedH5File& output) = 0;
  /// Takes in all files and writes what reads like their join: values in tables stay where they
  /// are, all else is joined. `inputNames` are the inputs as seen from the folder of the output.
  virtual void MakeView(CachedH5File& output, const std::vector<std::string>& /*inputNames*/) {
    Join(output);
  }
  /// Reads what there is to say about the dataset in one file.
  virtual void Describe(int file, Facts& facts) = 0;

  /// What a damaged file has of a dataset, and what is whole of it.
  struct Remains {
    std::uint64_t mTotal = 0;  // steps
    std::uint64_t mKept = 0;
    TimeRange mKeptTimes;
    TimeRange mLostTimes;  // as far as they can be read
    std::string mReason;   // why not all are kept
  };
  /// Writes what is whole of the dataset in a file, in which it may be damaged: the steps before
  /// the first that cannot be read. Of a kind without steps it is all or nothing: then this fails.
  virtual Remains Salvage(int /*file*/, CachedH5File& output) {
    Join(output);
    return {};
  }

 protected:
  const std::string& Name() const { return mDataset.mName; }
  template <class KIND, class Read>
  void Visit(int file, const Read& read) {
    mRun.mInputs.Visit<KIND>(file, Name(), read);
  }

  /// Notes what a plan warns of, if `depth` asks for it.
  void Note(int file, const H5_Object& object, const MyVector<std::string>& legend, Depth depth);

  SeriesRun mRun;
  const Dataset& mDataset;
  Agreement mAgreement;

 private:
  void NoteLegend(int file, const MyVector<std::string>& legend);

  Agreement mLegends;
  MyVector<std::string> mFirstLegend;  // of the first file whose legend names something
  Parts mForeignParts;
};

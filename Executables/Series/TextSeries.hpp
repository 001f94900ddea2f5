#pragma once

#include "Executables/Series/Series.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"

/// The texts of all files, one after the other.
class TextSeries : public Series {
 public:
  using Object = H5_Objects::Txt;
  using Series::Series;

  /// Fails on a text that the output cannot hold.
  void TakeIn(int file, Depth depth) override;
  std::uint64_t Bytes() const override { return mText.size(); }
  void Join(CachedH5File& output) override;
  Remains Salvage(int file, CachedH5File& output) override;
  void Describe(int file, Facts& facts) override;

  const std::string& Text() const { return mText; }
  /// Where the text of each file ends in that of all.
  const std::vector<std::size_t>& Ends() const { return mEnds; }

 private:
  void Write(CachedH5File& output);

  std::string mText;
  std::vector<std::size_t> mEnds;
};

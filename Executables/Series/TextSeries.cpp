#include "Executables/Series/TextSeries.hpp"

#include <iostream>

#include "Utils/ErrorHandling/Require.hpp"

using H5_Objects::Txt;

namespace {

// Only arrays of characters can hold one; the output's strings end at it.
void RequireNoNull(const std::string& part) {
  REQUIRE(part.find('\0')==std::string::npos, "The text holds a null character");
}

}  // namespace

void TextSeries::TakeIn(int file, Depth depth) {
  if (depth != Depth::Agreement) {
    Visit<Txt>(file, [&](Txt& txt) {
      const std::string part = txt.RetrieveData();
      RequireNoNull(part);
      mText += part;
      mEnds.push_back(mText.size());
      Note(file, txt, {}, depth);
    });
  }
}

void TextSeries::Join(CachedH5File& output) {
  TakeInAll(Depth::Values);
  Write(output);
}

Series::Remains TextSeries::Salvage(int file, CachedH5File& output) {
  Remains remains;
  Visit<Txt>(file, [&](Txt& txt) {
    remains.mTotal = txt.GetSize();
    mText = txt.RetrieveReadable_(remains.mKept);
    RequireNoNull(mText);
  });
  remains.mReason = "the next string cannot be read";
  Write(output);
  return remains;
}

void TextSeries::Write(CachedH5File& output) {
  auto& txt = output.GetObjectForWrite<Txt>(Name());
  if (mRun.mOptions.mVerbose) {
    std::cout << Name() << " writing " << mText.size() << " characters." << std::endl;
  }
  if (IsWritten()) {
    txt << mText;
    output.WriteImmediately(Name(), [&txt] { txt.WriteCache(); });
  }
}

void TextSeries::Describe(int file, Facts& facts) {
  Visit<Txt>(file, [&facts](const Txt& txt) {
    facts.mShape = txt.ExtentsInFile();
    facts.AddStorage(txt);
  });
}

#include "Executables/Series/TextSeries.hpp"

#include <iostream>

#include "Utils/ErrorHandling/Require.hpp"

using H5_Objects::Txt;

void TextSeries::TakeIn(int file, Depth depth) {
  if (depth != Depth::Agreement) {
    Visit<Txt>(file, [&](Txt& txt) {
      const std::string part = txt.RetrieveData();
      // Only arrays of characters can hold one; the output's strings end at it.
      REQUIRE(part.find('\0')==std::string::npos, "The text holds a null character");
      mText += part;
      mEnds.push_back(mText.size());
      Note(file, txt, {}, depth);
    });
  }
}

void TextSeries::Join(CachedH5File& output) {
  TakeInAll(Depth::Values);
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

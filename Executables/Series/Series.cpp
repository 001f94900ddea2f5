#include "Executables/Series/Series.hpp"

void Series::TakeInAll(Depth depth) {
  for (const CachedH5File& file : mRun.mInputs.Files()) {
    RequireJoinable(file);
  }
  for (const int file : mDataset.mFiles) {
    TakeIn(file, mAgreement.IsReached() ? depth : Depth::Agreement);
  }
  mAgreement.Require([this](int file) { return mRun.mInputs[file].Filename(); });
}

#include "Executables/Series/CoefSeries.hpp"

using H5_Objects::Coef;

void CoefSeries::TakeIn(int file, Depth depth) {
  Visit<Coef>(file, [&](const Coef& coef) {
    TakeInSet(file, coef, depth, [&coef] { return coef.RetrieveIndex_(); });
  });
}

void CoefSeries::Write(CachedH5File& output) {
  auto& coef = output.GetObjectForWrite<Coef>(Name());
  coef.Initialize(mTimeDescription, mDataDescription, !mRun.mOptions.mNoGzip, Steps().mKept,
                  KeptRows());
  WriteTo(output, coef);
}

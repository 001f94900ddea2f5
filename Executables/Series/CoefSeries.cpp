#include "Executables/Series/CoefSeries.hpp"

using H5_Objects::Coef;
using H5_Objects::Dat;

bool CoefSeries::TakeIn(int file, Depth depth) {
  Visit<Coef>(file, [&](const Coef& coef) {
    TakeInSet(file, coef, depth, [&coef] { return coef.RetrieveIndex_(); });
  });
  return true;
}

void CoefSeries::Describe(int file, Facts& facts) {
  Visit<Coef>(file, [&facts](const Coef& coef) { DescribeSet(coef, facts); });
}

void CoefSeries::VisitTable(int file, const std::function<void(const Dat&)>& visit) {
  Visit<Coef>(file, [&visit](const Coef& coef) { visit(coef.Values()); });
}

void CoefSeries::Write(CachedH5File& output) {
  auto& coef = output.GetObjectForWrite<Coef>(Name());
  coef.Initialize(TimeDescription(), DataDescription(), !mRun.mOptions.mNoGzip, Steps().mKept,
                  KeptRows());
  WriteTo(output, coef);
}

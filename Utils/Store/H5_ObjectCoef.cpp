#include "Utils/Store/H5_ObjectCoef.hpp"

#include <algorithm>
#include <ostream>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Store/InsideStore.hpp"

template struct Factory::Register<H5_Objects::Coef>;

namespace H5_Objects {

std::string Coef::Help() {
  return "H5_Object::Coef                                                 \n"
         "Represents a group that holds data of the form                  \n"
         "     t_i,  A[k], k=0, ... N_i                                   \n"
         "That is, a 1-d vector for each value of t, where the length of  \n"
         "the vector can change between time-steps.                       \n";
}

Coef::Coef(const std::string& name, bool existsOnDisk, int verbosity)
    : IndexedGroup("Coef", name, "coefs.dat", existsOnDisk, verbosity), mCoefs(Values()) {}

MyVector<std::string> Coef::IndexLegend(const std::string& timeDescription) {
  return {timeDescription, "index one past current coeff-data"};
}

void Coef::Initialize(const std::string& timeDescription, const std::string& dataDescription,
                      bool compress, std::size_t indexChunkRows, std::size_t coefChunkRows) {
  InitializeTables(IndexLegend(timeDescription), dataDescription, compress, indexChunkRows,
                   coefChunkRows);
}

void Coef::Append(double time, const MyVector<double>& coefs) {
  Append_(time, std::span(coefs.data(), coefs.size()));
}

void Coef::Append_(double time, std::span<const double> coefs) {
  const Vexa::InsideStore inside;
  REQUIRE(mCoefs.IsInitialized(), "Must initialize H5_PluginsCoef before appending data");
  std::copy(coefs.begin(), coefs.end(), AppendStep(time, {}, coefs.size()).begin());
}

void Coef::RetrieveData(MyVector<double>& times, MyVector<MyVector<double>>& data) const {
  mTrace.Line(5, "Coef::RetrieveData()");
  const StepIndex index = RetrieveIndex_();
  const std::vector<double> values = RetrieveValuesOf(index);
  times = MyVector<double>(index.mTimes);
  data.assign(MV::Size(index.Size()));
  for (std::uint64_t step = 0; step < index.Size(); ++step) {
    data[step].assign(MV::Sequence(values.data() + index.Begin(step), index.Values(step)));
  }
}

MyVector<double> Coef::RetrieveCoefficients(std::size_t filestep) const {
  const Step step = RetrieveStepIndex(filestep);
  MyVector<double> coefs{MV::Size(step.mEnd - step.mBegin)};
  mCoefs.RetrieveColumns_({0, 1, step.mBegin, coefs.size()}, coefs.data());
  return coefs;
}

std::ostream& Coef::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  if (!AreAttributesKnown()) {
    return os << "size unknown";
  }
  return os << GetNumberOfTimeSteps() + NTimeStepsCached() << " time-steps with "
            << mCoefs.GetExtents()[0] + CachedValues() << " coefs";
}

}  // namespace H5_Objects

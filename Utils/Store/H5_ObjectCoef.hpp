#pragma once

#include <iosfwd>
#include <span>
#include <string>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Factory/Register.hpp"
#include "Utils/Store/IndexedGroup.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A Coef is a time series of coefficient vectors, whose length may change from step to step. Its
/// values are in "coefs.dat".
class Coef : public IndexedGroup, public Factory::Register<Coef> {
 public:
  static std::string ClassID() { return "coef"; }
  static std::string Help();

  Coef(const std::string& name, bool existsOnDisk, int verbosity);

  /// Returns the names of a new set's index columns.
  static MyVector<std::string> IndexLegend(const std::string& timeDescription);

  /// Shapes a new set; the chunk lengths are those of its two tables, in rows.
  void Initialize(const std::string& timeDescription, const std::string& dataDescription,
                  bool compress, std::size_t indexChunkRows, std::size_t coefChunkRows);
  bool IsInitialized() const { return mCoefs.IsInitialized(); }

  /// Adds a step to the cache. Fails with "Must initialize H5_PluginsCoef before appending data".
  void Append(double time, const MyVector<double>& coefs);
  void Append_(double time, std::span<const double> coefs);

  /// Reads all steps in the file: times[i] is the time of data[i].
  void RetrieveData(MyVector<double>& times, MyVector<MyVector<double>>& data) const;
  /// Reads one step; fails with "Access out of bounds.  Requesting filestep=...".
  MyVector<double> RetrieveCoefficients(std::size_t filestep) const;

  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

 protected:
  std::uint64_t ExtraColumns() const override { return 0; }

 private:
  const Dat& mCoefs;  // the base's values
};

}  // namespace H5_Objects

#pragma GCC visibility pop

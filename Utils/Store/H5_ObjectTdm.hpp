#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/Factory/Register.hpp"
#include "Utils/Store/IndexedGroup.hpp"
#include "Utils/Tensors/DataMesh.hpp"
#include "Utils/Tensors/Tensor.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

#pragma GCC visibility push(default)

namespace H5_Objects {

/// A TensorSpec is what is the same in all steps of a Tdm, as its attribute "TensorSpec" says it:
/// "TensorDim=3; TensorSymm=11; DataMeshDim=2;".
struct TensorSpec {
  int mDim = 0;
  std::string mSymm;
  int mDataMeshDim = 0;

  std::string Text() const;
  /// Fails unless the text is read as what it was made of. Whatever was read from a text passes.
  void RequireStorable() const;
  /// Reads the text as OptionParser does, and fails as it does; also if there is another key, or if
  /// no mesh has so many dimensions. Whether a tensor has that structure is left to its table.
  static TensorSpec FromText(const std::string& text);
};

/// A Tdm is a time series of tensors whose components are values on a mesh. Dimension and symmetry
/// of the tensor and the dimension of the mesh are the same for all steps, and stand in the
/// attribute "TensorSpec" of the group; the mesh's extents may change from step to step, and stand
/// in the index. Values are in "data.dat": component after component, each in the mesh's point
/// order.
class Tdm : public IndexedGroup, public Factory::Register<Tdm> {
 public:
  static std::string ClassID() { return "tdm"; }
  static std::string Help();

  Tdm(const std::string& name, bool existsOnDisk, int verbosity);

  /// Returns the names of a new series' index columns.
  static MyVector<std::string> IndexLegend(const std::string& timeDescription, int dataMeshDim);

  /// Shapes a new series; the chunk lengths are those of its two tables, in rows. Fails with "Tdm
  /// already initialized", and if characters of the symmetry have a meaning in "TensorSpec", so
  /// that it could not be read back.
  void Initialize(const std::string& timeDescription, const std::string& dataDescription,
                  const TensorStructure& structure, int dataMeshDim, bool compress,
                  unsigned long indexChunkRows, unsigned long dataChunkRows);
  bool IsInitialized() const { return mpStructure != nullptr; }

  /// Adds a step to the cache. All components lie on meshes of the same size. Fails if the tensor
  /// is not of the structure and mesh dimension of the series.
  void Append(double time, const Tensor<DataMesh>& data);
  /// Adds a step whose values are in memory as they are on disk: component after component.
  void Append_(double time, const Mesh& mesh, const double* values);

  /// Fails with "Must call Initialize or OpenObject first".
  const TensorStructure& GetStructure() const;
  int GetDataMeshDim() const;

  /// Reads all steps in the file: times[i] is the time of data[i].
  void RetrieveData(MyVector<double>& times, MyVector<Tensor<DataMesh>>& data) const;
  /// Reads one step; fails with "Access out of bounds.  Requesting filestep=...".
  Tensor<DataMesh> RetrieveStep(unsigned long filestep) const;
  /// Reads the index, checked as a whole: besides the offsets, the extents are whole, not negative,
  /// and make as many points as the step has values per component.
  StepIndex RetrieveCheckedIndex_() const;

  std::ostream& Output(std::ostream& os, const std::string& indent) const override;

 protected:
  void OpenAttributes(bool existedBefore) override;
  bool IsWholeStep(std::span<const double> extents, double values) const override;
  std::string OwnAttribute() const override { return "TensorSpec"; }
  std::uint64_t ExtraColumns() const override { return static_cast<std::uint64_t>(mDataMeshDim); }

 private:
  double* AppendStep(double time, const Mesh& mesh);
  Mesh CheckedMesh(const Step& step, std::uint64_t number) const;
  Tensor<DataMesh> MakeTensor(const Mesh& mesh, const double* values) const;

  std::shared_ptr<const TensorStructure> mpStructure;
  int mDataMeshDim = 0;
};

}  // namespace H5_Objects

#pragma GCC visibility pop

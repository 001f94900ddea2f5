#include "Utils/Store/H5_ObjectTdm.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/HDF5/H5_Utils.hpp"
#include "Utils/Store/InsideStore.hpp"
#include "Utils/StringParsing/OptionParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

template struct Factory::Register<H5_Objects::Tdm>;

namespace H5_Objects {

std::string Tdm::Help() {
  return "H5_Object::Tdm                                                  \n"
         "  Represents a group that holds a Tensor<DataMesh>.             \n"
         "  The TensorStructure is enforced to be constant (i.e. same dim,\n"
         "  rank, symmetries throughout run).  The extents of the DataMesh\n"
         "  are allowed to change from step to step.                      \n";
}

Tdm::Tdm(const std::string& name, bool existsOnDisk, int verbosity)
    : IndexedGroup("Tdm", name, "data.dat", existsOnDisk, verbosity) {}

MyVector<std::string> Tdm::IndexLegend(const std::string& timeDescription, int dataMeshDim) {
  MyVector<std::string> legend{MV::Size(static_cast<std::uint64_t>(dataMeshDim) + 2)};
  legend[0] = timeDescription;
  legend[1] = "index one past this filestep";
  for (int i = 0; i < dataMeshDim; ++i) {
    legend[i + 2] = "Extents[" + std::to_string(i) + "]";
  }
  return legend;
}

void Tdm::Initialize(const std::string& timeDescription, const std::string& dataDescription,
                     const TensorStructure& structure, int dataMeshDim, bool compress,
                     unsigned long indexChunkRows, unsigned long dataChunkRows) {
  REQUIRE(!IsInitialized(), "Tdm already initialized");
  REQUIRE(dataMeshDim>=0 && dataMeshDim<=Mesh::MaxDim,
          "A DataMesh has 0 to " << Mesh::MaxDim << " dimensions, got " << dataMeshDim);
  // What cannot be read back would be found out when the series has been written, and is lost.
  TensorSpec{structure.Dim(), structure.Symmetry(), dataMeshDim}.RequireStorable();
  mpStructure = FindTensorIndexTable(structure.Dim(), structure.Symmetry());
  mDataMeshDim = dataMeshDim;
  InitializeTables(IndexLegend(timeDescription, dataMeshDim), dataDescription, compress,
                   indexChunkRows, dataChunkRows);
}

std::string TensorSpec::Text() const {
  return "TensorDim=" + std::to_string(mDim) + "; TensorSymm=" + mSymm +
         "; DataMeshDim=" + std::to_string(mDataMeshDim) + ";";
}

void TensorSpec::RequireStorable() const {
  bool canBeStored = mSymm.find_first_of(std::string("#\0", 2)) == std::string::npos &&
                     RemoveLeadingAndTrailingWhitespace(mSymm) == mSymm;
  // The parser takes neither ";" nor "=" for an end where parentheses are open.
  int depth = 0;
  for (const char c : mSymm) {
    depth += c == '(' ? 1 : c == ')' ? -1 : 0;
    const bool isEnd = depth == 0 && (c == ';' || c == '=');
    canBeStored = canBeStored && depth >= 0 && !isEnd;
  }
  canBeStored = canBeStored && depth == 0;
  REQUIRE(canBeStored,
          "The symmetry '" << mSymm << "' has characters with a meaning in TensorSpec");
}

TensorSpec TensorSpec::FromText(const std::string& text) {
  const OptionParser parser(text,
                            "H5_Objects::Tdm::OpenObject. Parsing tensor structure.\n"
                            "OPTIONS\n"
                            "  TensorDim  = int;  # Dimension of tensor\n"
                            "  TensorSymm = string;  # symmetriy specification of tensor\n"
                            "  DataMeshDim= int;  # dimension of the DataMeshes stored inside\n",
                            false);
  const int TDim = parser.Get<int>("TensorDim");
  auto Tsymm = parser.Get<std::string>("TensorSymm");
  const int DmDim = parser.Get<int>("DataMeshDim");
  parser.TerminateIfThereAreUnusedOptions();
  REQUIRE(DmDim>=0 && DmDim<=Mesh::MaxDim,
          "A DataMesh has 0 to " << Mesh::MaxDim << " dimensions, got " << DmDim);
  return {TDim, std::move(Tsymm), DmDim};
}

void Tdm::OpenAttributes(bool existedBefore) {
  if (!existedBefore) {
    REQUIRE(IsInitialized(), "Called OpenObject on a H5_Object::Tdm, which is not initialized");
    const TensorSpec spec{mpStructure->Dim(), mpStructure->Symmetry(), mDataMeshDim};
    Vexa_H5::AttachStringsToAttributes(GroupId(), "TensorSpec", {spec.Text()}, mTrace.Verbosity());
    return;
  }
  const MyVector<std::string> spec =
      Vexa_H5::RetrieveStringsFromAttributes(GroupId(), "TensorSpec", false, mTrace.Verbosity());
  REQUIRE(spec.Size()==1, "Attribute TensorSpec holds " << spec.Size() << " strings, not one");
  const auto [TDim, Tsymm, DmDim] = TensorSpec::FromText(spec[0]);
  if (IsInitialized()) {
    REQUIRE(mDataMeshDim==DmDim,
            "Inconsistency in DataMesh dimension.\n"
                << "Have you append'ed data of different dimension to that in the file?");
    REQUIRE(*mpStructure == TensorStructure(TDim, Tsymm),
            "Inconsistency in TensorStructure.\n"
                << "Have you append'ed data of different dimension to that in the file?");
  } else {
    mpStructure = FindTensorIndexTable(TDim, Tsymm);
    mDataMeshDim = DmDim;
  }
}

bool Tdm::IsWholeStep(std::span<const double> extents, double values) const {
  long double product = mpStructure->NumberOfComponents();
  for (const double extent : extents) {
    if (!(extent >= 0) || extent != std::floor(extent)) {
      return false;
    }
    product *= extent;
  }
  return product == values;
}

void Tdm::Append(double time, const Tensor<DataMesh>& data) {
  const Vexa::InsideStore inside;
  REQUIRE(IsInitialized(), "Must initialize H5_PluginsTdm before appending data");
  REQUIRE(data.Size()>0, "The tensor has no components");
  REQUIRE(mDataMeshDim==data.begin()->Dim(), "Tdm::Append dimension of DataMesh inconsistent");
  REQUIRE(*mpStructure==data.Structure(), "Tdm::Append TensorStructure inconsistent");
  const Mesh& mesh = data.begin()->Mesh();
  for (const DataMesh* it = data.begin(); it != data.end(); ++it) {
    REQUIRE(it->Size()==mesh.Size(), "inconsistent sizes in the components of the tensor");
  }
  double* values = AppendStep(time, mesh);
  for (const DataMesh& component : data) {
    values = std::copy(component.begin(), component.end(), values);
  }
}

void Tdm::Append_(double time, const Mesh& mesh, const double* values) {
  const Vexa::InsideStore inside;
  REQUIRE(IsInitialized(), "Must initialize H5_PluginsTdm before appending data");
  REQUIRE(mDataMeshDim==mesh.Dim(), "Tdm::Append dimension of DataMesh inconsistent");
  std::copy_n(values, mpStructure->NumberOfComponents() * mesh.Size(), AppendStep(time, mesh));
}

double* Tdm::AppendStep(double time, const Mesh& mesh) {
  const std::vector<double> extents(mesh.Extents().begin(), mesh.Extents().end());
  const auto count = static_cast<std::uint64_t>(mpStructure->NumberOfComponents()) *
                     static_cast<std::uint64_t>(mesh.Size());
  return IndexedGroup::AppendStep(time, extents, count).data();
}

const TensorStructure& Tdm::GetStructure() const {
  REQUIRE(AreAttributesKnown() && IsInitialized(), "Must call Initialize or OpenObject first");
  return *mpStructure;
}

int Tdm::GetDataMeshDim() const {
  REQUIRE(AreAttributesKnown() && IsInitialized(), "Must call Initialize or OpenObject first");
  return mDataMeshDim;
}

Mesh Tdm::CheckedMesh(const Step& step, std::uint64_t number) const {
  MyVector<int> whole{MV::Size(step.mExtras.size())};
  for (std::size_t i = 0; i < step.mExtras.size(); ++i) {
    const double extent = step.mExtras[i];
    // The check comes before the conversion, which is undefined out of range.
    REQUIRE(extent>=0 && extent<=std::numeric_limits<int>::max() && extent==std::floor(extent),
            "Index of " << mName << " holds the mesh extent " << extent);
    whole[i] = static_cast<int>(extent);
  }
  Mesh mesh(whole);
  // Compared by division: the product may not fit.
  const auto components = static_cast<std::uint64_t>(mpStructure->NumberOfComponents());
  const auto points = static_cast<std::uint64_t>(mesh.Size());
  const std::uint64_t values = step.mEnd - step.mBegin;
  REQUIRE(values % components == 0 && values / components == points,
          "internal error.  curr_idx=" << step.mBegin << " + " << components
                                       << " components of " << points << " points, offset["
                                       << number << "]=" << step.mEnd);
  return mesh;
}

StepIndex Tdm::RetrieveCheckedIndex_() const {
  StepIndex index = RetrieveIndex_();
  for (std::uint64_t step = 0; step < index.Size(); ++step) {
    CheckedMesh(index.At(step), step);
  }
  return index;
}

Tensor<DataMesh> Tdm::MakeTensor(const Mesh& mesh, const double* values) const {
  Tensor<DataMesh> tensor(mpStructure, mesh);
  for (DataMesh& component : tensor) {
    std::copy_n(values, component.Size(), component.data());
    values += component.Size();
  }
  return tensor;
}

void Tdm::RetrieveData(MyVector<double>& times, MyVector<Tensor<DataMesh>>& data) const {
  REQUIRE(IsObjectOpen(), "Must call OpenObject before reading data");
  mTrace.Line(5, "Tdm::RetrieveData()");
  const StepIndex index = RetrieveIndex_();
  const std::vector<double> values = RetrieveValuesOf(index);
  times = MyVector<double>(index.mTimes);
  data.assign(MV::Size(index.Size()));
  for (std::uint64_t step = 0; step < index.Size(); ++step) {
    data[step] = MakeTensor(CheckedMesh(index.At(step), step), values.data() + index.Begin(step));
  }
}

Tensor<DataMesh> Tdm::RetrieveStep(unsigned long filestep) const {
  mTrace.Line(5, "Tdm::RetrieveTdm(", filestep, ")");
  REQUIRE(IsObjectOpen(), "Must call OpenObject before reading data");
  const Step step = RetrieveStepIndex(filestep);
  const Mesh mesh = CheckedMesh(step, filestep);
  std::vector<double> values(step.mEnd - step.mBegin);
  Values().RetrieveColumns_({0, 1, step.mBegin, values.size()}, values.data());
  return MakeTensor(mesh, values.data());
}

std::ostream& Tdm::Output(std::ostream& os, const std::string& indent) const {
  os << indent;
  if (!AreAttributesKnown()) {
    return os << "size unknown";
  }
  const std::uint64_t steps = NTimeStepsCached();
  const double average =
      steps == 0 ? 0. : static_cast<double>(CachedValues()) / static_cast<double>(steps);
  return os << GetNumberOfTimeSteps() << " time-steps, " << steps
            << " cached time-steps, avg. size=" << average;
}

}  // namespace H5_Objects

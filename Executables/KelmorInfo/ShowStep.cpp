#include "Executables/KelmorInfo/ShowStep.hpp"

#include <algorithm>
#include <functional>
#include <numeric>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Executables/KelmorInfo/JsonParts.hpp"
#include "Executables/KelmorInfo/ShowPrinter.hpp"
#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/Series/Pieces.hpp"
#include "Executables/Series/TdmSeries.hpp"

namespace {

using H5_Objects::StepIndex;

// So many values are in memory at a time, or one chunk.
constexpr std::uint64_t sBlockValues = 1024 * 1024;

// The index lists of the independent components of a tensor, in the order of the components.
std::vector<std::vector<int>> ComponentsOf(const TensorStructure& structure) {
  std::vector<std::vector<int>> components;
  const MyVector<int> extents(MV::Size(static_cast<std::size_t>(structure.Rank())),
                              structure.Dim());
  const auto count = static_cast<std::size_t>(structure.NumberOfComponents());
  MyVector<int> canonical;
  for (std::ptrdiff_t flat = 0; components.size() < count; ++flat) {
    const MyVector<int> indices = ComputeIndex(flat, extents);
    TensorStructure::ApplySymmToIndexList(structure.Symmetry(), indices, canonical);
    if (canonical == indices) {
      components.emplace_back(indices.begin(), indices.end());
    }
  }
  return components;
}

// How the values of a step lie: component after component, in each the first index of the mesh
// varying fastest. Coefficients are one component on a mesh of one dimension.
struct StepShape {
  const TdmSeries* mpTdm;  // null of coefficients
  std::vector<std::vector<int>> mComponents;
  std::vector<std::uint64_t> mExtents;

  std::uint64_t Points() const {
    return std::accumulate(mExtents.begin(), mExtents.end(), std::uint64_t{1}, std::multiplies());
  }
};

StepShape ShapeOf(const IndexedSeries& series, const StepIndex& index, std::uint64_t step) {
  const auto* tdm = dynamic_cast<const TdmSeries*>(&series);
  if (tdm == nullptr) {
    return {nullptr, {{}}, {index.Values(step)}};
  }
  StepShape shape{tdm, ComponentsOf(tdm->Structure()), {}};
  for (const std::vector<double>& extents : index.mExtras) {
    shape.mExtents.push_back(static_cast<std::uint64_t>(extents[step]));
  }
  return shape;
}

// Hands over the values of a step, one after the other.
template <class Use>
void ForEachValue(IndexedSeries& series, const StepIndex& index, std::uint64_t step,
                  const Use& use) {
  const Tables::ColumnBlock block{0, 1, index.Begin(step), index.Values(step)};
  const auto read = [&](const SteppedSeries::Room& room) {
    series.Read(block, sBlockValues, room);
  };
  ForEachPiece(read, [&](const PieceOfRows& piece) {
    std::for_each_n(piece.mValues.get(), piece.mWhere.mRows, use);
  });
}

// What is told of a step before its values.
std::string Heading(const IndexedSeries& series, const StepIndex& index, std::uint64_t step,
                    const StepShape& shape) {
  const std::string& description = series.DataDescription();
  std::ostringstream text;
  text << "step " << step << ", t = " << RoundTrip(index.mTimes[step]) << ": "
       << (description.empty() ? "" : Vexa::Printable(description) + ", ");
  if (shape.mpTdm == nullptr) {
    text << Counted(index.Values(step), "value");
    return text.str();
  }
  text << shape.mpTdm->Structure() << ", mesh of";
  for (std::size_t k = 0; k < shape.mExtents.size(); ++k) {
    text << (k == 0 ? " " : " x ") << shape.mExtents[k];
  }
  text << (shape.mExtents.empty() ? " 1 point" : shape.Points() == 1 ? " point" : " points");
  return text.str();
}

// A row for each value, with the indices of component and mesh in front, and in CSV the time.
void PrintRows(std::ostream& os, ShowOptions::Format format, IndexedSeries& series,
               const StepIndex& index, std::uint64_t step, const StepShape& shape) {
  std::vector<std::string> names;
  std::vector<double> row;
  if (format == ShowOptions::Format::CSV) {
    names.emplace_back("time");
    row.push_back(index.mTimes[step]);
  } else {
    os << Heading(series, index, step, shape) << '\n';
  }
  const std::size_t firstIndex = names.size();
  for (std::size_t k = 0; k < shape.mComponents.front().size(); ++k) {
    names.push_back("Index[" + std::to_string(k) + "]");
  }
  const std::size_t firstPoint = names.size();
  for (std::size_t k = 0; k < shape.mExtents.size(); ++k) {
    names.push_back(shape.mpTdm == nullptr ? "number" : "Point[" + std::to_string(k) + "]");
  }
  names.emplace_back("value");
  row.resize(names.size());
  const auto printer = RowPrinter::Make(format, os, names, {});
  const std::uint64_t points = shape.Points();
  std::uint64_t number = 0;
  ForEachValue(series, index, step, [&](double value) {
    std::ranges::copy(shape.mComponents[number / points], row.begin() + firstIndex);
    std::uint64_t point = number % points;
    for (std::size_t k = 0; k < shape.mExtents.size(); ++k) {
      row[firstPoint + k] = static_cast<double>(point % shape.mExtents[k]);
      point /= shape.mExtents[k];
    }
    row.back() = value;
    printer->Print(row);
    ++number;
  });
  printer->Finish();
}

// Of a tensor the values are a list per component.
void PrintJsonStep(std::ostream& os, IndexedSeries& series, const StepIndex& index,
                   std::uint64_t step, const StepShape& shape, Json document) {
  document["step"] = step;
  document["time"] = NumberAsJson(index.mTimes[step]);
  document["description"] = series.DataDescription();
  const bool isTensor = shape.mpTdm != nullptr;
  if (isTensor) {
    const TensorStructure& structure = shape.mpTdm->Structure();
    document["tensor"] =
        TensorAsJson({structure.Dim(), structure.Symmetry(), shape.mpTdm->DataMeshDim()});
    document["components"] = shape.mComponents;
    document["extents"] = shape.mExtents;
  } else {
    document["tensor"] = document["components"] = document["extents"] = Json();
  }
  JsonListPrinter list(os, document, "numbers");
  const std::uint64_t points = shape.Points();
  std::uint64_t number = 0;
  ForEachValue(series, index, step, [&](double value) {
    if (isTensor && number % points == 0) {
      list.BeginList();
    }
    list.Add(value);
    if (isTensor && ++number % points == 0) {
      list.EndList();
    }
  });
  for (std::size_t i = 0; isTensor && points == 0 && i < shape.mComponents.size(); ++i) {
    list.BeginList();
    list.EndList();
  }
  list.Finish();
}

}  // namespace

void ShowStep(std::ostream& os, ShowOptions::Format format, IndexedSeries& series,
              const StepIndex& index, std::uint64_t step, Json document) {
  const StepShape shape = ShapeOf(series, index, step);
  if (format == ShowOptions::Format::JSON) {
    PrintJsonStep(os, series, index, step, shape, std::move(document));
  } else {
    PrintRows(os, format, series, index, step, shape);
  }
}

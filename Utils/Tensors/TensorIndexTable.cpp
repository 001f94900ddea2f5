#include "Utils/Tensors/TensorIndexTable.hpp"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/PerThread.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/Tensors/Mesh.hpp"

namespace {

// The shape is checked before the symmetry string is copied, which may be as long as a file makes
// it.
int CheckedFlatEntries(int dim, const std::string& symm) {
  const std::size_t rank = symm.size();
  REQUIRE(rank <= static_cast<std::size_t>(TensorIndexTable::MaxRank),
          "A tensor has at most " << TensorIndexTable::MaxRank << " indices, got " << rank);
  REQUIRE(rank == 0 || dim >= 1, "The dimension of a tensor must be positive, got " << dim);
  int entries = 1;
  for (std::size_t slot = 0; slot < rank; ++slot) {
    REQUIRE(entries <= TensorIndexTable::MaxFlatEntries / dim,
            "A tensor of dimension " << dim << " and rank " << rank << " has too many components");
    entries *= dim;
  }
  return entries;
}

// The number of ways to give values of an index to slots that are symmetric with each other.
std::int64_t Choices(std::int64_t values, std::int64_t slots) {
  std::int64_t choices = 1;
  for (std::int64_t i = 1; i <= slots; ++i) {
    choices = choices * (values + i - 1) / i;
  }
  return choices;
}

}  // namespace

TensorIndexTable::TensorIndexTable(int dim, const std::string& symm) : mDim(dim) {
  const int entries = CheckedFlatEntries(dim, symm);
  mSymm = symm;
  mExtents.assign(MV::Size(symm.size()), dim);
  std::int64_t components = 1;
  for (std::size_t slot = 0; slot < symm.size(); ++slot) {
    if (symm.find(symm[slot]) == slot) {
      components *= Choices(dim, std::count(symm.begin(), symm.end(), symm[slot]));
    }
  }
  mNumberOfComponents = static_cast<int>(components);
  if (entries <= sMaxStoredEntries) {
    mComponents.assign(MV::Size(static_cast<std::uint64_t>(entries)));
    for (int flat = 0; flat < entries; ++flat) {
      mComponents[flat] = ComponentOf(ComputeIndex(flat, mExtents));
    }
  }
}

// The number of canonical lists before the one of these indices in the order of the flat index. Its
// last slot counts most: lists with a smaller value there come first, whatever is in the others.
int TensorIndexTable::ComponentOf(const MyVector<int>& indices) const {
  MyVector<int> canonical;
  ApplySymmToIndexList(mSymm, indices, canonical);
  std::int64_t before = 0;
  std::int64_t choices = mNumberOfComponents;  // for the slots whose values are not yet set
  for (std::size_t slot = mSymm.size(); slot-- > 0;) {
    const char group = mSymm[slot];
    const std::size_t next = mSymm.find(group, slot + 1);
    const int least = next == std::string::npos ? 0 : canonical[next];
    const auto slots = std::count(mSymm.begin(), mSymm.begin() + slot + 1, group);
    const std::int64_t choicesOfGroup = Choices(mDim - least, slots);
    const std::int64_t choicesOfOthers = choices / choicesOfGroup;
    const int value = canonical[slot];
    before += (choicesOfGroup - Choices(mDim - value, slots)) * choicesOfOthers;
    choices = choicesOfOthers * Choices(mDim - value, slots - 1);
  }
  return static_cast<int>(before);
}

int TensorIndexTable::Index(const MyVector<int>& indices) const {
  REQUIRE(IsIndexValid(indices), "Indices " << indices << " are not valid for a tensor of dimension "
                                            << mDim << " and rank " << Rank());
  return mComponents.empty() ? ComponentOf(indices) : mComponents[ComputeIndex(indices, mExtents)];
}

bool TensorIndexTable::IsIndexValid(const MyVector<int>& indices) const {
  return indices.Size() == Rank() && std::all_of(indices.begin(), indices.end(), [this](int index) {
           return index >= 0 && index < mDim;
         });
}

void TensorIndexTable::ApplySymmToIndexList(const std::string& symm, const MyVector<int>& in,
                                            MyVector<int>& out) {
  REQUIRE(in.size() == symm.size(),
          in.size() << " indices for a symmetry of " << symm.size() << " slots");
  out = in;
  for (std::size_t j = 0; j < symm.size(); ++j) {
    for (std::size_t k = j + 1; k < symm.size(); ++k) {
      if (symm[j] == symm[k] && out[k] > out[j]) {
        std::swap(out[j], out[k]);
      }
    }
  }
}

void TensorIndexTable::Output(std::ostream& os) const {
  os << "dimension " << mDim << ", symmetry '" << Vexa::Printable(mSymm) << "', "
     << mNumberOfComponents << " components";
}

std::ptrdiff_t ComputeIndex(const MyVector<int>& indices, const MyVector<int>& extents) {
  std::ptrdiff_t flat = 0;
  for (auto k = indices.Size() - 1; k >= 0; --k) {
    flat = flat * extents[k] + indices[k];
  }
  return flat;
}

MyVector<int> ComputeIndex(std::ptrdiff_t flat, const MyVector<int>& extents) {
  return GetMeshIndexFromOffset(flat, extents);
}

TensorIndexTableHolder::TensorIndexTableHolder(const TensorIndexTableHolder& other) {
  for (const auto& [shape, table] : other.mTables) {
    mTables.emplace(shape, std::make_shared<const TensorIndexTable>(*table));
  }
}

std::shared_ptr<const TensorIndexTable> TensorIndexTableHolder::Find(int dim,
                                                                     const std::string& symm) {
  const std::pair shape(dim, symm);
  const auto known = mTables.find(shape);
  return known != mTables.end()
             ? known->second
             : mTables.emplace(shape, std::make_shared<const TensorIndexTable>(dim, symm))
                   .first->second;
}

std::shared_ptr<const TensorIndexTable> FindTensorIndexTable(int dim, const std::string& symm) {
  return PerThread<TensorIndexTableHolder>().Find(dim, symm);
}

#include "Utils/Tensors/TensorIndexTable.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/PerThread.hpp"
#include "Utils/Tensors/Mesh.hpp"

namespace {

// Checked before the symmetry string is copied: it may be as long as a file makes it.
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

// Two slots that are symmetric with each other, with none between them that is, and by how much
// more the later one counts in a flat index.
struct Neighbours {
  std::size_t mEarlier;
  std::size_t mLater;
  int mWeightDifference;
};

// All of them; a list that is in order for each pair is canonical.
std::vector<Neighbours> FindNeighbours(int dim, const std::string& symm) {
  std::vector<Neighbours> neighbours;
  std::vector<int> weights;
  for (std::size_t slot = 0; slot < symm.size(); ++slot) {
    weights.push_back(slot == 0 ? 1 : weights.back() * dim);
    const std::size_t earlier = slot == 0 ? std::string::npos : symm.rfind(symm[slot], slot - 1);
    if (earlier != std::string::npos) {
      neighbours.push_back({earlier, slot, weights[slot] - weights[earlier]});
    }
  }
  return neighbours;
}

// The next index list in the order of the flat index.
void Advance(MyVector<int>& indices, int dim) {
  for (int& index : indices) {
    if (++index < dim) {
      return;
    }
    index = 0;
  }
}

}  // namespace

TensorIndexTable::TensorIndexTable(int dim, const std::string& symm) : mDim(dim) {
  const int entries = CheckedFlatEntries(dim, symm);
  mSymm = symm;
  mExtents.assign(MV::Size(symm.size()), dim);
  mComponents.assign(MV::Size(static_cast<std::uint64_t>(entries)));
  const std::vector<Neighbours> neighbours = FindNeighbours(dim, symm);
  MyVector<int> indices(MV::Size(symm.size()));
  for (int flat = 0; flat < entries; ++flat) {
    // A list that is not in order has the component of the list with those two values exchanged,
    // which stands earlier in this walk: its larger value is in the slot of smaller weight.
    const auto n = std::find_if(neighbours.begin(), neighbours.end(), [&](const Neighbours& pair) {
      return indices[pair.mLater] > indices[pair.mEarlier];
    });
    mComponents[flat] = n == neighbours.end()
                            ? mNumberOfComponents++
                            : mComponents[flat - (indices[n->mLater] - indices[n->mEarlier]) *
                                                     n->mWeightDifference];
    Advance(indices, dim);
  }
}

int TensorIndexTable::Index(const MyVector<int>& indices) const {
  REQUIRE(IsIndexValid(indices), "Indices " << indices << " are not valid for a tensor of dimension "
                                            << mDim << " and rank " << Rank());
  return mComponents[ComputeIndex(indices, mExtents)];
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
  os << "dimension " << mDim << ", symmetry '" << mSymm << "', " << mNumberOfComponents
     << " components";
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
  for (const auto& [key, table] : other.mTables) {
    mTables.Insert(key, std::make_shared<const TensorIndexTable>(*table));
  }
}

TensorIndexTableHolder& TensorIndexTableHolder::operator=(const TensorIndexTableHolder& other) {
  TensorIndexTableHolder copy(other);
  mTables.swap(copy.mTables);
  return *this;
}

std::shared_ptr<const TensorIndexTable> TensorIndexTableHolder::Find(int dim,
                                                                     const std::string& symm) {
  const std::string key = std::to_string(dim) + ' ' + symm;
  if (const auto* table = mTables.Find(key)) {
    return *table;
  }
  auto table = std::make_shared<const TensorIndexTable>(dim, symm);
  mTables.Insert(key, table);
  return table;
}

std::shared_ptr<const TensorIndexTable> FindTensorIndexTable(int dim, const std::string& symm) {
  return PerThread<TensorIndexTableHolder>().Find(dim, symm);
}

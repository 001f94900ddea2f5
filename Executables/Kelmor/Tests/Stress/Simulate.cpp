// A simulation that is meant to be broken off. What a file holds tells it where to go on.
//
//   Simulate file steps flush live|handles    does so many steps, with one handle or one per step
// Every `flush` steps it says "b <step>", writes its caches, and says "f <step>" if all steps
// before that one are in the file, otherwise "w <step>".
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <utility>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"

namespace {

const TensorStructure sVector(2, "1");

template <class OBJECT, class... Shape>
OBJECT& Get(CachedH5File& file, const std::string& name, const Shape&... shape) {
  auto& object = file.GetObjectForWrite<OBJECT>(name);
  if (!object.AreAttributesKnown()) {
    object.Initialize(shape...);
  }
  return object;
}

struct Objects {
  explicit Objects(CachedH5File& file)
      : mTable(Get<H5_Objects::Dat>(file, "/Run.dir/a.dat", MyVector<std::string>{"t", "x", "y"},
                                    true, 64)),
        mSeries(Get<H5_Objects::Tdm>(file, "/m.tdm", "t", "m", sVector, 2, true, 64, 256)) {}

  H5_Objects::Dat& mTable;
  H5_Objects::Tdm& mSeries;
};

// The steps that the table and the series have.
std::pair<long long, long long> Steps(const Objects& objects) {
  return {static_cast<long long>(objects.mTable.GetExtents()[0]),
          static_cast<long long>(objects.mSeries.GetNumberOfTimeSteps())};
}

// A number tells its step and its column.
void Append(const Objects& objects, long long step, const auto& next) {
  const double time = 0.125 * static_cast<double>(step);
  const auto value = [=](long long column) {
    return static_cast<double>((7919 * step + 104729 * column) % 10007) / 7;
  };
  if (step >= next.first) {
    objects.mTable.Append({time, value(1), value(2)});
  }
  if (step >= next.second) {
    Tensor<DataMesh> tensor(sVector, Mesh({2, static_cast<int>(1 + step % 2)}));
    for (int i = 0; i < 2 * tensor[0].Size(); ++i) {
      tensor[i / tensor[0].Size()][i % tensor[0].Size()] = value(i);
    }
    objects.mSeries.Append(time, tensor);
  }
}

void Flush(long long step) {
  std::cout << "b " << step << std::endl;
  TheCachedH5FileHolder().WriteCache();
  const bool isWritten = TheCachedH5FileHolder().Statistics().mBytes == 0;
  std::cout << (isWritten ? "f " : "w ") << step << std::endl;
}

}  // namespace

int main(int /*argc*/, char** argv) {
  CachedOutput::FlushAndEndOnSIGTERM();
  const long long last = std::atoll(argv[2]);
  const long long every = std::atoll(argv[3]);
  std::optional<CachedH5File> file;
  const auto open = [&] { file.emplace(argv[1], ReadWrite, CachedH5File::VersionHistory{}, 0); };
  open();
  const auto next = Steps(Objects(*file));
  for (long long step = std::min(next.first, next.second); step < last; ++step) {
    if (std::string(argv[4]) == "handles") {
      file.reset();
      open();
    }
    Append(Objects(*file), step, next);
    if ((step + 1) % every == 0) {
      Flush(step + 1);
    }
  }
  file.reset();
  TheCachedH5FileHolder().PurgeCache();
  std::cout << "f " << last << std::endl;
  return 0;
}

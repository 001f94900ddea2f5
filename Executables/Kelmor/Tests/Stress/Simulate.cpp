// A simulation that is meant to be broken off. What a file holds tells it where to go on.
//
//   Simulate file first last flush live|handles    does the steps [first, last) of a segment, with
//                                                  one handle or one per step
// Every `flush` steps it says "b <step>", writes its caches, and says "f <step>" if all steps
// before that one are in the file, otherwise "w <step>".
#include <algorithm>
#include <array>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
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
      : mTables{&Get<H5_Objects::Dat>(file, "/Run.dir/a.dat", MyVector<std::string>{"t", "x"}, true,
                                      64),
                &Get<H5_Objects::Dat>(file, "/b.dat", MyVector<std::string>{"t", "x", "y", "z"},
                                      true, 64)},
        mSet(Get<H5_Objects::Coef>(file, "/Run.dir/c.coef", "t", "c", true, 64, 256)),
        mSeries(Get<H5_Objects::Tdm>(file, "/m.tdm", "t", "m", sVector, 2, true, 64, 256)) {}

  std::array<H5_Objects::Dat*, 2> mTables;
  H5_Objects::Coef& mSet;
  H5_Objects::Tdm& mSeries;
};

// The first step that each object lacks.
std::array<long long, 4> NextSteps(const Objects& objects, long long first) {
  const auto step = [first](auto steps) { return first + static_cast<long long>(steps); };
  return {step(objects.mTables[0]->GetExtents()[0]), step(objects.mTables[1]->GetExtents()[0]),
          step(objects.mSet.GetNumberOfTimeSteps()), step(objects.mSeries.GetNumberOfTimeSteps())};
}

// A number tells its step, its column, and the segment that wrote it.
void Append(const Objects& objects, long long first, long long step, const auto& next) {
  const double time = 0.125 * static_cast<double>(step);
  const auto value = [=](long long column) {
    return static_cast<double>((7919 * step + 104729 * column + first) % 10007) / 7;
  };
  if (step >= next[0]) {
    objects.mTables[0]->Append({time, value(1)});
  }
  if (step >= next[1]) {
    objects.mTables[1]->Append({time, value(1), value(2), value(3)});
  }
  if (step >= next[2]) {
    MyVector<double> coefficients(MV::Size(static_cast<std::uint64_t>(1 + step % 5)));
    std::ranges::generate(coefficients, [&, i = 0]() mutable { return value(i++); });
    objects.mSet.Append(time, coefficients);
  }
  if (step >= next[3]) {
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
  std::uint64_t waiting = 0;
  std::uint64_t other = 0;
  TheCachedH5FileHolder().Statistics(other, other, other, other, other, other, waiting);
  std::cout << (waiting == 0 ? "f " : "w ") << step << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    return 2;
  }
  CachedOutput::FlushAndEndOnSIGTERM();
  const long long first = std::atoll(argv[2]);
  const long long last = std::atoll(argv[3]);
  const long long every = std::atoll(argv[4]);
  std::optional<CachedH5File> file;
  const auto open = [&] { file.emplace(argv[1], ReadWrite, CachedH5File::VersionHistory{}, 0); };
  open();
  const auto next = NextSteps(Objects(*file), first);
  for (long long step = *std::ranges::min_element(next); step < last; ++step) {
    if (std::string(argv[5]) == "handles") {
      file.reset();
      open();
    }
    Append(Objects(*file), first, step, next);
    if ((step + 1) % every == 0) {
      Flush(step + 1);
    }
  }
  file.reset();
  TheCachedH5FileHolder().PurgeCache();
  std::cout << "f " << last << std::endl;
  return 0;
}

// Writes the files of a small run, as a simulation would write them: two bodies that orbit each
// other, in segments that each have a file of their own. A segment starts from a checkpoint of the
// one before, a little earlier than that one ended, so that neighbouring files overlap in time.
//
//   WriteSegments folder        makes folder/segment1.h5 to folder/segment3.h5
//
// Run again after it was killed, it continues where the files end; when they are whole, it adds
// nothing. SIGTERM ends it with all steps written that it has done.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <numbers>
#include <string>

#include "Utils/Containers/MyVector.hpp"
#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Tensors/DataMesh.hpp"
#include "Utils/Tensors/Tensor.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

namespace {

using H5_Objects::Coef;
using H5_Objects::Dat;
using H5_Objects::Tdm;
using H5_Objects::Txt;

constexpr double sTimeStep = 0.125;
constexpr int sStepsPerSegment = 64;
constexpr int sStepsRepeated = 8;  // that a segment does again after its checkpoint
constexpr int sStepsPerMetric = 8;
constexpr int sStepsPerWrite = 16;  // between writes of what was appended

// Positions and speeds follow from the time alone: every run writes the same numbers.
struct Body {
  Body(double time, double phaseShift) {
    const double phase = 0.1 * time + phaseShift;
    const double radius = 10 - 0.05 * time;
    mX = radius * std::cos(phase);
    mY = radius * std::sin(phase);
    mSpeed = 0.1 * radius;
  }
  double mX;
  double mY;
  double mSpeed;
};

// The table of that name, with its columns named by whoever gets there first.
Dat& Table(CachedH5File& file, const std::string& name, const MyVector<std::string>& legend) {
  auto& table = file.GetObjectForWrite<Dat>(name);
  if (!table.IsInitialized()) {
    table.Initialize(legend, /*compress=*/true, /*chunkRows=*/512);
  }
  return table;
}

Coef& ShapeSeries(CachedH5File& file) {
  auto& shape = file.GetObjectForWrite<Coef>("/BodyA.dir/shape.coef");
  if (!shape.AreAttributesKnown()) {
    shape.Initialize("time", "coefficients of the radius", /*compress=*/true,
                     /*indexChunkRows=*/512, /*coefChunkRows=*/4096);
  }
  return shape;
}

const TensorStructure& MetricStructure() {
  static const TensorStructure structure(3, "11");
  return structure;
}

Tdm& MetricSeries(CachedH5File& file) {
  auto& metric = file.GetObjectForWrite<Tdm>("/Run.dir/metric.tdm");
  if (!metric.IsInitialized()) {
    metric.Initialize("time", "metric", MetricStructure(), /*dataMeshDim=*/3, /*compress=*/true,
                      /*indexChunkRows=*/64, /*dataChunkRows=*/16384);
  }
  return metric;
}

// All objects of a step. They are got before anything is appended: where one is got, a signal can
// have everything written, and a file should not be left with half a step.
struct Objects {
  explicit Objects(CachedH5File& file)
      : mEnergy(Table(file, "/Run.dir/energy.dat", {"time", "kinetic", "potential", "total"})),
        mPositionA(Table(file, "/BodyA.dir/position.dat", {"time", "x", "y"})),
        mPositionB(Table(file, "/BodyB.dir/position.dat", {"time", "x", "y"})),
        mSpeedA(Table(file, "/BodyA.dir/speed.dat", {"time", "speed"})),
        mSpeedB(Table(file, "/BodyB.dir/speed.dat", {"time", "speed"})),
        mShape(ShapeSeries(file)),
        mMetric(MetricSeries(file)),
        mLog(file.GetObjectForWrite<Txt>("/Run.dir/log.txt")) {}
  Dat& mEnergy;
  Dat& mPositionA;
  Dat& mPositionB;
  Dat& mSpeedA;
  Dat& mSpeedB;
  Coef& mShape;
  Tdm& mMetric;
  Txt& mLog;
};

void WriteEnergy(Dat& energy, double time) {
  const Body body(time, 0);
  const double kinetic = body.mSpeed * body.mSpeed;
  const double potential = -1 / std::hypot(body.mX, body.mY);
  energy.Append({time, kinetic, potential, kinetic + potential});
}

void WriteBody(Dat& position, Dat& speed, double time, double phaseShift) {
  const Body body(time, phaseShift);
  position.Append({time, body.mX, body.mY});
  speed.Append({time, body.mSpeed});
}

// The surface of a body as a series whose terms become more as the body is deformed.
void WriteShape(Coef& shape, double time) {
  MyVector<double> coefficients(MV::Size(4 + static_cast<std::uint64_t>(time / 4)));
  for (int l = 0; l < coefficients.Size(); ++l) {
    coefficients[l] = std::exp(-l) * std::cos(0.1 * l * time);
  }
  shape.Append(time, coefficients);
}

// A symmetric tensor of rank 2 on a grid of 6 x 6 x 6 points.
void WriteMetric(Tdm& metric, double time) {
  const Mesh mesh({6, 6, 6});
  Tensor<DataMesh> tensor(MetricStructure(), mesh);
  for (int component = 0; component < tensor.Size(); ++component) {
    for (int point = 0; point < mesh.Size(); ++point) {
      tensor[component][point] = 1 + 0.1 * component * std::sin(0.02 * point - 0.1 * time);
    }
  }
  metric.Append(time, tensor);
}

void WriteStep(const Objects& objects, int step) {
  const double time = step * sTimeStep;
  WriteEnergy(objects.mEnergy, time);
  WriteBody(objects.mPositionA, objects.mSpeedA, time, 0);
  WriteBody(objects.mPositionB, objects.mSpeedB, time, std::numbers::pi);
  WriteShape(objects.mShape, time);
  if (step % sStepsPerMetric == 0) {
    WriteMetric(objects.mMetric, time);
  }
}

// How many steps of a segment its file has. Steps are written whole, and what a file has after a
// kill is what one write of the caches left, so one table tells for all objects.
int StepsInFile(const std::string& filename) {
  if (!FileExists(filename)) {
    return 0;
  }
  CachedH5File file(filename, ReadWrite, {}, /*verbosity=*/0);
  if (!file.Exists("/Run.dir/energy.dat")) {
    return 0;
  }
  return static_cast<int>(file.GetObjectForWrite<Dat>("/Run.dir/energy.dat").GetExtents()[0]);
}

// Writes the steps that the segment's file lacks. A handle lives for one step: between steps the
// file is closed, and others can look at it. Now and then everything is written, which bounds what
// a kill can cost.
void WriteSegment(const std::string& filename, int firstStep) {
  const CachedH5File::VersionHistory history = {
      {"3f2a91c", "Energies and positions."},
      {"b0c47de", "Speeds have a table of their own."},
  };
  for (int done = StepsInFile(filename); done < sStepsPerSegment; ++done) {
    {
      CachedH5File file(filename, ReadWrite, history, /*verbosity=*/0);
      const Objects objects(file);
      WriteStep(objects, firstStep + done);
      if (done + 1 == sStepsPerSegment) {
        objects.mLog << "did steps " << firstStep << " to " << firstStep + sStepsPerSegment - 1
                     << '\n';
      }
    }
    if ((done + 1) % sStepsPerWrite == 0) {
      TheCachedH5FileHolder().WriteCache();
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: WriteSegments folder\n";
    return 2;
  }
  CachedOutput::FlushAndEndOnSIGTERM();
  for (int segment = 1; segment <= 3; ++segment) {
    const std::string filename =
        std::string(argv[1]) + "/segment" + std::to_string(segment) + ".h5";
    const int firstStep = std::max(0, (segment - 1) * (sStepsPerSegment - sStepsRepeated));
    WriteSegment(filename, firstStep);
    std::cout << filename << ": times " << firstStep * sTimeStep << " to "
              << (firstStep + sStepsPerSegment - 1) * sTimeStep << '\n';
  }
  // What is appended reaches the files here, or when the process ends.
  TheCachedH5FileHolder().PurgeCache();
  return 0;
}

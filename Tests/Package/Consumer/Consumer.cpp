// Makes the file given as argument with one table of one row, or checks that the file holds it.
#include "Utils/Process/Files.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"

int main(int, char** argv) {
  const bool exists = FileExists(argv[1]);
  CachedH5File file(argv[1], exists ? ReadOnly : ReadWrite, {}, /*verbosity=*/0);
  if (exists) {
    const auto rows = file.GetObjectForRead<H5_Objects::Dat>("/Run.dir/energy.dat").RetrieveData();
    return rows.Size() == 1 && rows[0] == MyVector<double>{0.5, 2} ? 0 : 1;
  }
  auto& table = file.GetObjectForWrite<H5_Objects::Dat>("/Run.dir/energy.dat");
  table.Initialize({"time", "energy"}, /*compress=*/true, /*chunkRows=*/16);
  table.Append({0.5, 2});
}

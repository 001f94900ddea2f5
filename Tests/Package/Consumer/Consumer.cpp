// Makes the file given as argument with one table of one row, or checks that the file holds it.
// Compiles with the headers of today and with those from before the store was divided.
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Files.hpp"
#ifdef OLD_NAMES
#include "Utils/H5/CachedH5File.hpp"
#include "Utils/H5/H5_ObjectDat.hpp"
#else
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#endif

#ifdef REQUIRE
#error "that name is left to the program, which may use a test framework that has one too"
#endif

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
  try {
    table.Append({0.75});
  } catch (const CodeError&) {  // thrown in the library
    return 0;
  }
  return 1;
}

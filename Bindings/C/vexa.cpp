#include "Bindings/C/vexa.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Bindings/C/Guarded.hpp"
#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Version.hpp"
#include "Utils/Store/CachedH5File.hpp"
#include "Utils/Store/CachedH5FileHolder.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"
#include "Utils/Tensors/TensorIndexTable.hpp"

using H5_Objects::Coef;
using H5_Objects::Dat;
using H5_Objects::Tdm;
using H5_Objects::Txt;
using Vexa::C::Guarded;

namespace Vexa::C {

// An object of a file, which the store lends until the process ends.
struct Opened {
  Opened(std::string name, const std::string& path) : mName(std::move(name)), mPath(path) {}
  virtual ~Opened() = default;
  const std::string mName;
  const std::string& mPath;  // the file handle's
};

template <class Kind>
struct OpenedAs : Opened {
  using Object = Kind;
  OpenedAs(std::string name, const std::string& path, Kind& object)
      : Opened(std::move(name), path), mObject(object) {}
  Kind& mObject;
};

}  // namespace Vexa::C

using Vexa::C::Opened;
using Vexa::C::OpenedAs;

struct vexa_table : OpenedAs<Dat> {
  using OpenedAs::OpenedAs;
};
struct vexa_coefs : OpenedAs<Coef> {
  using OpenedAs::OpenedAs;
};
struct vexa_tensors : OpenedAs<Tdm> {
  using OpenedAs::OpenedAs;
};
struct vexa_text : OpenedAs<Txt> {
  using OpenedAs::OpenedAs;
};

struct vexa_file {
  std::string mPath;
  CachedH5File::VersionHistory mHistory;  // for a file that was removed and is made anew
  std::map<std::string, std::unique_ptr<Opened>> mObjects;
};

namespace {

template <class T>
T& Checked(T* pointer, const char* what) {
  const bool isGiven = pointer != nullptr;
  REQUIRE(isGiven, "The argument '" << Vexa::Verbatim(what) << "' is a null pointer");
  return *pointer;
}

std::string Text(const char* text, const char* what) {
  return &Checked(text, what);
}

// An array may be null if it has no elements.
template <class T>
std::span<const T> Array(const T* values, std::size_t count, const char* what) {
  const bool fitsMemory = count <= PTRDIFF_MAX / sizeof(T);
  REQUIRE(fitsMemory, "The argument '" << Vexa::Verbatim(what) << "' cannot have " << count
          << " elements, which exceed any memory");
  return count == 0 ? std::span<const T>() : std::span(&Checked(values, what), count);
}

CachedH5File::VersionHistory History(const vexa_version* history, std::size_t entries) {
  CachedH5File::VersionHistory pairs;
  for (const vexa_version& entry : Array(history, entries, "history")) {
    pairs.emplace_back(Text(entry.hash, "hash"), Text(entry.help, "help"));
  }
  return pairs;
}

// A write relieves one file, and there may be many.
void KeepLimit() {
  CachedH5FileHolder& holder = TheCachedH5FileHolder();
  for (std::uint64_t before = H5_File::TotalCacheSize(); before > holder.MaxCacheSize();) {
    holder.CheckForEmergencyWriteCache(/*warns=*/false);
    const std::uint64_t now = H5_File::TotalCacheSize();
    if (now >= before) {
      return;  // the rest waits for other programs
    }
    before = now;
  }
}

// Appends to an object, where it is safe to serve a signal, and writes what exceeds the limit.
template <class Handle, class Append>
int AppendTo(Handle* handle, const Append& append) noexcept {
  return Guarded([&] {
    const Opened& opened = Checked(handle, "object");
    const Vexa::ReportContext context(opened.mName, opened.mPath);
    CachedOutput::FlushIfRequested();
    append(handle->mObject);
    KeepLimit();
  });
}

// Calls `work` with the open file, and lets that go again, so that between calls others can look at
// it.
template <class Work>
void WithFile(vexa_file& file, const Work& work) {
  CachedH5File opened(file.mPath, ReadWrite, file.mHistory, /*verbosity=*/0, /*keepOpen=*/false);
  work(opened);
  opened.LetGo();
}

// Refuses a name that the store would refuse when it has made some of its groups already.
void RequireName(std::string_view name, std::string_view ending) {
  std::string_view rest = name.substr(0, name.find_last_not_of('/') + 1);
  bool isGroup = false;
  do {
    const std::string_view part = rest.substr(rest.rfind('/') + 1);
    const bool isNamed = part.ends_with(ending) || (isGroup && (part.empty() || part == ".."));
    REQUIRE(isNamed, "'" << part << "' in the name '" << name << "' does not end in '" << ending
            << "'");
    rest.remove_suffix(std::min(part.size() + 1, rest.size()));
    ending = ".dir";
    isGroup = true;
  } while (!rest.empty());
}

// Gets the object of that name, has it shaped or compared, and keeps a handle on it.
template <class Handle, class Shape>
int OpenObject(vexa_file* file, const char* name, Handle** handle, const Shape& shape) noexcept {
  return Guarded([&] {
    Handle*& result = Checked(handle, "handle");
    result = nullptr;
    vexa_file& owner = Checked(file, "file");
    const std::string path = Text(name, "name");
    const Vexa::ReportContext context(path, owner.mPath);
    RequireName(path, "." + Handle::Object::ClassID());
    WithFile(owner, [&](CachedH5File& opened) {
      auto& object = opened.GetObjectForWrite<typename Handle::Object>(path);
      shape(object);
      std::unique_ptr<Opened>& slot = owner.mObjects[opened.Path(path)];
      if (slot == nullptr) {
        slot = std::make_unique<Handle>(path, owner.mPath, object);
      }
      result = static_cast<Handle*>(slot.get());
    });
  });
}

template <class Handle>
int CountSteps(const Handle* handle, std::uint64_t* count) noexcept {
  return Guarded([&] {
    const auto& object = Checked(handle, "object").mObject;
    Checked(count, "count") = object.StepsInFile() + object.NTimeStepsCached();
  });
}

// A chunk is held in memory and encoded whole, however few rows it has: one that was shortened to
// 4 GiB would keep the first write busy for a minute.
std::size_t ChunkRows(std::size_t rows) {
  REQUIRE(rows <= Dat::sMostChunkRows,
          "A chunk has at most " << Dat::sMostChunkRows << " rows, got " << rows);
  return rows;
}

void ShapeTable(Dat& table, const MyVector<std::string>& legend, bool compress,
                std::size_t chunkRows) {
  if (!table.IsInitialized()) {
    const bool hasLegend = !legend.empty();
    REQUIRE(hasLegend, "There is no such table, and no legend to make it with");
    table.Initialize(legend, compress, ChunkRows(chunkRows));
  }
  const MyVector<std::string> existing = table.GetLegend();
  const bool isSame = legend.empty() || legend == existing;
  REQUIRE(isSame, "The table has the columns " << existing << ", not " << legend);
}

// Pieces of what is appended, small enough that memory stays within the limit.
std::size_t RowsPerPiece(std::size_t columns) {
  const std::uint64_t limit = TheCachedH5FileHolder().MaxCacheSize();
  const std::uint64_t held = H5_File::TotalCacheSize();
  const std::uint64_t room = limit > held ? (limit - held) / sizeof(double) : 0;
  return std::max<std::uint64_t>(std::max(room, limit / 16) / columns, 1);
}

void AppendRows(Dat& table, std::span<const double> rows, std::size_t columns) {
  while (!rows.empty()) {
    const std::size_t piece = std::min(columns * RowsPerPiece(columns), rows.size());
    table.Append_(rows.first(piece), columns);
    rows = rows.subspan(piece);
    KeepLimit();
  }
}

// Returns the sum, or the largest number if that is less.
std::size_t Sum(std::span<const std::size_t> counts) {
  std::size_t sum = 0;
  for (const std::size_t count : counts) {
    sum += std::min(count, SIZE_MAX - sum);
  }
  return sum;
}

Mesh MeshOf(const Tdm& tensors, const int* extents) {
  const auto dim = static_cast<std::size_t>(tensors.GetDataMeshDim());
  MyVector<int> whole{MV::Size(dim)};
  std::ranges::copy(Array(extents, dim, "extents"), whole.begin());
  Mesh mesh(whole);
  const std::ptrdiff_t most = PTRDIFF_MAX / static_cast<std::ptrdiff_t>(sizeof(double));
  const bool fitsMemory = mesh.Size() <= most / tensors.GetStructure().NumberOfComponents();
  REQUIRE(fitsMemory, "A tensor on a mesh of extents " << whole << " exceeds any memory");
  return mesh;
}

}  // namespace

const char* vexa_library_version() {
  return VEXA_VERSION;
}

int vexa_install_handlers() {
  return Guarded([] { Vexa::InstallHandlers(); });
}

int vexa_open(const char* path, const vexa_version* history, size_t entries, vexa_file** file) {
  return Guarded([&] {
    vexa_file*& result = Checked(file, "file");
    result = nullptr;
    auto made = std::make_unique<vexa_file>();
    made->mPath = Text(path, "path");
    const bool hasPath = !made->mPath.empty();
    REQUIRE(hasPath, "The path of the file is empty");
    made->mHistory = History(history, entries);
    Vexa::C::ArrangeEnd();
    WithFile(*made, [&](const CachedH5File& opened) { made->mPath = opened.Filename(); });
    result = made.release();
  });
}

int vexa_flush(vexa_file* file) {
  return Guarded([&] { TheCachedH5FileHolder().WriteCache(Checked(file, "file").mPath); });
}

int vexa_flush_all() {
  return Guarded([] { TheCachedH5FileHolder().WriteCache(); });
}

int vexa_close(vexa_file* file) {
  if (file == nullptr) {
    return VEXA_OK;
  }
  return Guarded([file] {
    const std::unique_ptr<vexa_file> owner(file);
    TheCachedH5FileHolder().WriteCache(owner->mPath);
  });
}

int vexa_waiting(const vexa_file* file, uint64_t* bytes) {
  return Guarded([&] {
    Checked(bytes, "bytes") = file == nullptr ? H5_File::TotalCacheSize()
                                              : TheCachedH5FileHolder().CacheSize(file->mPath);
  });
}

int vexa_set_cache_limit(uint64_t bytes) {
  return Guarded([&] {
    Vexa::C::ArrangeEnd();
    TheCachedH5FileHolder().SetMaxCacheSize(bytes);
  });
}

int vexa_get_cache_limit(uint64_t* bytes) {
  return Guarded([&] {
    Vexa::C::ArrangeEnd();
    Checked(bytes, "bytes") = TheCachedH5FileHolder().MaxCacheSize();
  });
}

int vexa_set_lock_patience(double seconds) {
  return Guarded([&] {
    const double mostSeconds = 1e9;  // what a clock can add
    REQUIRE(seconds >= 0 && seconds <= mostSeconds,
            "The patience must be 0 to " << mostSeconds << " seconds, got " << seconds);
    CachedH5FileHolder::SetLockPatience(std::chrono::duration<double>(seconds));
  });
}

int vexa_table_open(vexa_file* file, const char* name, const char* const* legend, size_t columns,
                    int compress, size_t chunk_rows, vexa_table** table) {
  return OpenObject(file, name, table, [&](Dat& object) {
    MyVector<std::string> names{MV::Size(columns)};
    std::ranges::transform(Array(legend, columns, "legend"), names.begin(),
                           [](const char* column) { return Text(column, "legend"); });
    ShapeTable(object, names, compress != 0, chunk_rows);
  });
}

int vexa_table_append(vexa_table* table, const double* row, size_t columns) {
  return AppendTo(table, [&](Dat& object) { object.Append_(Array(row, columns, "row"), columns); });
}

int vexa_table_append_rows(vexa_table* table, const double* rows, size_t count, size_t columns) {
  return AppendTo(table, [&](Dat& object) {
    object.Append_({}, columns);  // checks, even if there is no row
    const bool fitsMemory = columns == 0 || count <= SIZE_MAX / sizeof(double) / columns;
    REQUIRE(fitsMemory, count << " rows of " << columns << " columns exceed any memory");
    if (columns > 0) {
      AppendRows(object, Array(rows, count * columns, "rows"), columns);
    }
  });
}

int vexa_table_size(const vexa_table* table, uint64_t* rows, uint64_t* columns) {
  return Guarded([&] {
    const MyVector<unsigned long long> extents = Checked(table, "table").mObject.GetExtents();
    std::uint64_t& rowCount = Checked(rows, "rows");
    Checked(columns, "columns") = extents[1];
    rowCount = extents[0];
  });
}

int vexa_coefs_open(vexa_file* file, const char* name, const char* time_name,
                    const char* values_name, int compress, size_t index_chunk_rows,
                    size_t values_chunk_rows, vexa_coefs** coefs) {
  return OpenObject(file, name, coefs, [&](Coef& object) {
    const std::string timeName = Text(time_name, "time_name");
    const std::string valuesName = Text(values_name, "values_name");
    if (!object.AreAttributesKnown()) {
      object.Initialize(timeName, valuesName, compress != 0, ChunkRows(index_chunk_rows),
                        ChunkRows(values_chunk_rows));
    }
  });
}

int vexa_coefs_append(vexa_coefs* coefs, double time, const double* values, size_t count) {
  return AppendTo(coefs,
                  [&](Coef& object) { object.Append_(time, Array(values, count, "values")); });
}

int vexa_coefs_append_steps(vexa_coefs* coefs, size_t steps, const double* times,
                            const size_t* counts, const double* values) {
  return AppendTo(coefs, [&](Coef& object) {
    const std::span<const double> allTimes = Array(times, steps, "times");
    const std::span<const size_t> allCounts = Array(counts, steps, "counts");
    std::span<const double> next = Array(values, Sum(allCounts), "values");
    for (std::size_t step = 0; step < steps; next = next.subspan(allCounts[step++])) {
      object.Append_(allTimes[step], next.first(allCounts[step]));
      KeepLimit();
    }
  });
}

int vexa_coefs_size(const vexa_coefs* coefs, uint64_t* steps) {
  return CountSteps(coefs, steps);
}

int vexa_tensors_open(vexa_file* file, const char* name, const char* time_name,
                      const char* values_name, int dim, const char* symmetry, int mesh_dim,
                      int compress, size_t index_chunk_rows, size_t values_chunk_rows,
                      vexa_tensors** tensors) {
  return OpenObject(file, name, tensors, [&](Tdm& object) {
    const std::string timeName = Text(time_name, "time_name");
    const std::string valuesName = Text(values_name, "values_name");
    const TensorStructure structure(dim, Text(symmetry, "symmetry"));
    if (!object.IsInitialized()) {
      object.Initialize(timeName, valuesName, structure, mesh_dim, compress != 0,
                        ChunkRows(index_chunk_rows), ChunkRows(values_chunk_rows));
    }
    const bool isSame = object.GetStructure() == structure && object.GetDataMeshDim() == mesh_dim;
    REQUIRE(isSame, "The series holds tensors of " << object.GetStructure() << " on meshes of "
            << object.GetDataMeshDim() << " dimension(s), not of " << structure << " on "
            << mesh_dim);
  });
}

int vexa_tensors_components(const vexa_tensors* tensors, size_t* components) {
  return Guarded([&] {
    const Tdm& object = Checked(tensors, "tensors").mObject;
    Checked(components, "components") =
        static_cast<size_t>(object.GetStructure().NumberOfComponents());
  });
}

int vexa_tensors_component(const vexa_tensors* tensors, const int* indices, size_t* component) {
  return Guarded([&] {
    const TensorStructure& structure = Checked(tensors, "tensors").mObject.GetStructure();
    const auto rank = static_cast<std::size_t>(structure.Rank());
    MyVector<int> list{MV::Size(rank)};
    std::ranges::copy(Array(indices, rank, "indices"), list.begin());
    Checked(component, "component") = static_cast<size_t>(structure.Index(list));
  });
}

int vexa_tensors_append(vexa_tensors* tensors, double time, const int* extents,
                        const double* values) {
  return vexa_tensors_append_steps(tensors, 1, &time, extents, values);
}

int vexa_tensors_append_steps(vexa_tensors* tensors, size_t steps, const double* times,
                              const int* extents, const double* values) {
  return AppendTo(tensors, [&](Tdm& object) {
    const Mesh mesh = MeshOf(object, extents);
    const std::ptrdiff_t size = mesh.Size() * object.GetStructure().NumberOfComponents();
    const double* next = size == 0 ? nullptr : &Checked(values, "values");
    for (const double time : Array(times, steps, "times")) {
      object.Append_(time, mesh, next);
      next += size;
      KeepLimit();
    }
  });
}

int vexa_tensors_size(const vexa_tensors* tensors, uint64_t* steps) {
  return CountSteps(tensors, steps);
}

int vexa_text_open(vexa_file* file, const char* name, vexa_text** text) {
  return OpenObject(file, name, text, [](const Txt&) {});
}

int vexa_text_append(vexa_text* text, const char* characters, size_t length) {
  return AppendTo(text, [&](Txt& object) {
    const std::span<const char> all = Array(characters, length, "characters");
    const bool holdsNull = std::ranges::find(all, '\0') != all.end();
    REQUIRE(!holdsNull, "The text holds a null character, which a string in a file cannot");
    object << std::string_view(all.data(), all.size());
  });
}

int vexa_text_size(const vexa_text* text, uint64_t* strings) {
  return CountSteps(text, strings);
}

int vexa_version_create(vexa_file* file, const char* name, const vexa_version* history,
                        size_t entries) {
  return Guarded([&] {
    const CachedH5File::VersionHistory pairs = History(history, entries);
    const bool hasEntries = entries > 0;
    REQUIRE(hasEntries, "A version record needs an entry");
    const std::string path = Text(name, "name");
    RequireName(path, ".ver");
    WithFile(Checked(file, "file"), [&](CachedH5File& opened) {
      const bool exists = opened.Exists(path);
      REQUIRE(!exists, "There is a record '" << path << "' in file " << opened.Filename());
      opened.GetObjectForWrite<H5_Objects::Version>(path).Initialize(pairs);
    });
    KeepLimit();
  });
}

int vexa_version_size(vexa_file* file, const char* name, uint64_t* entries) {
  return Guarded([&] {
    const std::string path = Text(name, "name");
    std::uint64_t& result = Checked(entries, "entries");
    WithFile(Checked(file, "file"), [&](CachedH5File& opened) {
      const bool exists = opened.Exists(path);
      REQUIRE(exists, "There is no record '" << path << "' in file " << opened.Filename());
      result = opened.GetObjectForWrite<H5_Objects::Version>(path).GetCurrentVersion();
    });
  });
}

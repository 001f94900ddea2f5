// A folder with files, and both tools run in it.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "Executables/Kelmor/Tests/KelmorFixture.hpp"

class InfoFixture : public KelmorFixture {
 protected:
  using Json = nlohmann::json;

  /// A run of KelmorInfo.
  RunResult Info(const Arguments& arguments) { return Run(arguments, KELMORINFO_PROGRAM); }

  /// One that must end with this status and nothing on standard error; its standard output.
  std::string Print(const Arguments& arguments, int status = 0) {
    const RunResult result = Info(arguments);
    EXPECT_EQ(result.mStatus, status) << result.mOutput;
    EXPECT_EQ(result.mErrors, "");
    return result.mOutput;
  }

  /// The same, as JSON.
  Json PrintJson(Arguments arguments, int status = 0) {
    arguments.insert(arguments.begin(), "-json");
    return Json::parse(Print(arguments, status));
  }

  /// Overwrites bytes of the chunk that begins there, in a file that is not open.
  void DamageChunk(const std::string& name, const std::string& table, hsize_t row, hsize_t column) {
    haddr_t address = 0;
    {
      const PlainH5::File file = PlainH5::File::Open(Path(name));
      const hid_t id = H5Dopen2(file.Id(), table.c_str(), H5P_DEFAULT);
      const hsize_t offset[] = {row, column};
      unsigned mask = 0;
      hsize_t size = 0;
      EXPECT_GE(H5Dget_chunk_info_by_coord(id, offset, &mask, &address, &size), 0);
      H5Dclose(id);
    }
    std::fstream bytes(Path(name), std::ios::in | std::ios::out | std::ios::binary);
    bytes.seekp(static_cast<std::streamoff>(address) + 8);
    bytes << "damage";
  }
};

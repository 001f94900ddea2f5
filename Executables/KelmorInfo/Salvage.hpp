// What is whole of a file whose writer was killed, or which was damaged otherwise.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Executables/Series/JoinOptions.hpp"
#include "Executables/Series/Series.hpp"

struct SalvagedDataset {
  std::string mName;
  std::string mKind;
  bool mIsWritten = false;
  Series::Remains mRemains;
  bool IsWhole() const { return mIsWritten && mRemains.mKept == mRemains.mTotal; }
};

/// Writes a new file with what is whole of the one input, whole or not at all, and tells what that
/// is. Fails if the input cannot be opened.
std::vector<SalvagedDataset> Salvage(const std::string& name, const JoinOptions& options);

void PrintSalvage(std::ostream& os, const std::vector<SalvagedDataset>& datasets);
void PrintSalvageAsJson(std::ostream& os, const std::string& name, const std::string& input,
                        const std::vector<SalvagedDataset>& datasets);

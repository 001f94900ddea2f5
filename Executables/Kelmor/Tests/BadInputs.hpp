// Inputs in each of which one thing is wrong, and what a report says of it.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct BadInput {
  const char* mName;
  const char* mObject;  // that the report names; empty for the file as such
  std::function<void(const std::string& path)> mBuild;
  const char* mText;  // in the report
};

const std::vector<BadInput>& BadInputs();

inline constexpr char sTwoDimensionalSpec[] = "TensorDim=3; TensorSymm=1; DataMeshDim=2;";

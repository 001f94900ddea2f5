// What stands in several documents has the same shape in all of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Executables/KelmorInfo/InputFiles.hpp"
#include "Executables/KelmorInfo/Json.hpp"
#include "Executables/Series/Facts.hpp"

/// What is not known, or does not exist, is null; the key is there all the same.
template <class T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}
inline Json TextOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

/// Files, or datasets, of which only the names are told.
template <class LIST>
Json NamesAsJson(const LIST& names) {
  return ArrayOf(names, [](const std::string& name) { return Json{{"name", name}}; });
}

/// A span of times.
inline Json SpanAsJson(double from, double to) {
  return {{"from", NumberAsJson(from)}, {"to", NumberAsJson(to)}};
}
inline Json RangeAsJson(const TimeRange& times) {
  return times.IsEmpty() ? Json() : SpanAsJson(times.mFirst, times.mLast);
}

/// A file as it was found.
inline Json FileAsJson(const InputFile& file) {
  return {{"name", file.mName},
          {"bytes", file.mBytes},
          {"opens", file.mOpens},
          {"reason", TextOrNull(file.mProblem)},
          {"advice", TextOrNull(file.mAdvice)}};
}

/// The versions of a record.
inline Json HistoryAsJson(const H5_Objects::Version::History& history) {
  return ArrayOf(history, [](const auto& entry) {
    return Json{{"hash", entry.first}, {"text", entry.second}};
  });
}

/// What the tensors of a series are.
inline Json TensorAsJson(const TensorFacts& tensor) {
  return {{"dimension", tensor.mDimension},
          {"symmetry", tensor.mSymmetry},
          {"mesh_dimension", tensor.mMeshDimension}};
}

// What all documents in JSON share.
#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>

#include "Utils/Process/Version.hpp"

using Json = nlohmann::ordered_json;

/// The elements of a list, each as `toJson` makes it.
template <class LIST, class ToJson>
Json ArrayOf(const LIST& list, const ToJson& toJson) {
  Json json = Json::array();
  for (const auto& element : list) {
    json.push_back(toJson(element));
  }
  return json;
}

/// What every document begins with: the version of the format, which grows when a key changes its
/// meaning or goes, and who wrote it.
inline Json NewDocument() {
  return {{"format", 1}, {"program", {{"name", "KelmorInfo"}, {"version", VEXA_VERSION}}}};
}

/// JSON has no numbers for infinities and NaN: they are the texts "Infinity", "-Infinity", "NaN".
inline Json NumberAsJson(double number) {
  if (std::isnan(number)) {
    return "NaN";
  }
  return std::isinf(number) ? Json(number > 0 ? "Infinity" : "-Infinity") : Json(number);
}

/// Bytes that are no UTF-8 are replaced.
inline void PrintJson(std::ostream& os, const Json& json) {
  os << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

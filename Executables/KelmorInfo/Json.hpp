// What the JSON of a listing and of a plan share.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>

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

/// Bytes that are no UTF-8 are replaced.
inline void PrintJson(std::ostream& os, const Json& json) {
  os << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

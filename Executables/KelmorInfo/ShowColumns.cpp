#include "Executables/KelmorInfo/ShowColumns.hpp"

#include <charconv>
#include <numeric>
#include <optional>
#include <string_view>

#include "Executables/KelmorInfo/Text.hpp"
#include "Executables/KelmorInfo/UsageError.hpp"

namespace {

struct NamedColumn {
  std::uint64_t mColumn;
  std::size_t mLength;  // of what names it
};

// The column with the longest name that the list begins with, up to a comma or its end.
std::optional<NamedColumn> FirstByName(std::string_view list, const MyVector<std::string>& names) {
  std::optional<NamedColumn> found;
  for (std::uint64_t c = 0; c < names.size(); ++c) {
    const std::string& name = names[c];
    const bool isNamed =
        list.starts_with(name) && (list.size() == name.size() || list[name.size()] == ',');
    if (isNamed && (!found || name.size() > found->mLength)) {
      found = {c, name.size()};
    }
  }
  return found;
}

std::optional<NamedColumn> FirstByNumber(std::string_view list, std::uint64_t columns) {
  const std::string_view word = list.substr(0, list.find(','));
  NamedColumn found{0, word.size()};
  const char* end = word.data() + word.size();
  const auto [last, error] = std::from_chars(word.data(), end, found.mColumn);
  const bool isNumber = error == std::errc() && last == end && found.mColumn < columns;
  return isNumber ? std::optional(found) : std::nullopt;
}

// "0 'time', 1 'x'".
std::string Listed(const MyVector<std::string>& names) {
  std::vector<std::string> listed;
  for (std::uint64_t c = 0; c < names.size(); ++c) {
    listed.push_back(std::to_string(c) + " '" + names[c] + "'");
  }
  return Joined(listed, ", ");
}

}  // namespace

std::vector<std::uint64_t> FindColumns(const std::string& list,
                                       const MyVector<std::string>& names) {
  std::vector<std::uint64_t> columns;
  if (list.empty()) {
    columns.resize(names.size());
    std::iota(columns.begin(), columns.end(), 0);
    return columns;
  }
  for (std::string_view rest = list;; rest.remove_prefix(1)) {
    std::optional<NamedColumn> column = FirstByName(rest, names);
    column = column ? column : FirstByNumber(rest, names.size());
    const bool isThere = column.has_value();
    RequireUsage(isThere, "There is no column '" + std::string(rest.substr(0, rest.find(','))) +
                              "'. There are: " + Listed(names));
    columns.push_back(column->mColumn);
    rest.remove_prefix(column->mLength);
    if (rest.empty()) {
      return columns;
    }
  }
}

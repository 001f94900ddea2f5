#include "Executables/Series/Agreement.hpp"

#include <algorithm>
#include <iterator>
#include <span>

#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Printable.hpp"

namespace {

// What a report lists: values, and names of those that have the same.
constexpr std::size_t sMostGroups = 8;
constexpr std::size_t sMostNames = 3;

}  // namespace

std::string ListNames(const std::vector<std::string>& names, std::size_t most) {
  // One more name takes no more room than to say that there is one more.
  const std::size_t listed = names.size() <= most + 1 ? names.size() : most;
  std::string text;
  for (std::size_t i = 0; i < listed; ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  const std::size_t left = names.size() - listed;
  return left == 0 ? text : text + " and " + std::to_string(left) + " more";
}

bool Agreement::Add(int file, const std::string& value) {
  auto group = std::ranges::find(mGroups, value, &Group::mValue);
  if (group == mGroups.end()) {
    group = mGroups.insert(group, {value, {}});
  }
  group->mFiles.push_back(file);
  return group == mGroups.begin();
}

bool Agreement::Includes(int file) const {
  return mGroups.empty() || std::ranges::binary_search(mGroups.front().mFiles, file);
}

void Agreement::Differ(const char* condition, const std::string& label, const std::string& reason,
                       const std::source_location& where) {
  if (mReason.empty()) {
    mCondition = condition;
    mLabel = label;
    mReason = reason;
    mWhere = where;
  }
}

void Agreement::Require(const std::function<std::string(int)>& nameOf) const {
  if (IsReached()) {
    return;
  }
  std::string message = mReason;
  for (const Group& group : std::span(mGroups).first(std::min(mGroups.size(), sMostGroups))) {
    std::vector<std::string> names;
    std::ranges::transform(group.mFiles, std::back_inserter(names), nameOf);
    message += "\n" + Vexa::Printable(group.mValue + " in " + ListNames(names, sMostNames));
  }
  if (mGroups.size() > sMostGroups) {
    message += "\nand " + std::to_string(mGroups.size() - sMostGroups) + " more";
  }
  const std::string differing = nameOf(mGroups[1].mFiles.front());
  const Vexa::ReportContext context(mName, differing);
  RequireFail(mCondition, mLabel.c_str(), static_cast<int>(mWhere.line()), message,
              mWhere.file_name());
}

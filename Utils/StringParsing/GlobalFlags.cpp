#include "Utils/StringParsing/GlobalFlags.hpp"

#include <map>

#include "Utils/ErrorHandling/Require.hpp"

namespace {

std::map<std::string, std::string>& Flags() {
  static std::map<std::string, std::string> flags;
  return flags;
}

}  // namespace

void GlobalFlags::Set(const std::string& name, const std::string& value) {
  Flags()[name] = value;
}

bool GlobalFlags::IsSet(const std::string& name) {
  return Flags().contains(name);
}

const std::string& GlobalFlags::Get(const std::string& name) {
  REQUIRE(IsSet(name), "Global flag '" << name << "' is not set");
  return Flags()[name];
}

#include "Utils/StringParsing/OptionParser.hpp"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <sstream>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Printable.hpp"
#include "Utils/StringParsing/GlobalFlags.hpp"
#include "Utils/StringParsing/SimpleConvert.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

constexpr std::size_t sBannerWidth = 78;

std::string BannerLine(std::string banner) {
  banner.resize(std::max(banner.size(), sBannerWidth), '=');
  return banner + "\n";
}

// Returns a report's text without the signs before each line that frame it.
std::string WithoutFrame(const std::string& text) {
  std::string bare;
  bool isFrame = true;
  for (const char c : text) {
    isFrame = c == '\n' || (isFrame && (c == '=' || c == '#' || c == ' '));
    if (!isFrame || c == '\n') {
      bare += c;
    }
  }
  return bare.substr(0, bare.find_last_not_of(" \n") + 1);
}

}  // namespace

// The name under which a type appears in reports.
template <class T>
static const char* TypeName();

OptionParser::OptionParser(const std::string& options, const std::string& help, bool checkUnused)
    : mCheckUnused(checkUnused),
      mOptions(RemoveLeadingAndTrailingWhitespace(RemoveComments(options))),
      mHelp(help) {
  Parse();
}

OptionParser::~OptionParser() {  // NOLINT(bugprone-exception-escape)
  if (mCheckUnused && !mErrorThrown && std::uncaught_exceptions() == 0) {
    TerminateIfThereAreUnusedOptions();
  }
}

void OptionParser::Parse() {
  if (mOptions.empty()) {
    return;
  }
  if (mOptions.find('=') == std::string::npos) {
    Report("========= OptionParser: NO EQUALS SIGN ",
           "==== The option list \"" + Shown(mOptions) +
               "\" does not contain an equals sign.  The option list should be a sequence of  "
               "KEY=VALUE pairs separated by semicolons.\n");
  }
  std::size_t p = 0;
  while (p < mOptions.size()) {
    const std::size_t equals = FindWhileParsingFast(mOptions, p, '=');
    const std::string key = RemoveLeadingAndTrailingWhitespace(mOptions.substr(p, equals - p));
    if (equals == std::string::npos) {
      Report("======== OptionParser: EXTRA TEXT AT END ",
             "==== Non-whitespace string \"" + Shown(key) +
                 "\" without an equals sign\n"
                 "==== Found after the last valid option.\n");
    }
    if (key.find(';') != std::string::npos) {
      Report("======== OptionParser: KEY WITH SEMICOLON ",
             "==== The key \"" + Shown(key) +
                 "\" contains a semicolon.  Just before this\n"
                 "==== option, you probably used a semicolon instead of a comma.\n");
    }
    const std::size_t begin = equals + 1;
    const std::size_t semicolon = FindWhileParsingFast(mOptions, begin, ';');
    Insert(key, RemoveLeadingAndTrailingWhitespace(mOptions.substr(begin, semicolon - begin)));
    p = semicolon == std::string::npos ? semicolon : semicolon + 1;
  }
}

void OptionParser::Insert(const std::string& key, const std::string& value) {
  if (FindWhileParsingFast(value, 0, '=') != std::string::npos) {
    Report("======== OptionParser: VALUE WITH EQUAL SIGN",
           "#### The value of key \"" + Shown(key) + "\" (" + Shown(value) +
               ")\n"
               "#### contains an equal-sign.  This may indicate that the terminating\n"
               "#### semicolon after this option is missing.\n");
  }
  if (mKeyValueMap.KeyExists(key)) {
    Report("======== OptionParser: DUPLICATE KEY ",
           "==== Key \"" + Shown(key) + "\" specified twice.\n");
  }
  mKeyValueMap.Insert(key, value);
  mKeyWasUsed.Insert(key, false);
}

void OptionParser::Report(const std::string& banner, const std::string& body,
                          const std::string& optionsTitle) const {
  std::string report = BannerLine(banner) + body + optionsTitle + Shown(mOptions) + "\n";
  if (!mHelp.empty()) {
    report += BannerLine("==== Help: ") + mHelp;
  }
  // Options may come from a file, which the report so far does not name, nor the object.
  if (const std::string context = Vexa::ReportContext::Current(); !context.empty()) {
    report += (report.back() == '\n' ? "" : "\n") + context + "\n";
  }
  MyErr << report;
  ThrowError(WithoutFrame(banner) + ": " + WithoutFrame(body));
}

std::string OptionParser::Shown(const std::string& text) {
  return Vexa::Printable(
      text, Vexa::ReportContext::Current().empty() ? Vexa::Breaks::Kept : Vexa::Breaks::Escaped);
}

void OptionParser::ThrowError(const std::string& reason) const {
  mErrorThrown = true;
  throw CodeError("", false, reason);
}

void OptionParser::CheckKeyExists(const std::string& key) const {
  if (!mKeyValueMap.KeyExists(key)) {
    Report("======== OptionParser:  KEY NOT FOUND ",
           "==== Key \"" + Shown(key) + "\" requested, but not specified.\n");
  }
}

std::string OptionParser::ConversionContext(const std::string& key,
                                            const std::string& typeName) const {
  std::ostringstream context;
  context << "==== OptionParser Error ==============================\n"
          << "While parsing the key '" << Shown(key) << "', conversion of \n"
          << "value '" << Shown(mKeyValueMap[key]) << "' to type '" << typeName << "' failed.\n"
          << "==== Provided Options ================================\n";
  for (const auto& [option, value] : mKeyValueMap) {
    context << Shown(option) << " = " << Shown(value) << "\n";
  }
  context << "==== User-provided help-text =========================\n" << mHelp;
  return context.str();
}

template <class T>
T OptionParser::Get(const std::string& key) const {
  CheckKeyExists(key);
  T value{};
  SimpleConvert(mKeyValueMap[key], ConversionContext(key, TypeName<T>()), value);
  mKeyWasUsed[key] = true;
  return value;
}

template <class T>
T OptionParser::Get(const std::string& key, const T& defaultValue, bool defaultOnlyInReplay) const {
  const auto isReplay = [] {
    return GlobalFlags::IsSet("HistoryFileRunMode") &&
           GlobalFlags::Get("HistoryFileRunMode") == "Replay";
  };
  if (!mKeyValueMap.KeyExists(key) && (!defaultOnlyInReplay || isReplay())) {
    return defaultValue;
  }
  return Get<T>(key);
}

std::string OptionParser::TextInTag(const std::string& value, const std::string& key,
                                    const std::string& tag, const std::string& form) const {
  if (value.starts_with(tag)) {
    const std::string rest = value.substr(tag.size());
    const std::string inside = RemoveOverallParenthesesIfPresent(rest, '(', ')');
    if (inside != rest) {
      return RemoveLeadingAndTrailingWhitespace(inside);
    }
  }
  Report("======== OptionParser: WRONG FORMAT ",
         "==== Value for key '" + key + "' expected to have the form\n==== " + form + ".\n");
}

std::string OptionParser::GetStringWithTag(const std::string& key, const std::string& tag) const {
  CheckKeyExists(key);
  std::string text = TextInTag(mKeyValueMap[key], key, tag, tag + "(string)");
  mKeyWasUsed[key] = true;
  return text;
}

std::string OptionParser::GetStringWithTag(const std::string& key, const std::string& tag,
                                           const std::string& defaultValue) const {
  return mKeyValueMap.KeyExists(key) ? GetStringWithTag(key, tag) : defaultValue;
}

MyVector<std::string> OptionParser::GetMyVectorStringWithTag(const std::string& key,
                                                             const std::string& tag) const {
  CheckKeyExists(key);
  const std::string form = tag + "(string), " + tag + "(string), ... ";
  MyVector<std::string> texts = SplitStrings(mKeyValueMap[key], ',');
  for (std::string& text : texts) {
    text = TextInTag(RemoveLeadingAndTrailingWhitespace(text), key, tag, form);
  }
  mKeyWasUsed[key] = true;
  return texts;
}

MyVector<std::string> OptionParser::GetMyVectorStringWithTag(
    const std::string& key, const std::string& tag,
    const MyVector<std::string>& defaultValue) const {
  return mKeyValueMap.KeyExists(key) ? GetMyVectorStringWithTag(key, tag) : defaultValue;
}

std::string OptionParser::CompactOptionList() const {
  std::string list;
  for (const auto& [key, value] : mKeyValueMap) {
    list.append(key).append("=").append(value).append(";");
  }
  return list;
}

void OptionParser::TerminateIfThereAreUnusedOptions() const {
  std::string unused;
  for (const auto& [key, wasUsed] : mKeyWasUsed) {
    if (!wasUsed) {
      unused += "=== " + Shown(key) + "\n";
    }
  }
  if (!unused.empty()) {
    Report("======== OptionParser: UNUSED OPTIONS ",
           "======= These options were not used:\n" + unused, "=== Given Options:\n");
  }
}

#define INSTANTIATE(T)                                       \
  template <>                                                \
  const char* TypeName<T>() {                                \
    return #T;                                               \
  }                                                          \
  template T OptionParser::Get<T>(const std::string&) const; \
  template T OptionParser::Get<T>(const std::string&, const T&, bool) const;
INSTANTIATE(std::string)
INSTANTIATE(int)
INSTANTIATE(double)
INSTANTIATE(bool)
INSTANTIATE(char)
INSTANTIATE(MyVector<std::string>)
#undef INSTANTIATE

#include "Utils/ErrorHandling/RequireFail.hpp"

#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Utils/ErrorHandling/Breakpoint.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/Process/Formatting.hpp"

namespace {
thread_local const Vexa::ReportContext* spInnermostContext = nullptr;

std::string_view WithoutDirectory(std::string_view path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

}  // namespace

void RequireFail(const char* condition, const char* file, int line, const std::string& message,
                 const char* sourceFile) {
  std::ostringstream report;
  report.exceptions(std::ios_base::badbit);  // where there is no memory, that is reported instead
  report << "\n#######################  REQUIRE  FAILED  #######################\n"
         << "#### " << condition << "  violated\n"
         << "#### " << file << " (line " << line << ")\n"
         << message;
  const std::string context = Vexa::ReportContext::Current();
  if (!context.empty()) {
    report << (message.empty() || message.back() == '\n' ? "" : "\n") << context;
    const bool namesBoth =
        !Vexa::ReportContext::Dataset().empty() && !Vexa::ReportContext::File().empty();
    if (namesBoth && sourceFile != nullptr &&
        Vexa::ReportLabel(file) != Vexa::ReportLabel(sourceFile)) {
      report << " (" << WithoutDirectory(sourceFile) << ':' << line << ')';
    }
  }
  report << "\n#################################################################\n";
  Breakpoint();
  throw CodeError(report.str(), true, message, context);
}

Vexa::RequireMessage& Vexa::RequireMessage::operator<<(Vexa::Verbatim text) {
  mStream << text.mText;
  mText += std::move(mStream).str();
  mStream.str("");
  return *this;
}

Vexa::RequireMessage& Vexa::RequireMessage::operator<<(std::string_view text) {
  mStream << text;
  return Take(Vexa::Breaks::Escaped);
}

Vexa::RequireMessage& Vexa::RequireMessage::operator<<(double value) {
  constexpr std::streamsize defaultPrecision = 6;
  mStream << value;
  const std::string sixDigits = mStream.str();
  if (mStream.precision() == defaultPrecision && std::isfinite(value) &&
      std::strtod(sixDigits.c_str(), nullptr) != value) {
    mStream.str("");
    mStream << (sixDigits.find('e') == sixDigits.npos ? RoundTrip(value)
                                                      : RoundTripWithExponent(value));
  }
  return Take(Vexa::Breaks::Kept);
}

Vexa::RequireMessage& Vexa::RequireMessage::operator<<(
    std::ostream& (*manipulator)(std::ostream&)) {
  mStream << manipulator;
  return Take(Vexa::Breaks::Kept);
}

Vexa::RequireMessage& Vexa::RequireMessage::operator<<(
    std::ios_base& (*manipulator)(std::ios_base&)) {
  mStream << manipulator;
  return *this;
}

Vexa::RequireMessage& Vexa::RequireMessage::Take(Vexa::Breaks breaks) {
  mText += Vexa::Printable(mStream.str(), breaks);
  mStream.str("");
  return *this;
}

std::string Vexa::ReportLabel(const char* path) {
  const std::string_view name = WithoutDirectory(path);
  return std::string(name.substr(0, name.rfind('.')));
}

Vexa::ReportContext::ReportContext(std::string_view dataset, std::string_view file)
    : mDataset(dataset), mFile(file), mpOuter(spInnermostContext) {
  spInnermostContext = this;
}

Vexa::ReportContext::~ReportContext() {
  spInnermostContext = mpOuter;
}

std::string Vexa::ReportContext::Dataset() {
  return std::string(spInnermostContext == nullptr ? "" : spInnermostContext->mDataset);
}

std::string Vexa::ReportContext::File() {
  return std::string(spInnermostContext == nullptr ? "" : spInnermostContext->mFile);
}

void Vexa::ReportContext::PrintCurrent(std::ostream& os) {
  if (spInnermostContext == nullptr) {
    return;
  }
  const auto& [dataset, file, outer] = *spInnermostContext;
  const auto put = [&os](std::string_view piece) { os << piece; };
  if (!dataset.empty()) {
    os << "Object '";
    Vexa::PutPrintable(dataset, Vexa::Breaks::Escaped, put);
    os << "'";
  }
  if (!file.empty()) {
    os << (dataset.empty() ? "File '" : " of file '");
    Vexa::PutPrintable(file, Vexa::Breaks::Escaped, put);
    os << "'";
  }
  if (!dataset.empty() || !file.empty()) {
    os << "\n";
  }
}

std::string Vexa::ReportContext::Current() {
  std::ostringstream os;
  os.exceptions(std::ios_base::badbit);
  PrintCurrent(os);
  std::string line = std::move(os).str();
  line.resize(line.empty() ? 0 : line.size() - 1);
  return line;
}

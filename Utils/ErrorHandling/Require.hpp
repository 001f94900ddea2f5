// The one way to fail: REQUIRE(condition, message) checks a precondition or the answer of a library
// call where a wrong value first shows, and ends in a framed report that names the condition as it
// stands in the source, the source file and the line.
#pragma once

#include <ostream>
#include <source_location>
#include <sstream>
#include <string>

/// Builds the framed report, raises SIGTRAP for a debugger, and throws CodeError; never returns.
/// `file` is printed as given: a source file's name without directory and extension. The innermost
/// ReportContext, if there is one, follows the message on a line of its own.
[[noreturn]] void RequireFail(const char* condition, const char* file, int line,
                              const std::string& message);

/// The name under which a source file appears in reports: no directory, no extension.
std::string ReportLabel(const char* path);

// A program whose sources report under one name defines VEXA_REPORT_LABEL on its target. Headers
// that such a program includes keep their own names.
#ifdef VEXA_REPORT_LABEL
#define VEXA_CURRENT_REPORT_LABEL \
  (std::string(__FILE__) == __BASE_FILE__ ? std::string(VEXA_REPORT_LABEL) : ReportLabel(__FILE__))
#else
#define VEXA_CURRENT_REPORT_LABEL ReportLabel(__FILE__)
#endif

// The condition's text is made by the macro that the user wrote: one macro further in, macros
// inside of the condition would be expanded already.
#define VEXA_REQUIRE(label, line, text, condition, message)                                        \
  do {                                                                                             \
    if (!(condition)) [[unlikely]] {                                                               \
      std::ostringstream requireMessage;                                                           \
      requireMessage << message; /* NOLINT(bugprone-macro-parentheses): it chains << */            \
      RequireFail(text, std::string(label).c_str(), static_cast<int>(line), requireMessage.str()); \
    }                                                                                              \
  } while (false)

/// Fails unless `condition` holds. `message` may chain << items and is built only on failure.
#define REQUIRE(condition, message) \
  VEXA_REQUIRE(VEXA_CURRENT_REPORT_LABEL, __LINE__, #condition, condition, message)

/// The same under an explicit label; for the few reports whose label is not their source file.
#define REQUIRE_LABELLED(label, line, condition, message) \
  VEXA_REQUIRE(label, line, #condition, condition, message)

/// The same for helpers that several sources share: the report names the caller, whose
/// std::source_location the helper took as a defaulted argument.
#define REQUIRE_AT(location, condition, message)                                              \
  VEXA_REQUIRE(ReportLabel((location).file_name()), (location).line(), #condition, condition, \
               message)

/// Says what is being worked on while it lives, so that a report from any depth lets a user find
/// the file and the dataset. Costs two pointers; nothing is formatted unless something fails.
/// Both strings are lent and must outlive the context; an empty one is left out.
class ReportContext {
 public:
  ReportContext(const std::string& dataset, const std::string& file);
  ~ReportContext();
  ReportContext(const ReportContext&) = delete;
  ReportContext& operator=(const ReportContext&) = delete;

  /// The line that a report gets, without a newline: "Object '/a.dat' of file 'x.h5'";
  /// empty when nothing is being worked on.
  static std::string Current();
  /// The same and a newline, or nothing at all. Allocates nothing.
  static void PrintCurrent(std::ostream& os);

  /// What is being worked on, for a context that outlives this one; empty when nothing is.
  static std::string Dataset();
  static std::string File();

 private:
  const std::string& mDataset;
  const std::string& mFile;
  const ReportContext* mpOuter;
};

// What a failed REQUIRE does, and what a report says besides the message: a label, which is the
// name of a source file, and what was being worked on. Defines no macro without the prefix VEXA_.
#pragma once

#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/Process/Printable.hpp"

#pragma GCC visibility push(default)

/// Builds the framed report, raises SIGTRAP for a debugger, and throws CodeError; never returns.
/// `file` is printed as given: a source file's name without directory and extension. The innermost
/// ReportContext, if there is one, follows the message on a line of its own. If the condition
/// stands in a source file that is known and `file` is another, a report that names an object and
/// its file says on that line where the condition is: " (Columns.cpp:12)".
[[noreturn]] void RequireFail(const char* condition, const char* file, int line,
                              const std::string& message, const char* sourceFile = nullptr);

namespace Vexa {

/// The name under which a source file appears in reports: no directory, no extension.
std::string ReportLabel(const char* path);

/// Text that a message takes as it stands, lines and all: somebody composed it for reports. The
/// names and values in it were made Printable() then.
struct Verbatim {
  explicit Verbatim(std::string_view text) : mText(text) {}
  std::string_view mText;
};

/// What a REQUIRE's message is streamed into. Literals appear as they are written. Strings are
/// names and values and appear as Printable() makes them, so that none can pass for a line of the
/// report. A double that differs from what its first six digits say appears with all that it has,
/// in the same notation, unless the message sets a precision. Everything else appears as
/// std::ostream shows it; it keeps its line breaks and loses other control characters.
class RequireMessage {
 public:
  template <std::size_t N>
  RequireMessage& operator<<(const char (&literal)[N]) {
    return *this << Verbatim(literal);
  }
  template <std::size_t N>
  RequireMessage& operator<<(char (&buffer)[N]) {
    return *this << std::string_view(buffer);
  }
  RequireMessage& operator<<(Verbatim text);
  RequireMessage& operator<<(std::string_view text);
  RequireMessage& operator<<(double value);
  RequireMessage& operator<<(std::ostream& (*manipulator)(std::ostream&));
  RequireMessage& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

  template <class T>
  RequireMessage& operator<<(const T& value) {
    if constexpr (std::is_pointer_v<T> && std::is_convertible_v<T, std::string_view>) {
      return *this << (value == nullptr ? std::string_view() : std::string_view(value));
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      return *this << std::string_view(value);
    } else {
      mStream << value;
      return Take(Breaks::Kept);
    }
  }

  const std::string& Text() const { return mText; }

 private:
  /// Moves what the stream holds to the text.
  RequireMessage& Take(Breaks breaks);

  std::ostringstream mStream;  // keeps the formats that the message sets
  std::string mText;
};

/// The name under which the helpers that are called while it lives report: a helper that several
/// sources share says VEXA_REQUIRE_FOR_CALLER, and its reports name the one that called. `label` is
/// lent. Each operation of a source that calls such helpers makes one.
class ReportAs {
 public:
  explicit ReportAs(const char* label) : mpOuter(std::exchange(spLabel, label)) {}
  ~ReportAs() { spLabel = mpOuter; }
  ReportAs(const ReportAs&) = delete;
  ReportAs& operator=(const ReportAs&) = delete;

  /// The innermost label, or null if there is none.
  static const char* Label() { return spLabel; }

 private:
  inline static constinit thread_local const char* spLabel = nullptr;
  const char* mpOuter;
};

}  // namespace Vexa

// A program whose sources report under one name defines VEXA_REPORT_LABEL on its target. Headers
// that such a program includes keep their own names.
#ifdef VEXA_REPORT_LABEL
#define VEXA_CURRENT_REPORT_LABEL                                                \
  (std::string_view(__FILE__).ends_with(".cpp") ? std::string(VEXA_REPORT_LABEL) \
                                                : Vexa::ReportLabel(__FILE__))
#else
#define VEXA_CURRENT_REPORT_LABEL Vexa::ReportLabel(__FILE__)
#endif
#define VEXA_CALLERS_REPORT_LABEL                                 \
  (Vexa::ReportAs::Label() == nullptr ? VEXA_CURRENT_REPORT_LABEL \
                                      : std::string(Vexa::ReportAs::Label()))

// The condition's text is made by the macro that the user wrote: one macro further in, macros
// inside of the condition would be expanded already.
#define VEXA_REQUIRE_AS(label, text, condition, message)                                        \
  do {                                                                                          \
    if (!(condition)) [[unlikely]] {                                                            \
      Vexa::RequireMessage requireMessage;                                                      \
      requireMessage << message; /* NOLINT(bugprone-macro-parentheses): it chains << */         \
      RequireFail(text, std::string(label).c_str(), __LINE__, requireMessage.Text(), __FILE__); \
    }                                                                                           \
  } while (false)

/// Fails unless `condition` holds; see REQUIRE. For headers, which leave that short name to the
/// programs that include them.
#define VEXA_REQUIRE(condition, message) \
  VEXA_REQUIRE_AS(VEXA_CURRENT_REPORT_LABEL, #condition, condition, message)
/// Does the same under the label of the caller.
#define VEXA_REQUIRE_FOR_CALLER(condition, message) \
  VEXA_REQUIRE_AS(VEXA_CALLERS_REPORT_LABEL, #condition, condition, message)

namespace Vexa {

/// Says what is being worked on while it lives, so that a report from any depth lets a user find
/// the file and the dataset. Costs two pointers; nothing is formatted unless something fails.
/// Both strings are lent and must outlive the context; an empty one is left out.
class ReportContext {
 public:
  ReportContext(std::string_view dataset, std::string_view file);
  explicit ReportContext(std::string_view file) : ReportContext({}, file) {}
  ~ReportContext();
  ReportContext(const ReportContext&) = delete;
  ReportContext& operator=(const ReportContext&) = delete;

  /// The line that a report gets, without a newline: "Object '/a.dat' of file 'x.h5'";
  /// empty when nothing is being worked on.
  static std::string Current();
  /// Prints that line and a newline, or nothing at all. Allocates nothing.
  static void PrintCurrent(std::ostream& os);

  /// What is being worked on, for a context that outlives this one; empty when nothing is.
  static std::string Dataset();
  static std::string File();

 private:
  std::string_view mDataset;
  std::string_view mFile;
  const ReportContext* mpOuter;
};

}  // namespace Vexa

#pragma GCC visibility pop

// OptionParser reads a list of options "Key = value; Key = value;" and hands typed values to the
// class that they configure. It is strict: whatever is malformed, given twice, missing, not
// convertible or, if asked for, not used, is fatal and reported together with the whole list and
// the owner's help text.
//
// The language: '#' starts a comment up to the end of the line; keys and values are trimmed; the
// last ';' may be left out. '=' and ';' inside parentheses do not split, so that a value may be a
// list of options itself, as in "Map = Foo(A = 1; B = 2);". Nothing else quotes. A value with
// commas is a list if it is read as one.
//
// By convention a help text starts with the owner's name and purpose, then a line "OPTIONS", then
// one line "  Key = type;  # description" per key.
#pragma once

#include <atomic>
#include <string>

#include "Utils/Containers/MyMap.hpp"
#include "Utils/Containers/MyVector.hpp"

#pragma GCC visibility push(default)

/// Every report but that of a failed conversion goes to MyErr; then a CodeError with an empty
/// message is thrown. Reading is safe from several threads at once; a key counts as used when any
/// of them has read it.
class OptionParser {
 public:
  /// Parses at once: NO EQUALS SIGN, EXTRA TEXT AT END, KEY WITH SEMICOLON, VALUE WITH EQUAL SIGN
  /// and DUPLICATE KEY are reported here, and "FindWhileParsingFast: Unbalanced parentheses.\n" is
  /// a REQUIRE failure. An empty list is no error. With `checkUnused` the destructor checks that
  /// every option was read.
  OptionParser(const std::string& options, const std::string& help, bool checkUnused);
  /// Ends the process if options were left unused, unless this parser has reported an error already
  /// or another exception is in flight.
  ~OptionParser();  // NOLINT(bugprone-exception-escape): that is how it ends the process
  OptionParser(const OptionParser&) = delete;
  OptionParser& operator=(const OptionParser&) = delete;

  /// The value of a required key as std::string, int, double, bool, char or
  /// MyVector<std::string>, converted as SimpleConvert does. Reports KEY NOT FOUND; a value that
  /// does not convert is a REQUIRE failure that names key, value and type.
  template <class T>
  T Get(const std::string& key) const;

  /// The value of an optional key. With `defaultOnlyInReplay` the default serves only while the
  /// global flag "HistoryFileRunMode" is "Replay"; otherwise the key is required.
  template <class T>
  T Get(const std::string& key, const T& defaultValue, bool defaultOnlyInReplay = false) const;

  /// Returns the text of a value "tag(text)", trimmed; there may be blanks before the '('. Reports
  /// KEY NOT FOUND and WRONG FORMAT.
  std::string GetStringWithTag(const std::string& key, const std::string& tag) const;
  std::string GetStringWithTag(const std::string& key, const std::string& tag,
                               const std::string& defaultValue) const;

  /// Returns the list a, b, ... of a value "tag(a), tag(b), ...".
  MyVector<std::string> GetMyVectorStringWithTag(const std::string& key,
                                                 const std::string& tag) const;
  MyVector<std::string> GetMyVectorStringWithTag(const std::string& key, const std::string& tag,
                                                 const MyVector<std::string>& defaultValue) const;

  /// Reports KEY NOT FOUND if the key is absent. Does not count as a use.
  void CheckKeyExists(const std::string& key) const;

  /// The pairs in the order of the text, each as "key=value;".
  std::string CompactOptionList() const;

  /// Reports UNUSED OPTIONS with all keys that nobody has read successfully, if there are any.
  void TerminateIfThereAreUnusedOptions() const;

  /// Throws a CodeError with an empty message, for when the report has been written already, of
  /// which `reason` may be a short form. From then on the destructor keeps silent.
  [[noreturn]] void ThrowError(const std::string& reason = "") const;

 private:
  void Parse();
  void Insert(const std::string& key, const std::string& value);
  /// Writes banner, body, given options and help text, then throws.
  [[noreturn]] void Report(const std::string& banner, const std::string& body,
                           const std::string& optionsTitle = "==== Given Options:\n") const;
  /// A piece of the options as a report shows it: what a file holds is shown on one line.
  static std::string Shown(const std::string& text);
  std::string ConversionContext(const std::string& key, const std::string& typeName) const;
  /// Returns the text in "tag(text)", and reports WRONG FORMAT with `form` for anything else.
  std::string TextInTag(const std::string& value, const std::string& key, const std::string& tag,
                        const std::string& form) const;

  bool mCheckUnused;
  std::string mOptions;  // without comments, trimmed
  std::string mHelp;
  MyMap<std::string, std::string> mKeyValueMap;
  mutable MyMap<std::string, std::atomic<bool>> mKeyWasUsed;
  mutable std::atomic<bool> mErrorThrown = false;
};

#pragma GCC visibility pop

// The stream of error reports: MyErr << "text" << value; writes to standard error and appends to
// this process's error file, "Errors" + rank in at least three digits + ".txt" in the directory in
// which the program was started ("Errors000.txt" of a single process).
#pragma once

#include <iostream>
#include <streambuf>

#include "Utils/ErrorHandling/ErrorFile.hpp"
#include "Utils/ErrorHandling/Handlers.hpp"

#pragma GCC visibility push(default)

namespace Vexa {

/// Has a function called before anything goes to standard error this way, for who keeps something
/// on the terminal that must go first; null for none.
void SetBeforeMyErr(void (*function)());
/// Calls it; for who must write to standard error another way.
void PrepareForErrors();

}  // namespace Vexa

/// A MyErrProxy is one statement's output. Standard error gets everything, whether there is an
/// error file or not; a line after the first statement that did not get into the file says why. If
/// standard error is a pipe which nobody reads, the error file alone gets it: SIGPIPE is held back
/// from the write. Control characters other than line breaks and tabs are escaped; names, which
/// must have neither, are made Printable() by who streams them.
class MyErrProxy {
 public:
  /// Opens the error file, and begins the line on standard error with ProcID_() once this process
  /// has a rank.
  MyErrProxy();
  template <class T>
  explicit MyErrProxy(const T& first) : MyErrProxy() {
    Output(first);
  }
  MyErrProxy(const MyErrProxy&) = delete;
  MyErrProxy& operator=(const MyErrProxy&) = delete;

  template <class T>
  MyErrProxy& Output(const T& x) {
    mStream << x;
    return *this;
  }

  template <class T>
  MyErrProxy& operator<<(const T& x) {
    return Output(x);
  }
  MyErrProxy& operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    return Output(manipulator);
  }

 private:
  /// Passes on what is written to it at once. Neither it nor a stream on it allocates.
  class Sinks : public std::streambuf {
   public:
    ~Sinks() override;

   private:
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int_type overflow(int_type character) override;

    Vexa::ErrorFile mFile;
    bool mEndsLine = true;
  };

  // Reports can come from static initialisers that run before those of the standard streams.
  const std::ios_base::Init mStreams;
  Sinks mSinks;
  std::ostream mStream{&mSinks};
};

struct MyErrType {
  /// The proxy is made for the statement and lives as long.
  template <class T>
  MyErrProxy operator<<(const T& x) const {
    return MyErrProxy(x);
  }
  MyErrProxy operator<<(std::ostream& (*manipulator)(std::ostream&)) const {
    return MyErrProxy(manipulator);
  }
};

inline constexpr MyErrType MyErr{};

#pragma GCC visibility pop

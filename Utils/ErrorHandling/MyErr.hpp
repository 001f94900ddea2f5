// The stream of error reports: MyErr << "text" << value; writes to standard error and appends to
// this process's error file, "Errors" + rank in at least three digits + ".txt" in the directory in
// which the program was started ("Errors000.txt" of a single process).
#pragma once

#include <fstream>
#include <iostream>
#include <memory>

#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"

/// Has a function called before anything goes to standard error this way, for who keeps something
/// on the terminal that must go first; null for none.
void SetBeforeMyErr(void (*function)());
/// Calls it; for who must write to standard error another way.
void PrepareForErrors();

/// One statement's output. An error file that cannot be opened stays silent, as one does for which
/// there is no memory, and one that holds no text; standard error gets everything in any case. If
/// that is a pipe which nobody reads, the error file alone does: SIGPIPE is held back from the
/// write.
class MyErrProxy {
 public:
  /// Opens the error file, and begins the line on standard error with ProcID_() once this process
  /// has a rank.
  MyErrProxy();

  template <class T>
  MyErrProxy& Output(const T& x) {
    {
      const SigpipeHeldBack guard;
      std::cerr << x;
    }
    if (mpFile != nullptr) {
      *mpFile << x;
    }
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
  std::unique_ptr<std::ofstream> mpFile;
};

struct MyErrType {
  template <class T>
  MyErrProxy operator<<(const T& x) const {
    MyErrProxy proxy;
    proxy.Output(x);
    return proxy;
  }
  MyErrProxy operator<<(std::ostream& (*manipulator)(std::ostream&)) const {
    MyErrProxy proxy;
    proxy.Output(manipulator);
    return proxy;
  }
};

inline constexpr MyErrType MyErr{};

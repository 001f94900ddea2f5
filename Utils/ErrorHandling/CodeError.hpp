#pragma once

#include <string>
#include <thread>

#include "Utils/ErrorHandling/Handlers.hpp"

#pragma GCC visibility push(default)

/// CodeError is the one exception of this system: a report that ends the run unless somebody
/// deliberately catches it. It is not a std::exception, so that handlers for those let it pass.
class CodeError {
 public:
  /// With a backtrace, a newline and Backtrace(1) follow the message. `reason` is what the message
  /// says without its frame, `context` what it is about. Installs TerminateHandler,
  /// unless the process's handlers are to be left alone.
  CodeError(std::string message, bool withBacktrace, std::string reason = "",
            std::string context = "");
  CodeError(const CodeError& other);
  CodeError& operator=(const CodeError&) = delete;
  ~CodeError();

  const std::string& Message() const { return mMessage; }
  /// Reason and context serve who lists several failures; they are empty if only the message is
  /// known.
  const std::string& Reason() const { return mReason; }
  const std::string& Context() const { return mContext; }

  /// Writes through MyErr what the exceptions of this thread say that exist besides `last`, oldest
  /// first. Those are the failures that `last`, or another exception if it is null, would displace:
  /// it came from a destructor while they passed, or from their handler.
  static void ReportDisplaced(const CodeError* last);

 private:
  void Enlist();

  std::string mMessage;
  std::string mReason;
  std::string mContext;
  std::thread::id mThread = std::this_thread::get_id();
  CodeError* mpOlder = nullptr;  // of all that exist
};

#pragma GCC visibility pop

#pragma once

#include <string>

/// The one exception of this system: a report that ends the run unless somebody deliberately
/// catches it. It is not a std::exception, so that handlers for those let it pass.
class CodeError {
 public:
  /// With a backtrace, a newline and Backtrace(1) follow the message. Installs TerminateHandler.
  CodeError(std::string message, bool withBacktrace);

  const std::string& Message() const { return mMessage; }

 private:
  std::string mMessage;
};

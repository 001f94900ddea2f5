#pragma once

#include <string>

/// The one exception of this system: a report that ends the run unless somebody deliberately
/// catches it. It is not a std::exception, so that handlers for those let it pass.
class CodeError {
 public:
  /// With a backtrace, a newline and Backtrace(1) follow the message. `reason` is what the message
  /// says without its frame, `context` what it is about. Installs TerminateHandler.
  CodeError(std::string message, bool withBacktrace, std::string reason = "",
            std::string context = "");

  const std::string& Message() const { return mMessage; }
  /// For who lists several failures; empty if there is but the message.
  const std::string& Reason() const { return mReason; }
  const std::string& Context() const { return mContext; }

 private:
  std::string mMessage;
  std::string mReason;
  std::string mContext;
};

#include "Utils/ErrorHandling/CodeError.hpp"

#include <utility>

#include "Utils/ErrorHandling/Backtrace.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"

CodeError::CodeError(std::string message, bool withBacktrace, std::string reason,
                     std::string context)
    : mMessage(std::move(message)), mReason(std::move(reason)), mContext(std::move(context)) {
  InstallTerminateHandler();
  if (withBacktrace) {
    mMessage += "\n" + Backtrace(1);
  }
}

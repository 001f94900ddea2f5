#include "Utils/ErrorHandling/CodeError.hpp"

#include <mutex>
#include <utility>

#include "Utils/ErrorHandling/Backtrace.hpp"
#include "Utils/ErrorHandling/Handlers.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"

namespace {

// An error can be destroyed by another thread than the one that made it.
std::mutex sListMutex;
CodeError* spNewest = nullptr;

}  // namespace

CodeError::CodeError(std::string message, bool withBacktrace, std::string reason,
                     std::string context)
    : mMessage(std::move(message)), mReason(std::move(reason)), mContext(std::move(context)) {
  if (!Vexa::LeavesHandlers()) {
    Vexa::InstallTerminateHandler();
  }
  if (withBacktrace) {
    mMessage += "\n" + Backtrace(1);
  }
  Enlist();  // last, since nothing would take it from the list if the constructor failed
}

CodeError::CodeError(const CodeError& other)
    : mMessage(other.mMessage), mReason(other.mReason), mContext(other.mContext) {
  Enlist();
}

CodeError::~CodeError() {
  const std::lock_guard lock(sListMutex);
  CodeError** link = &spNewest;
  while (*link != this) {
    link = &(*link)->mpOlder;
  }
  *link = mpOlder;
}

void CodeError::Enlist() {
  const std::lock_guard lock(sListMutex);
  mpOlder = std::exchange(spNewest, this);
}

void CodeError::ReportDisplaced(const CodeError* last) {
  // Several of them are rare: each is looked for from the newest on.
  const CodeError* reported = nullptr;
  do {
    const CodeError* oldest = nullptr;
    {
      const std::lock_guard lock(sListMutex);
      for (const CodeError* error = spNewest; error != reported; error = error->mpOlder) {
        const bool isOther =
            error != last && (last == nullptr || error->mMessage != last->mMessage);
        oldest = isOther && error->mThread == std::this_thread::get_id() ? error : oldest;
      }
    }
    reported = oldest;
    if (reported != nullptr) {
      MyErr << reported->mMessage;
    }
  } while (reported != nullptr);
}

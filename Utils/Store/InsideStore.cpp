#include "Utils/Store/InsideStore.hpp"

#include <chrono>
#include <thread>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {
std::atomic<bool> sIsTaken = false;
bool sGaveUp = false;
}  // namespace

void Vexa::InsideStore::Refuse() {
  if (sIsTaken) {
    Vexa::MyAbort_AwaitEnd();
  }
  const bool isAlone = false;
  REQUIRE(isAlone, "The store is used by two threads at once; it belongs to one at a time");
}

void Vexa::InsideStore::StopIfProcessEnds() {
  if (sDepth == 0 && Vexa::MyAbort_CalledByAnotherThread()) {
    Vexa::MyAbort_AwaitEnd();
  }
}

bool Vexa::InsideStore::TakeForGood() {
  StopIfProcessEnds();
  sIsTaken = true;
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(10);
  const int* inside = nullptr;
  while (sDepth == 0 && !sInside.compare_exchange_strong(inside, &sDepth)) {
    if (!sGaveUp && Clock::now() > end) {
      MyErr
          << "Another thread does not leave the store, whose files are left as they are.  What is "
          << "held in memory is lost.\n";
      sGaveUp = true;
    }
    if (sGaveUp) {
      return false;
    }
    inside = nullptr;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ++sDepth;  // never counted down
  return true;
}

#include "Utils/Store/H5_Object.hpp"

#include <exception>

#include "Utils/ErrorHandling/MyAbort.hpp"

bool Vexa::MayCheckInDestructor() {
  return std::uncaught_exceptions() == 0 && !MyAbortCalled_UncleanShutdown();
}

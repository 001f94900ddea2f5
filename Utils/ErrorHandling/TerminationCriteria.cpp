#include "Utils/ErrorHandling/TerminationCriteria.hpp"

#include <cfenv>

bool TerminationCriteria::TerminateOnFloatingPointException() {
  feenableexcept(FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
  TerminateOnFPE = true;
  return true;
}

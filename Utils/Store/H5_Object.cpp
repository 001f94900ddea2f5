#include "Utils/Store/H5_Object.hpp"

#include <exception>

#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/HDF5/H5_Utils.hpp"

bool Vexa::MayCheckInDestructor() {
  return std::uncaught_exceptions() == 0 && !MyAbortCalled_UncleanShutdown();
}

std::vector<std::string> Vexa::ForeignAttributes(hid_t id, const std::string& own, int verbosity) {
  std::vector<std::string> foreign;
  for (const std::string& name : Vexa_H5::AttributeNames(id, verbosity)) {
    if (name != own) {
      foreign.push_back("attribute '" + name + "'");
    }
  }
  return foreign;
}

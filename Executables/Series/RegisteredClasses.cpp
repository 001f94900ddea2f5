#include <algorithm>

#include "Executables/Series/SeriesKinds.hpp"
#include "Utils/Factory/EnableCreation.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"

// The classes that a program creates by name: folders, and the kinds of datasets. Whatever else is
// linked in stays out of the registry, so that a stray extension is not taken for one of ours.
bool Factory::ShouldInhibitFactoryRegistration(CreateFunction function) {
  return function != FunctionFor<H5_Objects::Dir>() &&
         std::ranges::find(SeriesKinds(), function, &SeriesKind::mCreate) == SeriesKinds().end();
}

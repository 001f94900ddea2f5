#include <algorithm>
#include <iterator>

#include "Utils/Factory/EnableCreation.hpp"
#include "Utils/Store/H5_ObjectCoef.hpp"
#include "Utils/Store/H5_ObjectDat.hpp"
#include "Utils/Store/H5_ObjectDir.hpp"
#include "Utils/Store/H5_ObjectTdm.hpp"
#include "Utils/Store/H5_ObjectTxt.hpp"
#include "Utils/Store/H5_ObjectVersion.hpp"

// The classes that this program creates by name. Whatever else is linked in stays out of the
// registry, so that a stray extension is not taken for one of ours.
bool Factory::ShouldInhibitFactoryRegistration(CreateFunction function) {
  using namespace H5_Objects;
  static const CreateFunction registered[] = {FunctionFor<Coef>(), FunctionFor<Dat>(),
                                              FunctionFor<Dir>(),  FunctionFor<Tdm>(),
                                              FunctionFor<Txt>(),  FunctionFor<Version>()};
  return std::find(std::begin(registered), std::end(registered), function) == std::end(registered);
}

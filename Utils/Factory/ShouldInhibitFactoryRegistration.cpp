#include "Utils/Factory/FactoryBackbone.hpp"

// It is weak, and in an archive member of its own, so that the definition of an executable wins.
[[gnu::weak]] bool Factory::ShouldInhibitFactoryRegistration(CreateFunction) {
  return false;
}

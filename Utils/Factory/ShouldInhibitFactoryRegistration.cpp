#include "Utils/Factory/FactoryBackbone.hpp"

// Weak, and in an archive member of its own: the definition of an executable wins over it.
[[gnu::weak]] bool Factory::ShouldInhibitFactoryRegistration(CreateFunction) {
  return false;
}

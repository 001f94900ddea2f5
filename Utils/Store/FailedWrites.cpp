#include "Utils/Store/FailedWrites.hpp"

#include <algorithm>

#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/Process/Printable.hpp"

void Vexa::FailedWrites::Add(const std::string& name) {
  mNames.push_back(name);
  if (!mMute) {
    mMute.emplace();
  }
}

void Vexa::FailedWrites::Throw(const std::string& filename) {
  if (IsEmpty()) {
    return;
  }
  mMute.reset();
  if (mNames.size() > 1) {
    const std::size_t listed = std::min<std::size_t>(mNames.size(), 6);
    std::string names;
    for (std::size_t i = 1; i < listed; ++i) {
      names += " '" + Vexa::Printable(mNames[i]) + "'";
    }
    MyErr << "Besides '" << Vexa::Printable(mNames[0]) << "', " << mNames.size() - 1
          << " object(s) of file '" << Vexa::Printable(filename)
          << "' could not be written:" << names << (listed < mNames.size() ? " ...\n" : "\n");
  }
  if (mIsHopeless) {
    MyErr << "File '" << Vexa::Printable(filename)
          << "' stays as it was before; what was appended to it since is lost.\n";
  }
  // An exception of the standard library does not say itself what was being worked on; its handler
  // asks the context.
  const Vexa::ReportContext context(mNames[0], filename);
  mFirst.Throw();
}

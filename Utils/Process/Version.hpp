// Which version of the library these headers belong to. The build takes its own from here.
#pragma once

#define VEXA_VERSION_MAJOR 0
#define VEXA_VERSION_MINOR 1
#define VEXA_VERSION_PATCH 0

/// The version as a number that grows with it, for the preprocessor: that of 1.2.3 is 10203.
#define VEXA_VERSION_NUMBER \
  (VEXA_VERSION_MAJOR * 10000 + VEXA_VERSION_MINOR * 100 + VEXA_VERSION_PATCH)

/// The version as a literal: "0.1.0".
#define VEXA_VERSION VEXA_VERSION_TEXT_(VEXA_VERSION_MAJOR, VEXA_VERSION_MINOR, VEXA_VERSION_PATCH)
#define VEXA_VERSION_TEXT_(major, minor, patch) VEXA_VERSION_JOINED_(major, minor, patch)
#define VEXA_VERSION_JOINED_(major, minor, patch) #major "." #minor "." #patch

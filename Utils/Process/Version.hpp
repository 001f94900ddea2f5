// Which version of the library these headers belong to. The build takes its own from here.
#pragma once

#define VEXA_VERSION "0.1.0"

#include "Executables/Kelmor/Driver.hpp"
#include "Executables/Kelmor/HelpText.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/ErrorHandling/TerminateHandler.hpp"
#include "Utils/Process/Files.hpp"
#include "Utils/Process/Memory.hpp"

// Before the first failure: the one that memory runs out may be no CodeError, and may come from a
// static initialiser.
[[gnu::constructor(101)]] static void PrepareForExceptions() {
  Vexa::InstallTerminateHandler();
}

int main(int argc, char** argv) {
  Vexa::IgnoreFileSizeSignal();
  Vexa::RaiseOpenFileLimit();
  Vexa::KeepFreedMemory();
  const CommandLineParser parser(argc, argv, HelpText(),
                                 MyVector<std::string>{"v", "NoWipe", "NoGzip"});
  JoinFiles(parser);
  return 0;
}

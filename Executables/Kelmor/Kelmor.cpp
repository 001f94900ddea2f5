#include "Executables/Kelmor/Driver.hpp"
#include "Executables/Kelmor/Options.hpp"
#include "Utils/CommandLine/CommandLineParser.hpp"
#include "Utils/ErrorHandling/Signals.hpp"
#include "Utils/Process/Files.hpp"

int main(int argc, char** argv) {
  IgnoreFileSizeSignal();
  RaiseOpenFileLimit();
  const CommandLineParser parser(argc, argv, HelpText(),
                                 MyVector<std::string>{"v", "NoWipe", "NoGzip"});
  JoinFiles(parser);
  return 0;
}

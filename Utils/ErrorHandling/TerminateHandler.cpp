#include "Utils/ErrorHandling/TerminateHandler.hpp"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <typeinfo>

#include "Utils/ErrorHandling/Backtrace.hpp"
#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/ErrorHandling/Require.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/Process/Memory.hpp"

namespace {

// This calls neither MyErr nor Backtrace, since they allocate.
void ReportBadAlloc() {
  const std::ios_base::Init streams;  // a static initialiser may be what ran out of memory
  Vexa::PrepareForErrors();
  const SigpipeHeldBack guard;
  std::cerr << "\n######## std::bad_alloc caught in TerminateHandler ##########\n"
            << "New ran out of memory.\n"
            << "Peak RSS memory    = " << GetPeakRSS() << " bytes \n"
            << "Current RSS memory = " << GetCurrentRSS() << " bytes " << std::endl;
  Vexa::ReportContext::PrintCurrent(std::cerr);
  PrintSimpleBacktrace(0);
  std::cerr << "#############################################################" << std::endl;
}

void ReportExit(int status, void*) {
  if (status == 0 || MyAbortCalled_UncleanShutdown()) {
    return;
  }
  const std::string context = Vexa::ReportContext::Current();
  MyErr << "\n#########################   ERROR   #########################\n"
        << "A library ended the process by exit(" << status << ").\n"
        << context << (context.empty() ? "" : "\n") << Backtrace(1)
        << "#############################################################\n";
  MyAbort();
}

}  // namespace

bool Vexa::InstallTerminateHandler() {
  std::set_terminate(TerminateHandler);
  return true;
}

void Vexa::ReportUnexpectedExit() {
  on_exit(ReportExit, nullptr);
}

void TerminateHandler() {
  std::set_terminate(DumbTerminateHandler);
  try {
    throw;  // without a current exception this leads to DumbTerminateHandler
  } catch (const CodeError& error) {
    CodeError::ReportDisplaced(&error);
    MyErr << error.Message();
  } catch (const std::bad_alloc&) {
    CodeError::ReportDisplaced(nullptr);
    ReportBadAlloc();
  } catch (const std::bad_cast&) {
    CodeError::ReportDisplaced(nullptr);
    MyErr << "\n########## std::bad_cast caught in TerminateHandler ##########\n"
          << "dynamic_cast<.> to a reference failed.\n"
          << Backtrace(1) << "##############################################################\n";
  } catch (const std::exception& error) {
    CodeError::ReportDisplaced(nullptr);
    MyErr << "\n########################   ERROR   ###########################\n"
          << "TerminateHandler: std::exception (or class derived from it) "
          << "caught\n"
          << error.what() << "\n"
          << Backtrace(1) << "################################################################"
          << std::endl;
  } catch (...) {
    CodeError::ReportDisplaced(nullptr);
    MyErr << "\n#########################   ERROR   #########################\n"
          << "TerminateHandler: Unknown exception was thrown.\n"
          << "All exceptions should be derived from CodeError; STL and other\n"
          << "libraries should throw std::exception.\n"
          << Backtrace(1) << "################################################################"
          << std::endl;
  }
  MyAbort();
}

void DumbTerminateHandler() {
  // What is below allocates. Without memory even for an exception, that leads back to here.
  static std::atomic<bool> sIsEntered = false;
  if (sIsEntered.exchange(true)) {
    MyAbort();
  }
  MyErr << "\n"
        << "#####################    ---  ERROR  ---    ####################\n"
        << "Exception was thrown, but we were unable to recover the type of \n"
        << "the exception with the trick inside TerminateHandler\n"
        << "################################################################\n"
        << Backtrace(1) << std::endl;
  MyAbort();
}

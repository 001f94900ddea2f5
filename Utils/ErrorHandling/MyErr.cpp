#include "Utils/ErrorHandling/MyErr.hpp"

#include <ios>
#include <new>
#include <string>
#include <string_view>

#include "Utils/ErrorHandling/ParallelRuntime.hpp"
#include "Utils/ErrorHandling/ProcID.hpp"
#include "Utils/ErrorHandling/SigpipeHeldBack.hpp"
#include "Utils/Process/Printable.hpp"

namespace {

void (*sBeforeMyErr)() = nullptr;

}  // namespace

void Vexa::SetBeforeMyErr(void (*function)()) {
  sBeforeMyErr = function;
}

void Vexa::PrepareForErrors() {
  if (sBeforeMyErr != nullptr) {
    sBeforeMyErr();
  }
}

MyErrProxy::MyErrProxy() {
  Vexa::PrepareForErrors();
  if (Vexa::ParallelRuntime::Instance().IsInitialized()) {
    const SigpipeHeldBack guard;
    std::cerr << ProcID_();
  }
}

MyErrProxy::Sinks::~Sinks() {
  try {
    mFile.IfFailed([this](const std::string& path, const char* reason) {
      const SigpipeHeldBack guard;
      std::cerr << (mEndsLine ? "" : "\n") << "This is not in '" << Vexa::Printable(path)
                << "': " << reason << '\n';
    });
  } catch (const std::bad_alloc&) {
    // There are worse things to say then.
  }
}

std::streamsize MyErrProxy::Sinks::xsputn(const char* text, std::streamsize length) {
  const std::string_view all(text, static_cast<std::size_t>(length));
  {
    const SigpipeHeldBack guard;
    Vexa::PutPrintable(all, Vexa::Breaks::Kept, [](std::string_view piece) {
      std::cerr.write(piece.data(), static_cast<std::streamsize>(piece.size()));
    });
  }
  Vexa::PutPrintable(all, Vexa::Breaks::Kept,
                     [this](std::string_view piece) { mFile.Append(piece); });
  mEndsLine = all.empty() ? mEndsLine : all.back() == '\n';
  return length;
}

MyErrProxy::Sinks::int_type MyErrProxy::Sinks::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof())) {
    return traits_type::not_eof(character);
  }
  const char byte = traits_type::to_char_type(character);
  return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

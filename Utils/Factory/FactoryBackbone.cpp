#include "Utils/Factory/FactoryBackbone.hpp"

#include <ranges>
#include <vector>

#include "Utils/ErrorHandling/CodeError.hpp"
#include "Utils/ErrorHandling/MyAbort.hpp"
#include "Utils/ErrorHandling/MyErr.hpp"
#include "Utils/Factory/FactoryReporter.hpp"
#include "Utils/Process/Printable.hpp"

namespace Factory {

namespace {

constexpr char sErrorBanner[] =
    "##########################   ERROR   ###########################\n";
constexpr char sErrorEnd[] = "################################################################\n";

bool AsksForHelp(std::string_view id) {
  return id.find("help") != id.npos || id.find("Help") != id.npos || id.find("HELP") != id.npos;
}

}  // namespace

bool FactoryBackbone::Register(const std::string& id, CreateFunction function,
                               const std::string& help, const std::string& title) {
  if (ShouldInhibitFactoryRegistration(function)) {
    return false;
  }
  if (KeyExists(id)) {
    MyErr << sErrorBanner << "Trying to register ID=" << id << " for the second time!\n"
          << sErrorEnd;
    MyAbort();
  }
  mEntries.emplace(id, Entry{function, help});
  mTitle = title;
  return true;
}

void FactoryBackbone::RegisterDeprecated(const std::string& id) {
  mDeprecated.insert(id);
}

CreateFunction FactoryBackbone::Retrieve(std::string_view id, const std::string& heading) const {
  if (const auto found = mEntries.find(id); found != mEntries.end()) {
    if (FactoryReporter::ReportingEnabled()) {
      FactoryReporter::ReportClass(mTitle + " " + found->first);
    }
    return found->second.mFunction;
  }
  if (AsksForHelp(id)) {
    MyErr << "Known ClassIDs & Documentation:\n" << Help() << sErrorEnd;
  } else {
    MyErr << sErrorBanner << heading << "\n"
          << "ClassID '" << Vexa::Printable(id) << "' not found. Known ClassIDs:\n"
          << FormatRegisteredClassIDs(RegisteredClassIDs()) << sErrorEnd;
  }
  throw CodeError("", false);  // everything is said
}

MyVector<std::string> FactoryBackbone::RegisteredClassIDs() const {
  constexpr std::size_t implausible = 10000;
  if (mEntries.size() > implausible) {
    MyErr << "WARNING WARNING WARNING\n"
          << "Requesting FactoryBackboneImpl::RegisteredClassIDs() for\n"
          << "a class with " << mEntries.size() << " registered classes.\n"
          << "An excessively large number of RegisteredClassIDs was \n"
          << "previously found as an indication of erroneous calls to \n"
          << "this function during shutdown, **after** Factory had\n"
          << "been deleted.\n"
          << "Please check reasonability of this large number of\n"
          << "registered classes, and if ok, adjust this message.\n";
  }
  return MyVector<std::string>(MV::Sequence(std::views::keys(mEntries)));
}

MyVector<std::string> FactoryBackbone::DeprecatedClassIDs() const {
  return MyVector<std::string>(MV::Sequence(mDeprecated));
}

std::string FactoryBackbone::Help() const {
  std::string text;
  for (const auto& [id, entry] : mEntries) {
    text += id + "\n" + entry.mHelp + (entry.mHelp.ends_with('\n') ? "" : "\n");
  }
  return text;
}

std::string FormatRegisteredClassIDs(const MyVector<std::string>& ids) {
  if (ids.empty()) {
    return "-- no classes registered --\n"
           "-- LIKELY FIX:  Add the source-code directory that defines the\n"
           "--              classes to Executables/Makefile::FACTORY_LIBS\n";
  }
  std::string text;
  for (const std::string& id : ids) {
    text += id + "\n";
  }
  return text;
}

std::string FormatRegisteredClassIDs(const MyVector<MyVector<std::string>>& lists) {
  std::vector<std::string> all;
  for (const MyVector<std::string>& ids : lists) {
    all.insert(all.end(), ids.begin(), ids.end());
  }
  return FormatRegisteredClassIDs(MyVector<std::string>(all));
}

}  // namespace Factory

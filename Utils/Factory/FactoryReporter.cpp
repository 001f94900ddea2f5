#include "Utils/Factory/FactoryReporter.hpp"

#include <fstream>
#include <set>

namespace {

struct Record {
  std::ofstream mFile;
  std::set<std::string> mReported;
};

Record& TheRecord() {
  // The record is never destroyed: output that is written while the process exits still creates
  // objects. Nothing is lost, since every line is flushed.
  static Record& record = *new Record;
  return record;
}

void Report(const std::string& line) {
  if (FactoryReporter::ReportingEnabled() && TheRecord().mReported.insert(line).second) {
    TheRecord().mFile << line << std::endl;
  }
}

}  // namespace

void FactoryReporter::EnableReporting(const std::string& path) {
  TheRecord() = {std::ofstream(path, std::ios::app), {}};
}

bool FactoryReporter::ReportingEnabled() {
  return TheRecord().mFile.is_open();
}

void FactoryReporter::ReportClass(const std::string& name) {
  Report("class: " + name);
}

void FactoryReporter::ReportLibrary(const std::string& name) {
  Report("library: " + name);
}

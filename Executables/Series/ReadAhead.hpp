#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Utils/Containers/MyVector.hpp"

/// Brings the inputs of a run into the system's page cache ahead of the run. The run goes from
/// dataset to dataset and so jumps about in all files; where every jump is a request to a file
/// server, it mostly waits. Here threads read the files from front to back meanwhile, a mebibyte at
/// a time and several at once, and throw away what they read.
///
/// It reads nothing where that would not help: files that are in memory already, which is told by
/// the time that probes take, as the system tells only the owner; files that together take more
/// than half of the memory that is left; files of systems that keep nothing in memory, so that a
/// second reading takes as long as the first. Nor if the environment variable VEXA_NO_READ_AHEAD is
/// set.
///
/// What cannot be read here is no failure: the run reads it itself and reports it.
class ReadAhead {
 public:
  /// Begins at once with files that need not exist.
  explicit ReadAhead(const MyVector<std::string>& paths);
  /// Waits for nothing: a request that is on its way may end after this object.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  /// Reads no more of a file, counted as it was given, because the run needs little of it.
  void LeaveOut(std::size_t file);

 private:
  class Work;
  std::shared_ptr<Work> mpWork;  // which the threads share; null if there is nothing to do
};

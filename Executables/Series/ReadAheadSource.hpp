// A file as the threads see it that read ahead.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Utils/Process/Files.hpp"

class ReadAheadSource {
 public:
  static constexpr std::size_t sRequestBytes = std::size_t{1} << 20;

  ReadAheadSource() = default;
  /// Opens the file, if it is there and regular.
  explicit ReadAheadSource(const std::string& path);

  /// Returns 0 unless it is a regular file.
  static std::uint64_t BytesOf(const std::string& path);

  /// Has the system read what is asked for, and no more.
  void ReadNoFurther() const;
  /// Returns these bytes, or as many of them as there are.
  std::vector<std::byte> Bytes(std::uint64_t at, std::uint64_t count) const;
  /// Returns how long the bytes take, at most a request, or a negative time if they cannot be had.
  std::chrono::nanoseconds Read(std::uint64_t at, std::size_t bytes) const;
  /// Reads the bytes and returns whether they come faster a second time, as they do where the
  /// system keeps them.
  bool IsKept(std::uint64_t at, std::size_t bytes) const;
  /// Lets go of what is in memory of these bytes.
  void Release(std::uint64_t begin, std::uint64_t end) const;
  /// Whether that many bytes, which is told by the time that probes take, are in memory.
  bool IsInMemory(std::uint64_t bytes) const;

 private:
  Vexa::Descriptor mDescriptor;
};

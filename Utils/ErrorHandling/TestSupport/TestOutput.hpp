// For tests: cached output that tells on standard error when it is written, and the answers of a
// parallel runtime.
#pragma once

#include <unistd.h>

#include <iostream>

#include "Utils/ErrorHandling/CachedOutput.hpp"
#include "Utils/ErrorHandling/ParallelRuntime.hpp"

struct ToldOutput : CachedOutputObject {
  void WriteCache() const override { std::cerr << "written;"; }
};

/// A process of the given rank in a job of two.
struct FakeRuntime : Vexa::ParallelRuntime {
  explicit FakeRuntime(int rank) : mRank(rank) { Install(this); }
  ~FakeRuntime() override { Install(nullptr); }

  bool IsInitialized() const override { return true; }
  int Rank() const override { return mRank; }
  int NumberOfProcesses() const override { return 2; }
  void RequestFlushOfOthers() const override { std::cerr << "others asked;"; }
  void Abort(int code) const override {
    std::cerr << "job aborted with " << code;
    _exit(3);
  }

  int mRank;
};

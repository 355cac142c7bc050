#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "support.h"

namespace mvdirigo::bench {

/// What a process holds of the machine.
struct Holdings {
  /// Of the calling process, now.
  static Holdings now();

  long resident_kib = 0;
  long descriptors = 0;
  long threads = 0;
};

/// What one process of a soak tells the one that started it, in memory that both share.
class Tally {
 public:
  /// To be called once everything was used that takes memory or descriptors for good.
  void warmedUp() { before_ = Holdings::now(); }
  void count(long done = 1) { done_ += done; }
  /// Something went otherwise than it must: prints it and ends the process after too many.
  void deviation(const std::string& what);
  void expect(bool holds, const std::string& what) {
    if (!holds) deviation(what);
  }
  /// To be called before anything is taken down. Whatever is held more than before is a deviation.
  void finished();

  [[nodiscard]] long done() const { return done_; }
  [[nodiscard]] long deviations() const { return deviations_; }
  [[nodiscard]] bool isFinished() const { return finished_; }
  /// A line with what was held before and after.
  void print(int process) const;

 private:
  std::atomic<long> done_ = 0, deviations_ = 0;
  std::atomic<bool> finished_ = false;
  Holdings before_, after_;
};

/// The part of a soak that one process does: `count` of its units, of which `first` were given to
/// processes before it.
struct Share {
  int process;
  long first, count;
  Tally& tally;
};

/// One kind of soak each. What they count stands in soak.cpp.
void soakTransactions(const Share& share);
void soakUnplug(const Share& share);
void soakFlood(const Share& share);
void soakPlayback(const Share& share);
void soakUpdates(const Share& share);

}  // namespace mvdirigo::bench

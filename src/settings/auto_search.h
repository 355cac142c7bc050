#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace mvdirigo {

/// The automatic search for a controller: every port that opens, three baud rates, sixteen unit
/// addresses, one version query each through the console's own send path; the first combination
/// that answers is kept.
class AutoSearch {
 public:
  /// What the search turns and reads: the settings window and, behind it, the console.
  class Bench {
   public:
    virtual ~Bench() = default;
    virtual bool portAvailable(int port) = 0;
    virtual void setCommPortSetting(int port) = 0;
    virtual void selectBaudRate(int row) = 0;
    virtual void setFirstString(const std::string& query) = 0;
    /// Sends console row 0 as its button would.
    virtual void sendFirstString() = 0;
    virtual void closeConsolePort() = 0;
    virtual void clearResponseString() = 0;
    virtual void setSearchCaption(const std::string& caption) = 0;
    /// `progress` or `searching` has changed.
    virtual void searchProgressed() = 0;
    virtual void SaveAppSettings() = 0;
    virtual const WindowLife& life() const = 0;
  };

  AutoSearch(Platform& platform, Bench& bench);
  AutoSearch(const AutoSearch&) = delete;
  AutoSearch& operator=(const AutoSearch&) = delete;

  /// Starts a search, or stops the running one. Returns when the search has ended.
  void AutoSetup_Click();

  /// Lets a running search stop at its next check.
  void requestStop() { searching_ = false; }
  [[nodiscard]] bool searching() const { return searching_; }

  /// The query that a search sent last; all 0 before its first one.
  struct Progress {
    int port = 0;
    int baud_row = 0;
    /// 1 to 16.
    int address = 0;
  };
  [[nodiscard]] const Progress& progress() const { return progress_; }

  /// A reply with that data part was decoded: it ends the wait of a query, which is answered by any
  /// data.
  void takeReply(std::string_view data);

 private:
  enum class Outcome { kFoundOrStopped, kNothingFound, kWindowGone };

  Outcome search();
  /// One port, or one query of it; none when the search goes on.
  std::optional<Outcome> searchPort(int port);
  std::optional<Outcome> query(int address);
  void finish();
  void reportNothingFound();

  Platform& platform_;
  Bench& bench_;
  /// Enabled while a query waits for its reply.
  std::unique_ptr<Timer> ScanTimer_;
  Progress progress_;
  bool answered_ = false;
  bool searching_ = false;
  /// A search is on the call stack, though it may already have been told to stop.
  bool running_ = false;
};

}  // namespace mvdirigo

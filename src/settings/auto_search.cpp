#include "settings/auto_search.h"

#include "core/stored_settings.h"

namespace mvdirigo {
namespace {

constexpr int kReplyWaitMs = 120;
/// "9600", "19200" and "38400": the rates that units leave the factory with.
constexpr int kRatesTried = 3;
constexpr int kHighestAddress = 16;

std::string versionQuery(int address) { return {'/', static_cast<char>('0' + address), '&'}; }

}  // namespace

AutoSearch::AutoSearch(Platform& platform, Bench& bench)
    : platform_(platform),
      bench_(bench),
      ScanTimer_(platform.makeTimer([this] { ScanTimer_->setEnabled(false); })) {}

void AutoSearch::AutoSetup_Click() {
  if (searching_) {
    searching_ = false;
    ScanTimer_->setEnabled(false);
    finish();
    return;
  }
  // A second click on "Stop Auto Set" that comes before the search has left its wait.
  if (running_) return;

  running_ = true;
  Outcome outcome = Outcome::kWindowGone;
  try {
    outcome = search();
  } catch (...) {
    running_ = searching_ = false;
    ScanTimer_->setEnabled(false);
    bench_.setSearchCaption("Auto Set Comm");
    bench_.searchProgressed();
    throw;
  }
  running_ = false;
  if (outcome == Outcome::kFoundOrStopped) finish();
  if (outcome == Outcome::kNothingFound) reportNothingFound();
}

AutoSearch::Outcome AutoSearch::search() {
  searching_ = true;
  progress_ = {};
  bench_.setSearchCaption("Stop Auto Set");
  bench_.clearResponseString();
  for (int port = SerialPort::kLowestPort; port <= SerialPort::kHighestPort; ++port) {
    if (!bench_.portAvailable(port)) continue;
    if (const auto outcome = searchPort(port)) return *outcome;
    bench_.closeConsolePort();
  }
  return Outcome::kNothingFound;
}

std::optional<AutoSearch::Outcome> AutoSearch::searchPort(int port) {
  bench_.setCommPortSetting(port);
  for (int rate = 0; rate < kRatesTried; ++rate) {
    bench_.selectBaudRate(rate);
    for (int address = 1; address <= kHighestAddress; ++address) {
      progress_ = {port, rate, address};
      if (const auto outcome = query(address)) return outcome;
    }
    bench_.closeConsolePort();
  }
  return std::nullopt;
}

std::optional<AutoSearch::Outcome> AutoSearch::query(int address) {
  bench_.clearResponseString();
  answered_ = false;
  ScanTimer_->setInterval(kReplyWaitMs);
  ScanTimer_->setEnabled(true);
  bench_.searchProgressed();
  bench_.setFirstString(versionQuery(address));
  bench_.sendFirstString();
  const auto answered_or_over = [this] { return !ScanTimer_->Enabled(); };
  if (platform_.eventLoop().waitUntil(answered_or_over, bench_.life()) == WaitResult::kWindowGone) {
    ScanTimer_->setEnabled(false);
    return Outcome::kWindowGone;
  }
  if (!searching_) return Outcome::kFoundOrStopped;
  if (!answered_) return std::nullopt;
  bench_.setFirstString(versionQuery(address));
  return Outcome::kFoundOrStopped;
}

void AutoSearch::takeReply(std::string_view data) {
  answered_ = !data.empty();
  ScanTimer_->setEnabled(false);
}

void AutoSearch::finish() {
  bench_.setSearchCaption("Auto Set Comm");
  searching_ = false;
  bench_.searchProgressed();
  writeSetting(platform_.settingsStore(), stored::kFirstTimeStartup, "1");
  bench_.SaveAppSettings();
}

void AutoSearch::reportNothingFound() {
  searching_ = false;
  bench_.searchProgressed();
  bench_.selectBaudRate(0);
  bench_.setFirstString("/1&");
  platform_.dialogs().messageBox(
      "No Devices were found. Please refer to your operators manual for instractions on settings "
      "up the communications.");
  if (bench_.life().leaving()) return;
  writeSetting(platform_.settingsStore(), stored::kFirstTimeStartup, "0");
  bench_.setSearchCaption("Auto Set Comm");
}

}  // namespace mvdirigo

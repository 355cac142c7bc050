#include "update/flash_link.h"

#include <utility>

#include "platform/handler_edge.h"
#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

/// Two bytes at 9600 bit/s, the slowest rate.
constexpr int kDrainPollMs = 2;

/// Runs `action` when the scope is left, however that happens.
template <class Action>
struct AtExit {
  explicit AtExit(Action on_exit) : action(std::move(on_exit)) {}
  ~AtExit() { action(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

  Action action;
};

}  // namespace

FlashLink::FlashLink(Platform& platform, Window& window, const WindowLife& life)
    : event_loop_(platform.eventLoop()),
      dialogs_(platform.dialogs()),
      window_(window),
      life_(life),
      DoLoopTimer_(platform.makeTimer([this] { DoLoopTimer_->setEnabled(false); })),
      tmrMSCommFlash_(platform.makeTimer([this] { tmrMSCommFlash_Timer(); })),
      drain_timer_(platform.makeTimer([] {})),
      MSCommFlash_(platform.makeSerialPort([this] { MSCommFlash_OnComm(); })) {
  drain_timer_->setInterval(kDrainPollMs);
}

void FlashLink::setUp(LiveSettings& settings) {
  reply = {};
  AbortTransfer = false;
  try {
    tmrMSCommFlash_->setInterval(textToInt32(settings.RCVTimeout()));
    tmrMSCommFlash_->setEnabled(false);
    close();
    MSCommFlash_->setRThreshold(1);
    MSCommFlash_->setInputLen(1);
    MSCommFlash_->setCommPort(textToInt16(settings.CommPortSetting()));
    MSCommFlash_->setSettings(settings.BaudRate());
    MSCommFlash_->setInputMode(SerialPort::Mode::kText);
  } catch (const RuntimeError& refusal) {
    refusal_ = refusal;
    throw;
  }
}

void FlashLink::startAnew() {
  lost_ = false;
  // A time-out that an earlier update left behind would end this one.
  tmrMSCommFlash_->setEnabled(false);
}

void FlashLink::close() {
  if (MSCommFlash_->PortOpen()) MSCommFlash_->setPortOpen(false);
}

void FlashLink::reopen(const std::string& settings) {
  close();
  MSCommFlash_->setSettings(settings);
  open();
}

void FlashLink::open() {
  // What was not set up stands for another port, where another unit would get the image.
  if (refusal_) throw RuntimeError(*refusal_);
  // A playback of the console may have opened its port meanwhile.
  window_.closeConsolePort();
  MSCommFlash_->setPortOpen(true);
}

template <class Action>
auto FlashLink::use(Action action) {
  try {
    return action(*MSCommFlash_);
  } catch (const RuntimeError&) {
    lost_ = true;
    // Else the receive time-out of a piece could tick in the next update.
    tmrMSCommFlash_->setEnabled(false);
    close();
    throw;
  }
}

void FlashLink::yield() {
  event_loop_.runPending();
  throwIfOver();
}

void FlashLink::throwIfOver() const {
  if (lost_ || life_.leaving()) throw Over{};
}

void FlashLink::waitUntil(const std::function<bool()>& done) {
  const auto over = [&] { return lost_ || done(); };
  if (event_loop_.waitUntil(over, life_) == WaitResult::kWindowGone) throw Over{};
  throwIfOver();
}

void FlashLink::print(std::string_view bytes) {
  if (window_.verbose()) window_.printTraffic(bytes);
}

void FlashLink::sendFlashtoMV(const std::string& text) {
  if (window_.verbose()) {
    window_.printTraffic(text);
    yield();
  }
  if (!MSCommFlash_->PortOpen()) open();
  reply.clear();
  yield();
  if (sending_piece_) reply.ReplyDone = false;
  use([&](SerialPort& port) { port.Output(text); });
  // What follows a piece is the wait for its acknowledgement, which lets events run as well. A turn
  // of the event loop more would hold up every piece.
  if (!sending_piece_) yield();
}

void FlashLink::sendPiece(const std::string& text) {
  sending_piece_ = true;
  const AtExit sent([this] { sending_piece_ = false; });
  sendFlashtoMV(text);
  WaitOutputDrained();
}

void FlashLink::WaitOutputDrained() {
  const auto drained = [this] { return MSCommFlash_->OutBufferCount() == 0; };
  if (drained()) return;
  // No event tells that the line has taken the last byte, so the wait has to look now and then.
  drain_timer_->setEnabled(true);
  const AtExit stop([this] { drain_timer_->setEnabled(false); });
  waitUntil(drained);
}

std::string FlashLink::getRXBuffer(int count) {
  std::string text;
  atHandlerEdge(dialogs_, "getRXBuffer", [&] {
    waitUntil([&] { return MSCommFlash_->InBufferCount() >= count; });
    text = trimBlanks(read());
  });
  throwIfOver();
  return text;
}

std::string FlashLink::read() {
  return use([](SerialPort& port) { return port.Input(); });
}

void FlashLink::discardInput() { read(); }

bool FlashLink::waitFor(const bool& flag, int timeout_ms) {
  DoLoopTimer_->setEnabled(false);
  DoLoopTimer_->setInterval(timeout_ms);
  DoLoopTimer_->setEnabled(true);
  waitUntil([&] { return flag || !DoLoopTimer_->Enabled(); });
  return DoLoopTimer_->Enabled();
}

void FlashLink::pause(int duration_ms) { waitFor(false, duration_ms); }

bool FlashLink::waitForAcknowledgement(int timeout_ms) {
  if (reply.ReplyDone) return true;
  tmrMSCommFlash_->setEnabled(true);
  if (!waitFor(reply.ReplyDone, timeout_ms)) return false;
  DoLoopTimer_->setEnabled(false);
  tmrMSCommFlash_->setEnabled(false);
  return true;
}

void FlashLink::MSCommFlash_OnComm() {
  atHandlerEdge(dialogs_, "MSComm_OnComm", [this] {
    const std::string character = read();
    if (character == "\r") {
      const bool too_early = sending_piece_ && MSCommFlash_->OutBufferCount() > 0;
      if (!too_early) reply.ReplyDone = true;
      print(reply.UpdateRxBuffer());
    }
    if (character == "?") {
      reply.PromptSeen = true;
      print(reply.UpdateRxBuffer());
    }
    if (!character.empty()) reply.append(character[0]);
  });
}

void FlashLink::tmrMSCommFlash_Timer() {
  try {
    tmrMSCommFlash_->setEnabled(false);
    throwIfOver();
    window_.setSpinner(" ");
    window_.setStatus("Status: Timeout. No Movane detected.");
    yield();
    window_.enableUpdate(true);
    window_.setProgress(0);
    AbortTransfer = true;
    skipOnError([this] { MSCommFlash_->Input(); });
    const bool reopened = skipOnError([this] { MSCommFlash_->reopen(); });
    // On a closed port no acknowledgement comes any more.
    if (!reopened) DoLoopTimer_->setEnabled(false);
  } catch (const Over&) {
  }
}

}  // namespace mvdirigo

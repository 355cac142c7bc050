#include "update/flash_link.h"

#include "platform/at_exit.h"
#include "platform/handler_edge.h"
#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

/// Two bytes at 9600 bit/s, the slowest rate.
constexpr int kDrainPollMs = 2;

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
  reply_ = {};
  AbortTransfer_ = false;
  try {
    tmrMSCommFlash_->setInterval(textToInt32(settings.RCVTimeout()));
    tmrMSCommFlash_->setEnabled(false);
    close();
    MSCommFlash_->setRThreshold(1);
    MSCommFlash_->setInputLen(1);
    MSCommFlash_->setCommPort(textToInt16(settings.CommPortSetting()));
    MSCommFlash_->setSettings(settings.BaudRate());
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

void FlashLink::close() { MSCommFlash_->closeIfOpen(); }

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

void FlashLink::printReceived() {
  const std::string_view bytes = reply_.UpdateRxBuffer();
  if (window_.verbose() && !bytes.empty()) window_.printTraffic(Direction::kReceived, bytes);
}

void FlashLink::prepareSending(const std::string& text) {
  if (window_.verbose()) {
    window_.printTraffic(Direction::kSent, text);
    yield();
  }
  if (!MSCommFlash_->PortOpen()) open();
  reply_.clear();
  yield();
}

void FlashLink::output(const std::string& text) {
  use([&](SerialPort& port) { port.Output(text); });
}

void FlashLink::sendFlashtoMV(const std::string& text) {
  prepareSending(text);
  output(text);
  yield();
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

bool FlashLink::waitFor(const std::function<bool()>& done, int timeout_ms) {
  DoLoopTimer_->setEnabled(false);
  DoLoopTimer_->setInterval(timeout_ms);
  DoLoopTimer_->setEnabled(true);
  waitUntil([&] { return done() || !DoLoopTimer_->Enabled(); });
  return DoLoopTimer_->Enabled();
}

bool FlashLink::waitForReply(int timeout_ms) {
  return waitFor([this] { return reply_.ReplyDone; }, timeout_ms);
}

bool FlashLink::waitForPrompt(int timeout_ms) {
  return waitFor([this] { return reply_.PromptSeen; }, timeout_ms);
}

bool FlashLink::waitForNumber(int timeout_ms) {
  return waitFor([this] { return reply_.NumericSeen; }, timeout_ms);
}

void FlashLink::pause(int duration_ms) {
  waitFor([] { return false; }, duration_ms);
}

FlashLink::Piece::Piece(FlashLink& link) : link_(link) { link_.piece_ = this; }

FlashLink::Piece::~Piece() { link_.piece_ = nullptr; }

// What follows the sending is the wait for the acknowledgement, which lets events run as well. A
// turn of the event loop more would hold up every piece.
void FlashLink::Piece::send(const std::string& bytes) {
  link_.prepareSending(bytes);
  link_.reply_.ReplyDone = false;
  link_.output(bytes);
  link_.WaitOutputDrained();
}

bool FlashLink::Piece::waitForAcknowledgement(int timeout_ms) {
  if (link_.reply_.ReplyDone) return true;
  link_.tmrMSCommFlash_->setEnabled(true);
  if (!link_.waitForReply(timeout_ms)) return false;
  link_.DoLoopTimer_->setEnabled(false);
  link_.tmrMSCommFlash_->setEnabled(false);
  return true;
}

void FlashLink::MSCommFlash_OnComm() {
  atHandlerEdge(dialogs_, "MSComm_OnComm", [this] {
    const std::string character = read();
    if (character == "\r") {
      const bool too_early = piece_ != nullptr && MSCommFlash_->OutBufferCount() > 0;
      if (!too_early) reply_.ReplyDone = true;
      printReceived();
    }
    if (character == "?") {
      reply_.PromptSeen = true;
      printReceived();
    }
    if (!character.empty()) reply_.append(character[0]);
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
    AbortTransfer_ = true;
    skipOnError([this] { MSCommFlash_->Input(); });
    const bool reopened = skipOnError([this] { MSCommFlash_->reopen(); });
    // On a closed port no acknowledgement comes any more.
    if (!reopened) DoLoopTimer_->setEnabled(false);
  } catch (const Over&) {
  }
}

}  // namespace mvdirigo

#include "console/recorder.h"

#include <limits>

#include "console/button_bar.h"
#include "platform/handler_edge.h"

namespace mvdirigo {
namespace {

constexpr int kTickMs = 50;
constexpr std::int16_t kLastTick = std::numeric_limits<std::int16_t>::max();

}  // namespace

Recorder::Recorder(Platform& platform, Bar& bar)
    : platform_(platform),
      bar_(bar),
      RecordPlayTimer_(platform.makeTimer([this] { RecordPlayTimer_Timer(); })) {
  RecordPlayTimer_->setInterval(kTickMs);
  RecordPlayTimer_->setEnabled(true);
}

void Recorder::clickRecord() {
  if (Recording_) {
    stopRecording();
  } else {
    startRecording();
  }
}

void Recorder::clickPlayback() {
  if (Playing_) {
    stopPlayback();
  } else {
    startPlayback();
  }
}

void Recorder::clickPlayEndless() {
  if (Playing_) {
    stopPlayback();
    return;
  }
  PlayEndless_ = true;
  startPlayback();
}

void Recorder::toggleRecording() {
  if (Recording_) {
    Recording_ = false;
  } else {
    startRun(true);
  }
}

void Recorder::recordPress(int row) {
  if (!Recording_) return;
  if (StepIndex_ == RecordTable::kPresses) {
    stopRecording();
    platform_.dialogs().messageBox("The recording is full: it holds " +
                                       std::to_string(RecordTable::kPresses) +
                                       " presses. It has been stopped.",
                                   box::kInformation);
    return;
  }
  table_.setButton(StepIndex_, Cell::ofNumber(static_cast<std::int16_t>(row)));
  table_.setDelay(StepIndex_, Cell::ofNumber(TickCount_));
  TickCount_ = 0;
  ++StepIndex_;
}

void Recorder::RecordPlayTimer_Timer() {
  if (Recording_ && TickCount_ < kLastTick) ++TickCount_;
  if (!Playing_) return;
  atHandlerEdge(platform_.dialogs(), "RecordPlayTimer_Timer", [this] {
    try {
      playStep();
    } catch (const std::exception&) {
      // The report waits for the user, and the playback is over by then.
      stopPlayback();
      throw;
    }
  });
}

void Recorder::playStep() {
  if (TickCount_ == 0) {
    const Cell& button = table_.button(StepIndex_);
    if (!button.text().empty() && !pressAndKeepRunning(button)) return;
    ++StepIndex_;
    TickCount_ = table_.delay(StepIndex_).number();
    // Also where two presses were recorded in one tick: a delay of 0 cuts the sequence there.
    if (TickCount_ == 0) endSequence();
  }
  if (TickCount_ > 0) --TickCount_;
}

/// Returns whether this playback still runs after the press: inside it, the bar can have stopped
/// the playback or started another, whose counters are not to be touched.
bool Recorder::pressAndKeepRunning(const Cell& button) {
  const int row = button.number();
  if (row < 0 || row >= kRows) throw RuntimeError(Fault::kSubscriptOutOfRange);
  const auto run = run_;
  bar_.pressRow(row);
  return !bar_.life().leaving() && Playing_ && run_ == run;
}

void Recorder::endSequence() {
  if (PlayEndless_) {
    StepIndex_ = 0;
  } else {
    endPlayback();
  }
}

void Recorder::startRun(bool recording) {
  ++run_;
  Recording_ = recording;
  Playing_ = !recording;
  TickCount_ = 0;
  StepIndex_ = 0;
  RecordPlayTimer_->setEnabled(true);
}

void Recorder::startRecording() {
  table_.clear();
  startRun(true);
  bar_.setBarCaption(bar::kRecord, "Stop Recording");
  enableOthers(bar::kRecord, false);
}

void Recorder::stopRecording() {
  Recording_ = false;
  table_.setButton(StepIndex_, Cell::ofText(""));
  table_.setDelay(StepIndex_, Cell::ofNumber(TickCount_));
  TickCount_ = 0;
  ++StepIndex_;
  bar_.setBarCaption(bar::kRecord, "Record");
  enableOthers(bar::kRecord, true);
}

void Recorder::startPlayback() {
  startRun(false);
  bar_.setBarCaption(bar::kPlayback, "Stop Playback");
  enableOthers(bar::kPlayback, false);
}

void Recorder::stopPlayback() {
  endPlayback();
  PlayEndless_ = false;
}

void Recorder::endPlayback() {
  Playing_ = false;
  bar_.setBarCaption(bar::kPlayback, "Play");
  enableOthers(bar::kPlayback, true);
}

/// "Load Default" and "Help" stay usable while a recording or playback runs.
void Recorder::enableOthers(int running_button, bool enabled) {
  for (int button = bar::kPlayEndless; button <= bar::kLoadStrings; ++button) {
    if (button != running_button) bar_.enableBarButton(button, enabled);
  }
}

}  // namespace mvdirigo

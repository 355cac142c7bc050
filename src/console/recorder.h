#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "console/record_table.h"
#include "platform/event_loop.h"
#include "platform/platform.h"

namespace mvdirigo {

/// Records the order and timing of the row buttons' presses and plays them back, once or endlessly.
/// Time is counted in ticks of one 50 ms timer, which runs for good.
class Recorder {
 public:
  /// Command rows, of which a button cell names one: 0 to `kRows` - 1.
  static constexpr int kRows = 51;

  /// What the recorder needs of the console's window. Button indexes are those of `LoadButton`.
  class Bar {
   public:
    virtual ~Bar() = default;
    virtual void setBarCaption(int button, const std::string& caption) = 0;
    virtual void enableBarButton(int button, bool enabled) = 0;
    /// Runs the click handler of a row's send button. Inside it events may be handled, a message
    /// box may wait for the user, and the bar may be clicked.
    virtual void pressRow(int row) = 0;
    /// A recording or playback began, ended, or got on by a press.
    virtual void activityChanged() = 0;
    [[nodiscard]] virtual const WindowLife& life() const = 0;
  };

  Recorder(Platform& platform, Bar& bar);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// The bar's record button: starts recording, or stops it and writes the end entry.
  void clickRecord();
  /// The bar's playback button: starts playing once, or stops playing.
  void clickPlayback();
  /// The bar's endless button: starts playing endlessly, or stops playing.
  void clickPlayEndless();
  /// Starts or stops recording without clearing the table, writing an end entry, or touching the
  /// bar.
  void toggleRecording();

  /// Takes a press into a running recording. A press that finds the table full ends the recording
  /// as the record button would, and says so.
  void recordPress(int row);

  [[nodiscard]] bool Recording() const { return Recording_; }
  [[nodiscard]] bool Playing() const { return Playing_; }
  [[nodiscard]] bool PlayEndless() const { return PlayEndless_; }
  /// While recording: ticks since the last press, at most 32,767. While playing: ticks left before
  /// the next step.
  [[nodiscard]] std::int16_t TickCount() const { return TickCount_; }
  /// The row of the table to fill or to play next.
  [[nodiscard]] int StepIndex() const { return StepIndex_; }

  /// Presses recorded so far, or played in this round.
  [[nodiscard]] int presses() const { return presses_; }
  /// Presses of a whole round of the playback.
  [[nodiscard]] int pressesOfAll() const { return presses_of_all_; }

  [[nodiscard]] RecordTable& table() { return table_; }

 private:
  void RecordPlayTimer_Timer();
  void playStep();
  bool pressAndKeepRunning(const Cell& button);
  void endSequence();

  void startRun(bool recording);
  void startRecording();
  void stopRecording();
  void startPlayback();
  void stopPlayback();
  void endPlayback();
  void enableOthers(int running_button, bool enabled);

  Platform& platform_;
  Bar& bar_;
  RecordTable table_;
  bool Recording_ = false;
  bool Playing_ = false;
  bool PlayEndless_ = false;
  std::int16_t TickCount_ = 0;
  int StepIndex_ = 0;
  int presses_ = 0;
  int presses_of_all_ = 0;

  /// Counts the starts: a step whose press handled events learns whether its own run goes on.
  std::uint64_t run_ = 0;
  std::unique_ptr<Timer> RecordPlayTimer_;
};

}  // namespace mvdirigo

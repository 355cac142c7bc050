#include "console/recorder.h"
#include "property.h"
#include "simulator/virtual/virtual_platform.h"
#include "support/fault_number.h"

using namespace mvdirigo;

static constexpr int kTicks = 200;

/// The console's bar, which notes the tick and the row of every press.
struct Bar : Recorder::Bar {
  void setBarCaption(int, const std::string&) override {}
  void enableBarButton(int, bool) override {}
  void pressRow(int row) override { log += std::to_string(tick) + ':' + std::to_string(row) + ' '; }
  void activityChanged() override {}
  const WindowLife& life() const override { return window; }
  WindowLife window;
  int tick = 0;
  std::string log;
};

/// Plays the table by the rules: on to its end, a fault, or the last tick that is looked at.
static void playByTheRules(const RecordTable& table, bool endless, Bar& bar) {
  for (int step = 0; bar.tick < kTicks;) {
    if (const Cell& button = table.button(step); !button.text().empty()) {
      if (button.number() < 0 || button.number() > 50)
        throw RuntimeError(Fault::kSubscriptOutOfRange);
      bar.pressRow(button.number());
    }
    const int delay = table.delay(++step).number();
    if (delay == 0 && !endless) return;
    if (delay == 0) step = 0;
    bar.tick = delay < 0 ? kTicks : bar.tick + std::max(delay, 1);
  }
}

/// Cells of any text, in lines of row and delay, are played by the rules, and a fault is told once.
void mvdirigo::check(std::string_view input) {
  static VirtualPlatform machine;
  Bar bar, rules;
  Recorder recorder(machine, bar);
  const bool endless = takeUntil('\n', input) == "endless";
  for (int row = 0; !input.empty() && row <= RecordTable::kPresses; ++row) {
    std::string_view line = takeUntil('\n', input);
    recorder.table().setButton(row, Cell::ofText(std::string(takeUntil(',', line))));
    recorder.table().setDelay(row, Cell::ofText(std::string(line)));
  }
  const int fault = faultNumber([&] { playByTheRules(recorder.table(), endless, rules); });
  endless ? recorder.clickPlayEndless() : recorder.clickPlayback();
  for (; bar.tick < kTicks; ++bar.tick) {
    machine.runFor(50);
    require(recorder.Playing() == (bar.tick < rules.tick), "it ends when the table does");
  }
  require(bar.log == rules.log, "the table is played by the rules");
  require(recorder.PlayEndless() == (endless && recorder.Playing()), "endless ends with it");
  if (recorder.Playing()) recorder.clickPlayEndless();
  require(!recorder.Playing() && !recorder.PlayEndless(), "a click stops it");
  const auto reports = machine.takeProblems();
  const std::string report = "RecordPlayTimer_Timer() Error #: " + std::to_string(fault) + ' ';
  require(reports.size() == (fault == 0 ? 0 : 1), "a fault is reported once");
  require(fault == 0 || reports[0].find(report) < reports[0].size(), "it is the right one");
}

// The device is unplugged and comes back, in every state of the program in turn: each time there is
// the one report that there must be, the program rests, and the next command is answered.
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <QSocketNotifier>
#include <QTimer>

#include "console/button_bar.h"
#include "platform/descriptor.h"
#include "soak.h"
#include "soak_seat.h"

namespace mvdirigo::bench {
namespace {

/// Longer than a busy machine lets a process wait.
constexpr int kReplyTimeOutMs = 3000;
/// Until what an unplugging brings about has come about.
constexpr int kSettleMs = 150;
constexpr int kRestMs = 300;
constexpr int kLooks = 5;
using Nanoseconds = std::chrono::duration<double, std::nano>;
/// More than the timers of a window at rest need, and those of a playback.
constexpr double kRestPercent = 5;
constexpr const char* kLineFailed = "Communications Error, no Movane found";
constexpr const char* kNoReply = "No Movane detected. Check connections";
constexpr const char* kInImage = "/in the middle of the image/";

/// A serial device that can be unplugged, with one unit. It is served between the program's own
/// events, so that what happens at which byte is certain.
class Device {
 public:
  explicit Device(const Desk& desk) : desk_(desk) {}

  /// Brings the device, with a unit that was just switched on.
  void plug(const UnitOptions& unit = {}) {
    unplug();
    master_.emplace(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 64> path{};
    require(
        grantpt(fd()) == 0 && unlockpt(fd()) == 0 && ptsname_r(fd(), path.data(), path.size()) == 0,
        "no pseudo-terminal");
    // A master without any slave hears only errors.
    slave_.emplace(open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    require(slave_->isOpen(), path.data());
    setRaw(slave_->number());
    far_unit_.emplace(unit);
    unit_ = unit;
    heard_.clear();
    at_ = {};
    readable_.emplace(fd(), QSocketNotifier::Read);
    QObject::connect(&*readable_, &QSocketNotifier::activated, [this] { hear(); });
    desk_.plug(path.data());
  }
  void unplug() {
    readable_.reset();
    desk_.unplug();
    if (!plugged()) return;
    // Another process of this soak is not to get a device of the same name before the program has
    // let go of this one's lock.
    gone_slave_.emplace(std::move(*slave_));
    slave_.reset();
    master_.reset();
  }
  bool plugged() const { return master_.has_value(); }

  /// Once the unit has heard `command`, it answers no more; `then` is called so much later.
  void at(std::string command, int delay_ms, std::function<void()> then) {
    heard_.clear();
    at_ = {std::move(command), delay_ms, std::move(then)};
  }
  void unplugAt(std::string command, int delay_ms = 0) {
    at(std::move(command), delay_ms, [this] { unplug(); });
  }
  void send(std::string_view bytes) const { static_cast<void>(writeAll(fd(), bytes)); }
  std::string command(const char* body) const { return std::string{'/', unit_.address} + body; }
  std::string answer() const { return unit_.version + " No Error"; }

 private:
  struct At {
    std::string command;
    int delay_ms = 0;
    std::function<void()> then;
  };

  int fd() const { return master_->number(); }
  void hear() {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(fd(), bytes.data(), bytes.size());
    if (count <= 0) return;
    const std::string_view heard(bytes.data(), static_cast<std::size_t>(count));
    heard_ += heard;
    if (at_.command.empty() || heard_.find(at_.command) == std::string::npos) {
      return send(far_unit_->answer(fd(), heard));
    }
    if (!at_.then) return;
    const auto then = std::exchange(at_.then, {});
    // A notifier is not to be destroyed inside its own signal.
    QTimer::singleShot(at_.delay_ms, Qt::PreciseTimer, &timers_, then);
  }

  const Desk& desk_;
  std::optional<Descriptor> master_, slave_, gone_slave_;
  std::optional<QSocketNotifier> readable_;
  std::optional<FarUnit> far_unit_;
  UnitOptions unit_;
  std::string heard_;
  At at_;
  QObject timers_;
};

/// What was reported since the device was unplugged. Of replies that are missing in one row after
/// the other, the first counts.
struct Reports {
  int line_failures = 0, missing_replies = 0, faults = 0, other_boxes = 0;
  bool operator==(const Reports&) const = default;
  std::string text() const {
    return std::to_string(line_failures) + " failures of the line, " +
           std::to_string(missing_replies) + " missing replies, " + std::to_string(faults) +
           " error reports, " + std::to_string(other_boxes) + " other boxes";
  }
};

/// What this thread got of the cores, in ns, and how long it waited for one that others used: on a
/// busy machine, a program that never rests gets little time, too.
struct CoreTime {
  static CoreTime now() {
    CoreTime time;
    std::ifstream("/proc/thread-self/schedstat") >> time.used >> time.waited;
    return time;
  }

  double used = 0, waited = 0;
};

/// The program with its device.
class Bench : private QObject {
 public:
  explicit Bench(Tally& tally)
      : seat({{stored::kRCVTimeout, std::to_string(kReplyTimeOutMs)}}),
        device(seat.desk),
        tally_(tally) {
    for (const Seat::Row& row : seat.rows()) {
      row.reply.installEventFilter(this);
      QObject::connect(&row.reply, &QLineEdit::textChanged, [this](const QString& text) {
        replies_.missing_replies += text == kNoReply;
        story_ += "\n    " + std::to_string(seat.platform.eventLoop().nowMs() - entered_at_ms_) +
                  " ms: " + text.toStdString();
      });
    }
    std::string image = makeImage(0);
    image.replace(image.size() / 2, std::string_view(kInImage).size(), kInImage);
    std::ofstream(file_, std::ios::binary) << image;
  }

  void click(int button) { seat.clickBar(button); }
  void press(int row, const char* body) {
    seat.row(row).command.setText(QString::fromStdString(device.command(body)));
    seat.row(row).send.click();
  }
  void expect(bool holds, const std::string& what) { tally_.expect(holds, state_ + ": " + what); }
  /// Sends a command that must be answered.
  void exchange() {
    const QLineEdit& reply = seat.row(1).reply;
    const std::string text = seat.exchange(1, device.command("&"));
    expect(text == device.answer(), "a command brought \"" + reply.toolTip().toStdString() + '"');
  }
  /// Runs an update in a new dialog until it ends.
  void update() { seat.update(file_); }
  void unplugAtBox(const char* text) {
    seat.platform.on_box = [this, text](const std::string& shown) {
      if (shown.starts_with(text) && device.plugged()) device.unplug();
    };
  }
  void search() { Seat::click(seat.program.settings(), "AutoSetup"); }

  void enter(const char* state) {
    state_ = state;
    for (const Seat::Row& row : seat.rows()) row.reply.clear();
    replies_ = {};
    story_.clear();
    entered_at_ms_ = seat.platform.eventLoop().nowMs();
    seat.platform.boxes.clear();
  }
  /// A time-out counts from the first query that it did not meet, so it may meet the last one of a
  /// search, or outlast it.
  void forgetMissingReplies() { replies_.missing_replies = 0; }
  void expectReports(const Reports& expected) {
    expect(reports() == expected, reports().text() + ", in the rows:" + story_);
  }
  Reports reports() const {
    Reports all = replies_;
    for (const std::string& text : seat.platform.boxes) {
      ++(text.find("Error #: ") != std::string::npos ? all.faults : all.other_boxes);
    }
    return all;
  }
  /// What of a core this process used, in percent, once it is at rest; what waits to be painted
  /// may still keep it busy at the first look.
  double restPercent() {
    double percent = 100;
    for (int look = 0; look < kLooks && percent >= kRestPercent; ++look) {
      const CoreTime before = CoreTime::now();
      const auto start = Clock::now();
      seat.run(kRestMs);
      const CoreTime after = CoreTime::now();
      const double could_run =
          Nanoseconds(Clock::now() - start).count() - after.waited + before.waited;
      percent = 100 * (after.used - before.used) / could_run;
    }
    return percent;
  }

  Seat seat;
  Device device;

 private:
  /// A report that repeats itself changes no text, but tells its story anew.
  bool eventFilter(QObject* field, QEvent* event) override {
    if (event->type() == QEvent::ToolTipChange) {
      replies_.line_failures += static_cast<QLineEdit*>(field)->text() == kLineFailed;
    }
    return false;
  }

  const std::string file_ = seat.desk.file("image.zrf");
  Tally& tally_;
  /// That the device is unplugged in.
  std::string state_;
  Reports replies_;
  /// What the rows showed, and when.
  std::string story_;
  std::int64_t entered_at_ms_ = 0;
};

/// A state of the program in which the device is unplugged.
struct State {
  const char* name;
  /// Brings the program there and unplugs the device. The reports of a call that lasts until the
  /// state is over are in by then.
  std::function<void(Bench&)> reach;
  Reports reports;
  /// Ends what still runs; the device is still gone.
  std::function<void(Bench&)> leave = [](Bench&) {};
};

void unplugOpen(Bench& bench) {
  bench.exchange();
  bench.device.unplug();
}

/// Unplugs the device while a reply is waited for that does not come.
void unplugWaiting(Bench& bench) {
  bench.device.at("&", 0, [] {});
  bench.press(0, "&");
  bench.seat.run(30);
  bench.device.unplug();
  bench.seat.run(kReplyTimeOutMs);
}

void hideSettings(Bench& bench) { Seat::click(bench.seat.program.settings(), "cmdOK"); }

State openWith(const char* name, int button, std::function<void(Bench&)> leave) {
  return {name,
          [button](Bench& bench) {
            bench.click(button);
            unplugOpen(bench);
          },
          {.line_failures = 1},
          std::move(leave)};
}

/// An update whose device is unplugged so much later than it has heard `command`.
State inUpdate(const char* name, const std::string& command, int delay_ms = 0) {
  return {name,
          [command, delay_ms](Bench& bench) {
            bench.device.unplugAt(command, delay_ms);
            bench.update();
          },
          // The other one is the confirmation.
          {.faults = 1, .other_boxes = 1},
          [](Bench& bench) { bench.seat.leaveUpdate(); }};
}

State atUpdateBox(const char* name, const char* text, const char* version, int boxes) {
  return {name,
          [=](Bench& bench) {
            bench.device.plug({.version = version});
            bench.unplugAtBox(text);
            bench.update();
          },
          {.faults = 1, .other_boxes = boxes},
          [](Bench& bench) { bench.seat.leaveUpdate(); }};
}

/// Records two presses a quarter of a second apart, plays them endlessly, and unplugs the device
/// between two presses.
void playUntilUnplugged(Bench& bench) {
  bench.click(bar::kRecord);
  for (int press = 0; press < 2; ++press) {
    bench.press(0, "&");
    bench.seat.run(250);
  }
  bench.click(bar::kRecord);
  bench.click(bar::kPlayEndless);
  bench.seat.run(400);
  bench.device.unplug();
}

void stopPlayback(Bench& bench) {
  bench.click(bar::kPlayback);
  // A press whose time-out still runs.
  bench.seat.run(kReplyTimeOutMs + 100);
}

std::vector<State> consoleStates() {
  return {
      {"nothing was sent", [](Bench& bench) { bench.device.unplug(); }, {}},
      {"idle", unplugOpen, {.line_failures = 1}},
      {"waiting for a reply", unplugWaiting, {.line_failures = 1, .missing_replies = 1}},
      {"in the middle of a reply",
       [](Bench& bench) {
         bench.device.at("&", 0, [&bench] {
           bench.device.send("\xFF/0`Mov");
           bench.device.unplug();
         });
         bench.press(0, "&");
         bench.seat.run(kReplyTimeOutMs + 100);
       },
       {.line_failures = 1, .missing_replies = 1}},
      {"sending while it is gone",
       [](Bench& bench) {
         unplugOpen(bench);
         bench.seat.run(kSettleMs);
         bench.press(0, "&");
         bench.seat.run(kReplyTimeOutMs + 100);
       },
       {.line_failures = 1, .missing_replies = 1}},
      openWith("recording", bar::kRecord, [](Bench& bench) { bench.click(bar::kRecord); }),
      openWith("the settings stand open", bar::kSettings, hideSettings),
      openWith("the help stands open", bar::kHelp, [](Bench&) {}),
      {"the line traffic stands open",
       [](Bench& bench) {
         bench.seat.program.showLineTraffic();
         unplugOpen(bench);
       },
       {.line_failures = 1},
       [](Bench& bench) { bench.seat.program.lineTraffic()->close(); }},
      {"a box stands open",
       [](Bench& bench) {
         bench.exchange();
         bench.unplugAtBox("Please Enter Command Strings");
         bench.seat.exchange(0, "no slash");
       },
       {.line_failures = 1, .other_boxes = 1}},
  };
}

std::vector<State> runningStates() {
  return {
      {"playing",
       [](Bench& bench) {
         playUntilUnplugged(bench);
         bench.seat.run(2 * kReplyTimeOutMs);
       },
       {.line_failures = 1, .missing_replies = 1},
       stopPlayback},
      {"playing, and it comes back",
       [](Bench& bench) {
         playUntilUnplugged(bench);
         bench.seat.run(2 * kReplyTimeOutMs);
         bench.device.plug();
         bench.seat.run(2 * kReplyTimeOutMs);
         stopPlayback(bench);
         bench.device.unplug();
       },
       {.line_failures = 1, .missing_replies = 1}},
      {"searching, and it stays away",
       [](Bench& bench) {
         bench.device.plug({.address = '9'});
         bench.device.unplugAt("/3&");
         bench.search();
         bench.seat.run(kReplyTimeOutMs + 100);
         bench.forgetMissingReplies();
       },
       {.line_failures = 1, .other_boxes = 1},
       hideSettings},
      {"searching, and it comes back",
       [](Bench& bench) {
         bench.device.plug({.address = '9'});
         bench.device.at("/3&", 0, [&bench] {
           bench.device.unplug();
           QTimer::singleShot(300, [&bench] { bench.device.plug({.address = '9'}); });
         });
         bench.search();
         bench.device.unplug();
       },
       {.line_failures = 2},
       hideSettings},
  };
}

std::vector<State> updateStates() {
  return {
      {"the update stands open",
       [](Bench& bench) {
         Seat::click(bench.seat.program.settings(), "cmdUpdate");
         bench.device.unplug();
       },
       {},
       [](Bench& bench) { bench.seat.leaveUpdate(); }},
      atUpdateBox("an update is to be confirmed", "Are you sure", "Movane Stepper v7.02", 1),
      inUpdate("an update wakes the unit", "\xAA"),
      inUpdate("an update stops the unit", "/1T\r"),
      inUpdate("an update waits for the stop", "/1T\r", 200),
      inUpdate("an update changes the rate", "/1b57600R\r"),
      inUpdate("an update lets the unit settle", "/1b57600R\r", 2000),
      inUpdate("an update asks for the version", "/1&\r"),
      inUpdate("an update asks for the processor", "/1!\r"),
      atUpdateBox("an update was told no version", "Unable to get a valid version", "Movane", 2),
      inUpdate("an update enters the update mode", "/1[40617\r"),
      inUpdate("an update waits for the prompt", "/1[40617\r", 500),
      inUpdate("an update sends a piece", kInImage),
      inUpdate("an update waits for an acknowledgement", kInImage, 200),
  };
}

std::vector<State> allStates() {
  std::vector<State> all = consoleStates();
  for (const auto& more : {runningStates(), updateStates()}) {
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

void cycle(Bench& bench, const State& state) {
  const auto expectRest = [&](const char* when) {
    const double percent = bench.restPercent();
    bench.expect(percent < kRestPercent, std::to_string(percent) + " % of a core in use " + when);
  };
  bench.device.plug();
  bench.enter(state.name);
  state.reach(bench);
  bench.seat.run(kSettleMs);
  bench.expectReports(state.reports);
  expectRest("while it was gone");
  state.leave(bench);
  bench.seat.platform.on_box = nullptr;
  bench.device.plug();
  bench.exchange();
  bench.seat.run(kSettleMs);
  bench.expectReports(state.reports);
  expectRest("when it was back");
  // The next cycle begins as this one has.
  bench.seat.program.console().closePort();
  bench.device.unplug();
}

}  // namespace

void soakUnplug(const Share& share) {
  Bench bench(share.tally);
  // What opens every window once and takes little time.
  for (const State& state : consoleStates()) cycle(bench, state);
  cycle(bench, inUpdate("an update wakes the unit", "\xAA"));
  share.tally.warmedUp();
  const std::vector<State> states = allStates();
  for (long i = 0; i < share.count; ++i) {
    cycle(bench, states.at(static_cast<std::size_t>(share.first + i) % states.size()));
    share.tally.count();
  }
  share.tally.finished();
}

}  // namespace mvdirigo::bench

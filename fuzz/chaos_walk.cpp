#include "chaos_walk.h"

#include <malloc.h>
#include <unistd.h>

#include <QTest>
#include <QtWidgets>

#include "app/program.h"
#include "console/button_bar.h"
#include "core/stored_settings.h"
#include "platform/text.h"
#include "simulator/model/simulated_bus.h"
#include "simulator/virtual/virtual_platform.h"
#include "support/files.h"

namespace mvdirigo {
namespace {

constexpr int kPorts[] = {1, 1, 2, 3};
constexpr std::int64_t kForEverMs = 1'000'000'000;
/// An answer that agrees to nothing.
constexpr std::uint32_t kDismissal = 3;
constexpr std::size_t kMostWidgets = 500, kMostReply = 4200;
constexpr std::size_t kMostBytesAtStart = 4 << 20, kMostBytes = 64 << 20;

QStringList list(const char* joined) { return QString::fromUtf8(joined).split('|'); }
const QStringList kTexts = list(
    "/1&|/1?0|/1A1000R|/2&|/1RND,rnd|/||no slash| "
    "/1|1|1|1|2|3|16|17|0|-5|25|26|x|1e99|9999999|1000|"
    "50|300|1.5|/1<b>&amp;|/1\xC2\xB5\xE2\x82\xAC\n");
const QStringList kKeys = list(
    "F1|F12|Esc|Return|Up|Down|Tab|Backtab|F6|Space|Del|7|PgDown|Alt+0|Alt+1|Alt+H|Alt+L|Ctrl+S|"
    "Ctrl+O|Ctrl+,|Ctrl+C|Ctrl+V|Ctrl+A");
const QStringList kFaults = list(
    "late=0|late=1|late=130|late=1100|silent|silent@3|drop|double|corrupt|garbage-before|endless|"
    "lost-etx=50|bad-checksum=50|endless=500|refuse-piece@2|vanish-at=40|vanish-at@3");
const QStringList kVersions = list("Movane Stepper v7.02|v7.01|none|v123.4");
constexpr int kRates[] = {9600, 9600, 19200, 57600};
constexpr std::optional<Fault> kRefusals[] = {{}, {}, Fault::kPortAlreadyOpen, Fault::kDeviceIo};
const std::string kHeard[] = {"\xFF/0`2000\3\r",     "\2\60`2000\3S",   "\2\60`2000\3T", "?\r",
                              "Error 3\r",           "\x1B[31m<b>\2\3", "\xFF/0b\r\n",   "\r",
                              std::string(3000, '0')};
/// Files and what they hold at first. The update's dialog goes through them from the front, the
/// others from the back.
const std::pair<std::string, QByteArray> kFiles[] = {
    {"full", "103A7" + QByteArray(61, 'x')},
    {"partial", "003a7" + QByteArray(30, 'y')},
    {"plain", "7777zz"},
    {"large", "5"},
    {".", "a folder"},
    {"no number", QByteArray("x\r\n").repeated(1025)},
    {"no row", QByteArray("99\r\n").repeated(1025)},
    {"strings", QByteArray("/1?0\r\n").repeated(25) + QByteArray("2\r\n").repeated(20) +
                    QByteArray("0\r\n").repeated(980)}};
/// The procedures whose faults are reported, with the faults that they may meet.
const QStringList kReports = list(
    "RecordPlayTimer_Timer 6 9 13|cmdLoadImage_Click 32755|MSComm_OnComm 57|getRXBuffer 57|"
    "validUpdateFile 13 53 57 75 8002 8005|cmdUpdate_Click 6 7 13 53 57 75 380 8002 8005");

/// One of `table`; `which` tells those of one choice apart.
const auto& pick(const auto& table, std::uint32_t choice, std::uint32_t which = 0) {
  std::uint32_t number = choice + which * 0x9E3779B9;
  number = (number ^ number >> 16) * 0x85EBCA6B;
  number = (number ^ number >> 13) * 0xC2B2AE35;
  return *std::next(std::begin(table), number % static_cast<std::uint32_t>(std::size(table)));
}

int portOf(std::uint32_t choice) { return pick(kPorts, choice, 9); }

/// Those that no other window or menu keeps a person from using.
QList<QWidget*> usableWindows() {
  if (QWidget* popup = QApplication::activePopupWidget()) return {popup};
  const QWidget* modal = QApplication::activeModalWidget();
  QList<QWidget*> windows = QApplication::topLevelWidgets();
  windows.removeIf([modal](const QWidget* window) {
    if (!window->isVisible() || window->windowType() == Qt::ToolTip) return true;
    return modal != nullptr && window != modal &&
           window->windowHandle()->transientParent() != modal->windowHandle();
  });
  std::ranges::sort(windows, {}, &QWidget::objectName);
  return windows;
}

/// By kind, so that many rows count no more than one button.
std::map<QString, QList<QWidget*>> usableControls(const QList<QWidget*>& windows) {
  std::map<QString, QList<QWidget*>> kinds;
  for (QWidget* window : windows) {
    QList<QWidget*> controls = window->findChildren<QWidget*>();
    if (window->inherits("QMenu")) controls << window;
    for (QWidget* control : controls) {
      const bool reacts = control->focusPolicy() != Qt::NoFocus ||
                          control->inherits("QScrollBar") || control->inherits("QMenu");
      if (!reacts || !control->isVisible() || !control->isEnabled()) continue;
      kinds[window->objectName() + ' ' + control->objectName().section('(', 0, 0)] << control;
    }
  }
  return kinds;
}

class Walk : private Dialogs {
 public:
  Walk(const Steps& steps, const std::string& folder, Report& report, bool tell)
      : steps_(steps), folder_(folder), report_(report), tell_(tell) {
    platform_.onRunPending = [] { QApplication::processEvents(); };
    platform_.answerWith(*this);
    QApplication::clipboard()->clear();
    for (const auto& [name, bytes] : kFiles) writeFile(folder_ + name, bytes.toStdString());
    std::filesystem::resize_file(folder_ + "large", 17 << 20);
    for (std::uint32_t healthy = 0; lines_.size() < 3; healthy += 2) plug(healthy);
  }

  void run() {
    platform_.queue().post(platform_.now(), {"a step"}, [this] { nextStep(); });
    try {
      program_.start();
      auto* ok = program_.settings().findChild<QPushButton*>("cmdOK");
      QObject::connect(ok, &QPushButton::clicked, [this] { laid_out_ = true; });
      platform_.runUntil([this] { return ended_; }, kForEverMs);
    } catch (const std::exception& error) {
      require(false, std::string("no exception leaves a handler: ") + error.what());
    }
    checkEnd();
  }

 private:
  void nextStep() {
    if (ended_) return;
    check();
    const bool last = next_ == steps_.size();
    const Step step = last ? Step{"end", 0} : steps_[next_++];
    const std::chrono::milliseconds pass(last ? 1000 : std::atoi(step.act.c_str()));
    // Some steps come as soon as a handler lets pending events run, the others where one waits.
    const SimTime pause = pass.count() > 0 ? pass : SimTime(step.choice % 4 != 0);
    platform_.queue().post(platform_.now() + pause, {"a step"}, [this] { nextStep(); });
    ++report_.steps;
    ++depth_;
    if (const auto act = kActs.find(step.act); act != kActs.end()) {
      (this->*act->second)(step.choice);
    } else if (pass.count() > 0) {
      say(QString("%1 ms pass").arg(pass.count()));
    } else if (open_dialogs_ > 0) {
      answer_ = step.choice;
    } else if (const auto windows = usableWindows(); !windows.empty()) {
      byHand(step, windows);
    }
    --depth_;
  }

  void byHand(const Step& step, const QList<QWidget*>& windows) {
    QWidget* window = pick(windows, step.choice);
    if (step.act == "key") {
      const QString& key = pick(kKeys, step.choice, 1);
      say("press " + key + " in " + window->objectName());
      window->activateWindow();
      QApplication::processEvents();
      QTest::keySequence(window->focusWidget() ? window->focusWidget() : window, key);
    } else if (step.act == "close" && window != &console_) {
      say("close " + window->objectName());
      window->close();
    } else if (step.act == "use") {
      const auto kinds = usableControls(windows);
      use(pick(pick(kinds, step.choice, 1).second, step.choice, 2), step.choice);
    } else {
      for (QWidget* each : windows) {
        auto* control = each->findChild<QWidget*>(step.act.c_str());
        if (control != nullptr && control->isVisible()) return use(control, 0);
      }
    }
  }

  void use(QWidget* control, std::uint32_t choice) {
    const QString where = control->objectName() + " of " + control->window()->objectName();
    auto* field = qobject_cast<QLineEdit*>(control);
    if (auto* button = qobject_cast<QAbstractButton*>(control)) {
      say("press \"" + button->text() + "\", " + where);
      button->click();
    } else if (field != nullptr && !field->isReadOnly() && choice % 4 != 0) {
      say("type \"" + pick(kTexts, choice) + "\" into " + where);
      field->selectAll();
      field->insert(pick(kTexts, choice));
    } else if (field != nullptr && choice % 4 == 1) {
      say("open the menu of " + where);
      QContextMenuEvent event(QContextMenuEvent::Keyboard, {}, {});
      QApplication::sendEvent(field, &event);
    } else {
      if (auto* area = qobject_cast<QAbstractScrollArea*>(control)) control = area->viewport();
      const QPoint place(control->width() * static_cast<int>(choice % 97) / 97,
                         control->height() * static_cast<int>(choice % 89) / 89);
      say("click " + where + QString(" at %1, %2").arg(place.x()).arg(place.y()));
      QTest::mouseClick(control, Qt::LeftButton, {}, place);
    }
  }

  void end(std::uint32_t) {
    say("the session ends");
    console_.close();
    // A box that was opened in the very closing still waits.
    answer_ = kDismissal;
  }

  void plug(std::uint32_t choice) {
    const int port = portOf(choice);
    UnitOptions unit;
    BusOptions options{.seed = choice};
    const bool healthy = choice % 2 == 0;
    if (!healthy) {
      options.faults = {parseFault(pick(kFaults, choice, 1).toStdString())};
      unit.baud = pick(kRates, choice, 2);
      unit.version = pick(kVersions, choice, 3).toStdString();
      unit.valid_firmware = choice % 5 != 0;
    }
    say(QString("COM%1 gets a unit: %2 baud, \"%3\", firmware %4, %5")
            .arg(QString::number(port), QString::number(unit.baud), unit.version.c_str(),
                 unit.valid_firmware ? "valid" : "invalid",
                 healthy ? "healthy" : pick(kFaults, choice, 1)));
    auto line = std::make_unique<SimulatedBus>(std::vector{unit}, options);
    platform_.attach(port, *line);
    platform_.socket(port).refusal.reset();
    lines_[port] = std::move(line);
  }

  void unplug(std::uint32_t choice) {
    say(QString("COM%1's device vanishes").arg(portOf(choice)));
    platform_.detach(portOf(choice));
  }

  void refuse(std::uint32_t choice) {
    auto& refusal = platform_.socket(portOf(choice)).refusal = pick(kRefusals, choice, 1);
    say(QString("COM%1 can%2 be opened").arg(portOf(choice)).arg(refusal ? "'t" : ""));
  }

  void hear(std::uint32_t choice) {
    // Seldom a flood, which takes long.
    const std::string bytes = choice % 500 == 0 ? std::string(140'000, 'f') : pick(kHeard, choice);
    say(QString("%1 bytes come in").arg(bytes.size()));
    if (const int open = heldPort()) platform_.socket(open).deliver(bytes);
  }

  void changeFile(std::uint32_t choice) {
    const std::string& name = pick(kFiles, choice).first;
    const auto& [other, bytes] = pick(kFiles, choice, 1);
    say(("the file \"" + name + "\" becomes as \"" + other + "\" was, or goes").c_str());
    std::remove((folder_ + name).c_str());
    if (choice % 3 != 0) writeFile(folder_ + name, bytes.toStdString());
  }

  using Act = void (Walk::*)(std::uint32_t);
  static inline const std::map<std::string, Act> kActs = {
      {"end", &Walk::end},       {"plug", &Walk::plug}, {"unplug", &Walk::unplug},
      {"refuse", &Walk::refuse}, {"hear", &Walk::hear}, {"file", &Walk::changeFile}};

  void say(const QString& words) const {
    if (!tell_) return;
    const double s = std::chrono::duration<double>(platform_.now() - std::chrono::hours(8)).count();
    std::printf("%12.3f s %*s%s\n", s, 2 * depth_, "", qPrintable(words.simplified()));
  }

  BoxButton messageBox(const std::string& text, int style) override {
    checkBox(text);
    const auto chosen = answer("box", text);
    const bool agreed = chosen && *chosen % 4 != kDismissal;
    say(agreed ? "agree" : "dismiss it");
    if ((style & 0x0F) == box::kOkCancel) return agreed ? BoxButton::kOk : BoxButton::kCancel;
    if ((style & 0x0F) == box::kYesNo) return agreed ? BoxButton::kYes : BoxButton::kNo;
    return BoxButton::kOk;
  }

  std::string openFile(const FileRequest& request) override {
    const auto chosen = answer("file dialog", request.title);
    const std::size_t file = chosen.value_or(kDismissal) / 4 % std::size(kFiles);
    const bool image = request.title == "Firmware Update";
    const std::string& name = kFiles[image ? file : std::size(kFiles) - 1 - file].first;
    const bool agreed = chosen && *chosen % 4 != kDismissal;
    say(agreed ? ("choose \"" + name + "\"").c_str() : "cancel it");
    if (!agreed && request.cancel_is_error) throw RuntimeError(Fault::kCancelled);
    return agreed ? folder_ + name : "";
  }
  std::string saveFile(const FileRequest& request) override { return openFile(request); }

  /// Handles events until a step answers; nothing when the program ends first.
  std::optional<std::uint32_t> answer(const char* dialog, const std::string& text) {
    say(QString("%1 \"%2\"").arg(dialog, text.c_str()));
    ++tally[dialog + (" \"" + text.substr(0, 30) + "\"")];
    answer_.reset();
    ++open_dialogs_;
    platform_.runUntil([this] { return answer_ || ended_; }, kForEverMs);
    --open_dialogs_;
    return std::exchange(answer_, std::nullopt);
  }

  void require(bool holds, const std::string& rule) const {
    if (holds) return;
    std::snprintf(report_.failure, sizeof report_.failure, "%s", rule.c_str());
    say("BROKEN: " + QString::fromStdString(rule));
    std::fflush(stdout);
    _exit(EXIT_FAILURE);
  }

  void checkBox(const std::string& text) {
    static const QRegularExpression report("^(\\w+)\\(\\) Error #: (\\d+) ::");
    const auto found = report.match(QString::fromStdString(text));
    const bool known = std::ranges::any_of(kReports, [&found](const QString& rule) {
      const QStringList words = rule.split(' ');
      return words[0] == found.captured(1) && words.contains(found.captured(2));
    });
    require(known || !found.hasMatch(), "every error report has its rule: " + text);
    const bool foreign = std::ranges::any_of(kPorts, [this](int port) {
      return platform_.socket(port).refusal == Fault::kPortAlreadyOpen;
    });
    require(foreign || found.captured(2) != "8005", "a port has one owner: " + text);
  }

  void check() {
    if (console_.life().leaving()) return;
    require(std::ranges::all_of(send_buttons_, &QWidget::isEnabled) ||
                console_.replyTimeOutRuns() || platform_.yielding(),
            "a send button that is disabled will be enabled");
    heldPort();
    // In a send, and under a box of one, the strip waits for its end.
    if (!platform_.yielding() && open_dialogs_ == 0) {
      checkStrip(line_->text());
      checkRecorder(activity_->text());
    }
    if (next_ % 64 == 0) checkMemory();
    const auto* dialog = program_.update();
    const QString status = dialog ? dialog->findChild<QLineEdit*>("txtStatus")->text() : "";
    if (status != std::exchange(status_, status)) ++tally[status.left(24).toStdString()];
  }

  /// The port that is open, or 0.
  int heldPort() {
    int held = 0;
    for (int port = SerialPort::kHighestPort; port >= SerialPort::kLowestPort; --port) {
      if (!platform_.socket(port).held()) continue;
      require(held == 0, "a port has one owner: two are open");
      held = port;
    }
    return held;
  }

  void checkStrip(const QString& line) {
    const int held = heldPort();
    const bool open = console_.PortOpen();
    // The program is still to learn that the device has vanished.
    if (open && held == 0) return;
    const Settings& settings = program_.settings();
    const std::string chosen = shortVisibleText(latin1FromUtf8(settings.CommPortSetting()));
    const std::string port = "COM" + (open ? std::to_string(held) : chosen);
    require(line.startsWith(QString::fromStdString(port)) && line.endsWith(" open") == open &&
                line.contains(settings.DTProtocol() ? " DT " : " OEM "),
            "the strip agrees with the port: " + line.toStdString());
  }

  void checkRecorder(const QString& activity) {
    const bool recording = activity.startsWith("Recording");
    const bool playing = activity.startsWith("Playing");
    laid_out_ = laid_out_ && (recording || playing);
    for (int button = 0; button <= bar::kLoadStrings; ++button) {
      const bool usable =
          (!recording || button == bar::kRecord) && (!playing || button == bar::kPlayback);
      require(bar_[button]->isEnabled() == usable, "the bar agrees: " + activity.toStdString());
    }
    const auto agrees = [this](int button, const char* caption, bool runs) {
      // A layout puts the captions of rest back, whatever runs.
      return (bar_[button]->text() == caption) == runs || (runs && laid_out_);
    };
    require(agrees(bar::kRecord, "Stop Recording", recording) &&
                agrees(bar::kPlayback, "Stop Playback", playing),
            "the captions agree: " + activity.toStdString());
    if (activity == std::exchange(shown_activity_, activity)) return;
    ++tally[QString(activity).remove(QRegularExpression("\\d+")).left(14).toStdString()];
  }

  void checkMemory() {
    const auto bounded = [this](const char* what, std::size_t size, std::size_t most) {
      require(size <= most, std::string("memory is bounded: ") + what + ' ' + std::to_string(size));
      tally[std::string("most ") + what] = std::max(size, tally[std::string("most ") + what]);
    };
    bounded("widgets", static_cast<std::size_t>(QApplication::allWidgets().size()), kMostWidgets);
    for (const QLineEdit* reply : replies_) {
      bounded("characters of a reply", static_cast<std::size_t>(reply->text().size()), kMostReply);
    }
    // None is counted under a sanitizer.
    const std::size_t bytes = ::mallinfo2().uordblks;
    if (next_ == 0) bounded("bytes at the start", bytes, kMostBytesAtStart);
    bounded("bytes", bytes, kMostBytes);
  }

  void checkEnd() {
    checkMemory();
    require(heldPort() == 0 && !console_.PortOpen(), "the end closes every port");
    if (QWidget* menu = QApplication::activePopupWidget()) menu->close();
    require(usableWindows().isEmpty(), "the end hides every window");
    std::string expected, saved;
    for (int row = 0; row < kStoredRows; ++row) {
      expected += "StringToSend" + std::to_string(row) + strings_[row]->text().toStdString();
    }
    for (const auto& [address, value] : platform_.store().saves) {
      if (address.section == "Strings") saved += address.key + value;
    }
    require(saved == expected, "the end saves the rows: " + saved);
    ++tally["lives"];
  }

  const Steps& steps_;
  const std::string folder_;
  Report& report_;
  const bool tell_;
  std::size_t next_ = 0;
  bool ended_ = false;
  /// In a recording or playback.
  bool laid_out_ = false;
  int open_dialogs_ = 0, depth_ = 0;
  std::optional<std::uint32_t> answer_;
  QString status_, shown_activity_;
  std::map<int, std::unique_ptr<SimulatedBus>> lines_;
  VirtualPlatform platform_;
  Program program_{platform_, [this] { ended_ = true; }};
  StringFun& console_ = program_.console();
  template <class Control>
  QList<Control*> all(const char* name) {
    return console_.findChildren<Control*>(QRegularExpression(name));
  }
  const QList<QPushButton*> send_buttons_ = all<QPushButton>("SendCommand");
  const QList<QPushButton*> bar_ = all<QPushButton>("LoadButton");
  const QList<QLineEdit*> strings_ = all<QLineEdit>("StringToSend");
  const QList<QLineEdit*> replies_ = all<QLineEdit>("ReceiveString");
  const QLineEdit* line_ = all<QLineEdit>("LineStatus")[0];
  const QLineEdit* activity_ = all<QLineEdit>("Activity")[0];
};

}  // namespace

void live(const Steps& steps, const std::string& folder, Report& report, bool tell) {
  Walk(steps, folder, report, tell).run();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace mvdirigo

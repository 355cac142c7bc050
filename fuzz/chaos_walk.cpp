#include "chaos_walk.h"

#include <malloc.h>
#include <unistd.h>

#include <random>

#include <QTest>
#include <QtWidgets>

#include "app/program.h"
#include "console/button_bar.h"
#include "core/stored_settings.h"
#include "platform/text.h"
#include "simulator/model/simulated_bus.h"
#include "simulator/virtual/virtual_platform.h"
#include "support/files.h"

using namespace mvdirigo;

static QStringList list(const char* joined) { return QString::fromUtf8(joined).split('|'); }

static constexpr int kStepsOfALife = 300;
static constexpr unsigned kLongestLifeS = 10;
/// How often acts come, alone or in a row with what a person does on purpose and chance would
/// seldom bring about. Where a box is open, "yes" agrees to it.
static const QStringList kActs = list(
    "450: use|80: key|15: close|1: end|40: plug|10: unplug|6: refuse|60: hear|15: file|"
    "100: 1|50: 10|50: 50|50: 120|40: 500|10: 3000|5: 12000|"
    "30: SendCommand(0) 50 SendCommand(1) 1000|"
    "10: LoadButton(2) SendCommand(0) 500 SendCommand(1) 500 LoadButton(2) LoadButton(1) 1000|"
    "10: LoadButton(0) 3000|10: LoadButton(5) yes LoadButton(1) 3000|"
    "10: LoadButton(3) AutoSetup 3000 5000|"
    "15: LoadButton(3) cmdUpdate cmdLoadImage yes cmdUpdate yes 12000 3000|"
    "10: LoadButton(3) LoadButton(2) SendCommand(0) 120 LoadButton(2) LoadButton(0) cmdUpdate "
    "cmdLoadImage yes cmdUpdate yes 12000 3000");
static const QStringList kTexts = list(
    "/1&|/1?0|/1A1000R|/2&|/1RND,rnd|/||no slash| /1|1|1|1|2|3|16|17|0|-5|25|26|x|1e99|9999999|"
    "1000|50|300|1.5|/1<b>&amp;|/1\u00B5\u20AC\n");
static const QStringList kKeys = list(
    "F1|F12|Esc|Return|Up|Down|Tab|Backtab|F6|Space|Del|7|PgDown|Alt+0|Alt+1|Alt+H|Alt+L|"
    "Ctrl+S|Ctrl+O|Ctrl+,|Ctrl+C|Ctrl+V|Ctrl+A");
/// The first is none.
static const QStringList kFaults = list(
    "late=0|late=1|late=130|late=1100|silent|silent@3|drop|double|corrupt|garbage-before|endless|"
    "lost-etx=50|bad-checksum=50|endless=500|refuse-piece@2|vanish-at=40|vanish-at@3");
static const QStringList kVersions = list("Movane Stepper v7.02|v7.01|none|v123.4");
static const QStringList kHeard = list(
    "\u00FF/0`2000\3\r|\2\60`2000\3S|\2\60`2000\3T|?\r|Error 3\r|\x1B[31m<b>\2\3|"
    "\u00FF/0b\r\n|\r");
static constexpr int kPorts[] = {1, 1, 2, 3}, kRates[] = {9600, 9600, 19200, 57600};
static constexpr std::optional<Fault> kRefusals[] = {
    {}, {}, Fault::kPortAlreadyOpen, Fault::kDeviceIo};
static constexpr std::int64_t kForEverMs = 1'000'000'000;
/// The answer that agrees to nothing; any other agrees, and is the file that is chosen.
static constexpr int kNone = -1;
static constexpr std::size_t kMostWidgets = 500, kMostReply = 4200;
static constexpr std::size_t kMostBytesAtStart = 4 << 20, kMostBytes = 64 << 20;
/// Files and what they hold at first. The first is fit for all that is done with files.
static const QList<std::pair<std::string, QByteArray>> kFiles = {
    {"strings", "103A7\r\n" + QByteArray("/1?0\r\n").repeated(24) +
                    QByteArray("2\r\n").repeated(20) + QByteArray("0\r\n").repeated(980)},
    {"full", "103A7" + QByteArray(61, 'x')},
    {"partial", "003a7" + QByteArray(30, 'y')},
    {"plain", "7777zz"},
    {"large", "5"},
    {".", "a folder"},
    {"no number", QByteArray("x\r\n").repeated(1025)},
    {"no row", QByteArray("99\r\n").repeated(1025)}};
/// The procedures whose faults are reported, with the faults that they may meet.
static const QRegularExpression kReports(
    "^(RecordPlayTimer_Timer\\(\\) Error #: (6|9|13)|cmdLoadImage_Click\\(\\) Error #: 32755|"
    "(MSComm_OnComm|getRXBuffer)\\(\\) Error #: 57|"
    "validUpdateFile\\(\\) Error #: (13|53|57|75|8002|8005)|"
    "cmdUpdate_Click\\(\\) Error #: (6|7|13|53|57|75|380|8002|8005)) ::");

Steps mvdirigo::drawSteps(std::uint32_t seed) {
  QStringList urn;
  for (const QString& act : kActs) urn += QStringList(act.section(':', 0, 0).toInt(), act);
  std::mt19937 random(seed);
  Steps steps;
  while (steps.size() < kStepsOfALife) {
    const QString& acts = urn[static_cast<int>(random() % static_cast<unsigned>(urn.size()))];
    for (const QString& act : acts.split(' ').sliced(1)) {
      steps.push_back({act, static_cast<std::uint32_t>(random())});
    }
  }
  return steps;
}

/// Those that no other window or menu keeps a person from using.
static QList<QWidget*> usableWindows() {
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

static QList<QWidget*> usableControls(QWidget* window) {
  QList<QWidget*> controls = window->findChildren<QWidget*>();
  controls.removeIf([](const QWidget* control) {
    const bool reacts = control->focusPolicy() != Qt::NoFocus || control->inherits("QScrollBar");
    return !reacts || !control->isVisible() || !control->isEnabled();
  });
  return controls << window;
}

namespace {

class Walk : private QObject, private Dialogs {
 public:
  Walk(const Steps& steps, Report& report) : steps_(steps), report_(report) {
    platform_.onRunPending = [] { QApplication::processEvents(); };
    platform_.answerWith(*this);
    QApplication::clipboard()->clear();
    for (const auto& [name, bytes] : kFiles) writeFile(name, bytes.toStdString());
    std::filesystem::resize_file("large", 17 << 20);
    for (const int port : {1, 2, 3}) plug(port);
  }

  void run() {
    stepAfter({});
    program_.start();
    auto* ok = program_.settings().findChild<QPushButton*>("cmdOK");
    QObject::connect(ok, &QPushButton::clicked, [this] { laid_out_ = true; });
    platform_.runUntil([this] { return ended_; }, kForEverMs);
    checkEnd();
  }

 private:
  void stepAfter(SimTime pause) {
    platform_.queue().post(platform_.now() + pause, {"a step"}, [this] {
      QEvent step(QEvent::User);
      QCoreApplication::sendEvent(this, &step);
    });
  }
  /// A step is an event, so that what it deletes later lives until its end, as under a real hand.
  bool event(QEvent*) override { return nextStep(), true; }

  int random(auto limit) {
    return std::uniform_int_distribution(0, static_cast<int>(limit) - 1)(random_);
  }
  /// One of `table`.
  const auto& pick(const auto& table) {
    return *std::next(std::begin(table), random(std::size(table)));
  }

  void nextStep() {
    if (ended_) return;
    check();
    const bool last = next_ == steps_.size();
    const auto [act, choice] = last ? Step{"end", 0} : steps_[next_++];
    const std::chrono::milliseconds pass(last ? 1000 : act.toInt());
    // Some steps come as soon as a handler lets pending events run, the others where one waits.
    stepAfter(pass.count() > 0 ? pass : SimTime(choice % 4 != 0));
    random_.seed(choice);
    ++report_.steps;
    ++depth_;
    if (act.toInt() > 0) {
      say(act + " ms pass");
    } else if (!byTheMachine(act, pick(kPorts))) {
      byHand(act, usableWindows());
    }
    --depth_;
  }

  /// Whether `act` is one that comes from outside, which then has happened.
  bool byTheMachine(const QString& act, int port) {
    const QString name = QString("COM%1").arg(port);
    VirtualSocket& socket = platform_.socket(port);
    if (act == "end") {
      say("the session ends");
      console_.close();
      // A box that was opened in the very closing still waits.
      answer_ = kNone;
    } else if (act == "plug") {
      plug(port);
    } else if (act == "unplug") {
      say(name + "'s device vanishes");
      socket.unplug();
    } else if (act == "refuse") {
      socket.refusal = pick(kRefusals);
      say(name + (socket.refusal ? " can't be opened" : " can be opened"));
    } else if (act == "hear") {
      // Seldom a flood, which takes long.
      const QByteArray bytes =
          random(500) == 0 ? QByteArray(140'000, 'f') : pick(kHeard).toLatin1();
      say(QString("%1 bytes come in").arg(bytes.size()));
      if (const int open = heldPort()) platform_.socket(open).deliver(bytes.toStdString());
    } else if (act == "file") {
      const std::string& file = pick(kFiles).first;
      const auto& [other, bytes] = pick(kFiles);
      say(("the file \"" + file + "\" becomes as \"" + other + "\" was, or goes").c_str());
      std::remove(file.c_str());
      if (random(3) != 0) writeFile(file, bytes.toStdString());
    } else {
      return false;
    }
    return true;
  }

  void plug(int port) {
    const bool healthy = next_ == 0 || random(2) == 0;
    const QString& fault = healthy ? kFaults[0] : pick(kFaults);
    UnitOptions unit;
    if (!healthy) {
      unit.baud = pick(kRates);
      unit.version = pick(kVersions).toStdString();
      unit.valid_firmware = random(5) != 0;
    }
    say(QString("COM%1 gets a unit: %2 baud, ").arg(port).arg(unit.baud) + unit.version.c_str() +
        (unit.valid_firmware ? ", " : ", firmware invalid, ") + fault);
    BusOptions options{.faults = {parseFault(fault.toStdString())}, .seed = report_.seed};
    platform_.attach(port, lines_.emplace_back(std::vector{unit}, options));
    platform_.socket(port).refusal.reset();
  }

  void byHand(const QString& act, const QList<QWidget*>& windows) {
    if (open_dialogs_ > 0) {
      answer_ = act == "yes" ? 0 : random(4) == 0 ? kNone : random(std::size(kFiles));
      return;
    }
    if (windows.isEmpty()) return;
    QWidget* window = pick(windows);
    if (act == "key") {
      const QString& key = pick(kKeys);
      say("press " + key + " in " + window->objectName());
      window->activateWindow();
      QApplication::processEvents();
      QTest::keySequence(window->focusWidget() ? window->focusWidget() : window, key);
    } else if (act == "close" && window != &console_) {
      say("close " + window->objectName());
      window->close();
    } else if (act == "use") {
      use(pick(usableControls(window)));
    } else {
      for (QWidget* each : windows) {
        auto* control = each->findChild<QWidget*>(act);
        if (control != nullptr && control->isVisible()) return use(control);
      }
    }
  }

  void use(QWidget* control) {
    const QString where = control->objectName() + " \"" + control->property("text").toString() +
                          "\" of " + control->window()->objectName();
    auto* field = qobject_cast<QLineEdit*>(control);
    if (field != nullptr && random(8) == 0) {
      say("open the menu of " + where);
      QContextMenuEvent event(QContextMenuEvent::Keyboard, {}, {});
      return void(QApplication::sendEvent(field, &event));
    }
    if (auto* area = qobject_cast<QAbstractScrollArea*>(control)) control = area->viewport();
    const QPoint place(random(control->width() + 1), random(control->height() + 1));
    say("click " + where + QString(" at %1, %2").arg(place.x()).arg(place.y()));
    QTest::mouseClick(control, Qt::LeftButton, {}, place);
    if (field == nullptr || field->isReadOnly()) return;
    const QString& text = pick(kTexts);
    say("type \"" + text + '"');
    field->selectAll();
    field->insert(text);
  }

  void say(const QString& words) const {
    if (!report_.tell) return;
    const double s = std::chrono::duration<double>(platform_.now()).count();
    std::printf("%12.3f s %*s%s\n", s, 2 * depth_, "", qPrintable(words.simplified()));
  }

  BoxButton messageBox(const std::string& text, int style) override {
    checkBox(text.c_str());
    const bool agreed = answer("box", text) != kNone;
    if ((style & 0x0F) == box::kOkCancel) return agreed ? BoxButton::kOk : BoxButton::kCancel;
    if ((style & 0x0F) == box::kYesNo) return agreed ? BoxButton::kYes : BoxButton::kNo;
    return BoxButton::kOk;
  }

  std::string openFile(const FileRequest& request) override {
    const int file = answer("file dialog", request.title);
    if (file == kNone && request.cancel_is_error) throw RuntimeError(Fault::kCancelled);
    return file == kNone ? "" : kFiles[file].first;
  }
  std::string saveFile(const FileRequest& request) override { return openFile(request); }

  /// Handles events in a loop of its own, as a box does, until a step answers or the program ends.
  int answer(const char* kind, const std::string& text) {
    const QString dialog = QString("%1 \"%2\"").arg(kind, text.c_str());
    say(dialog);
    ++tally[dialog.left(35)];
    answer_.reset();
    ++open_dialogs_;
    QEventLoop own;
    QTimer::singleShot(0, [this, &own] {
      platform_.runUntil([this] { return answer_ || ended_; }, kForEverMs);
      own.quit();
    });
    own.exec();
    --open_dialogs_;
    const int chosen = std::exchange(answer_, {}).value_or(kNone);
    say(chosen == kNone ? "dismiss it" : ("agree, or choose " + kFiles[chosen].first).c_str());
    return chosen;
  }

  void require(bool holds, const char* rule, const QString& details = "") const {
    if (holds) return;
    say(QString("BROKEN: %1: %2").arg(rule, details));
    report_.broken_rule = rule;
    _exit(EXIT_FAILURE);
  }

  void checkBox(const QString& text) {
    const bool known = kReports.match(text).hasMatch();
    require(known || !text.contains("() Error #: "), "every error report has its rule", text);
    const bool foreign = std::ranges::any_of(kPorts, [this](int port) {
      return platform_.socket(port).refusal == Fault::kPortAlreadyOpen;
    });
    require(foreign || !text.contains("() Error #: 8005 "), "a port has one owner", text);
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
    if (dialog) ++tally[dialog->findChild<QLineEdit*>("txtStatus")->text().left(24)];
  }

  /// The port that is open, or 0.
  int heldPort() {
    int held = 0;
    for (int port = SerialPort::kLowestPort; port <= SerialPort::kHighestPort; ++port) {
      if (!platform_.socket(port).held()) continue;
      require(held == 0, "a port has one owner", "two are open");
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
    const std::string chosen =
        visibleControls(latin1FromUtf8(settings.CommPortSetting()).substr(0, 20));
    const std::string port = "COM" + (open ? std::to_string(held) : chosen);
    require(line.startsWith(port.c_str()) && line.endsWith(" open") == open &&
                line.contains(settings.DTProtocol() ? " DT " : " OEM "),
            "the strip agrees with the port", line);
  }

  void checkRecorder(const QString& activity) {
    const bool recording = activity.startsWith("Recording");
    const bool playing = activity.startsWith("Playing");
    laid_out_ = laid_out_ && (recording || playing);
    for (int button = 0; button <= bar::kLoadStrings; ++button) {
      const bool usable =
          (!recording || button == bar::kRecord) && (!playing || button == bar::kPlayback);
      require(bar_[button]->isEnabled() == usable, "the bar agrees", activity);
    }
    const auto agrees = [this](int button, const char* caption, bool runs) {
      // A layout puts the captions of rest back, whatever runs.
      return (bar_[button]->text() == caption) == runs || (runs && laid_out_);
    };
    require(agrees(bar::kRecord, "Stop Recording", recording) &&
                agrees(bar::kPlayback, "Stop Playback", playing),
            "the captions agree", activity);
    ++tally[QString(activity).remove(QRegularExpression("\\d+")).left(14)];
  }

  void checkMemory() {
    const auto bounded = [this](auto size, std::size_t most, const char* what) {
      require(static_cast<std::size_t>(size) <= most, "memory is bounded",
              QString::number(size) + what);
    };
    bounded(QApplication::allWidgets().size(), kMostWidgets, " widgets");
    for (const QLineEdit* reply : all<QLineEdit>("ReceiveString")) {
      bounded(reply->text().size(), kMostReply, " characters of a reply");
    }
    // None is counted under a sanitizer.
    bounded(::mallinfo2().uordblks, next_ == 0 ? kMostBytesAtStart : kMostBytes, " bytes");
  }

  void checkEnd() {
    checkMemory();
    require(heldPort() == 0 && !console_.PortOpen(), "the end closes every port");
    if (QWidget* menu = QApplication::activePopupWidget()) menu->close();
    require(usableWindows().isEmpty(), "the end hides every window");
    for (const QLineEdit* row : strings_) {
      const auto key = row->objectName().remove(QRegularExpression("[()]")).toStdString();
      const auto saved = platform_.store().get(kApplicationName, "Strings", key, "(none)");
      require(saved == row->text().toStdString(), "the end saves the rows", saved.c_str());
    }
    ++tally["lives"];
  }

  template <class Control>
  QList<Control*> all(const char* name) {
    return console_.findChildren<Control*>(QRegularExpression(name));
  }

  const Steps& steps_;
  Report& report_;
  std::size_t next_ = 0;
  std::mt19937 random_;
  bool ended_ = false;
  /// In a recording or playback.
  bool laid_out_ = false;
  int open_dialogs_ = 0, depth_ = 0;
  std::optional<int> answer_;
  std::deque<SimulatedBus> lines_;
  VirtualPlatform platform_;
  Program program_{platform_, [this] { ended_ = true; }};
  StringFun& console_ = program_.console();
  const QList<QPushButton*> send_buttons_ = all<QPushButton>("SendCommand"),
                            bar_ = all<QPushButton>("LoadButton");
  const QList<QLineEdit*> strings_ = all<QLineEdit>("StringToSend");
  const QLineEdit* line_ = all<QLineEdit>("LineStatus")[0];
  const QLineEdit* activity_ = all<QLineEdit>("Activity")[0];
};

}  // namespace

void mvdirigo::live(const Steps& steps, Report& report) {
  ::alarm(kLongestLifeS);
  Walk(steps, report).run();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

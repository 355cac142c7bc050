// What the console adds to a command and its reply, on a pseudo-terminal with a peer that answers
// at once: bare reads and writes, the console's serial link with framing and decoding, and the
// whole window take turns. Then the CPU time of a wait for a reply that doesn't come, and of
// idling.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include <QApplication>
#include <QEventLoop>
#include <QTest>
#include <QTimer>

#include "app/program.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

constexpr int kBlocks = 20;
constexpr int kRoundTripsABlock = 100;

constexpr const char* kCommand = "/1A1000R";
constexpr char kStx = 2;
constexpr char kEtx = 3;

struct PeerNotes {
  std::atomic<bool> silent = false;
  Stamp first_byte;
  Stamp reply;
};

/// Answers every DT line and every OEM frame, each time with another number.
void answer(int line, PeerNotes& notes) {
  std::string command;
  std::array<char, 256> bytes{};
  for (int number = 0;;) {
    const ssize_t count = read(line, bytes.data(), bytes.size());
    if (count <= 0) return;
    if (command.empty()) notes.first_byte.take();
    command.append(bytes.data(), static_cast<std::size_t>(count));
    const bool oem = command.front() == kStx;
    const bool complete = oem ? command[command.size() - 2] == kEtx : command.back() == '\r';
    if (!complete) continue;
    command.clear();
    if (notes.silent) continue;
    std::string reply = "0`" + std::to_string(++number) + kEtx;
    if (oem) {
      reply.insert(0, 1, kStx);
      char checksum = 0;
      for (const char ch : reply) checksum = static_cast<char>(checksum ^ ch);
      reply += checksum;
    } else {
      reply = "\xFF/" + reply + "\r\n";
    }
    notes.reply.take();
    if (!writeAll(line, reply)) return;
  }
}

class ChosenProtocol : public LiveSettings {
 public:
  std::string CommPortSetting() const override { return "1"; }
  std::string BaudRate() const override { return "9600"; }
  bool DTProtocol() const override { return !oem; }
  bool OEMProtocol() const override { return oem; }
  std::string MaxStrings() const override { return "11"; }
  std::string RCVTimeout() const override { return "1000"; }
  bool searching() const override { return false; }
  std::string searchProgress() const override { return {}; }
  void takeReply(const std::string&) override {}

  bool oem = false;
};

/// Rows that show nothing and know when the last reply came.
class PlainRows : public Transaction::Rows {
 public:
  std::string StringToSend(int) const override { return kCommand; }
  void setReceiveString(int, const std::string&, const Exchange&) override {
    replied_at = Clock::now();
  }
  void setButtonShape(int, LightColour) override {}
  void startButtonTimer(int) override {}
  void enableSendCommands(bool) override {}
  void lineChanged() override {}
  void recordPress(int) override {}
  const WindowLife& life() const override { return life_; }

  std::optional<Clock::time_point> replied_at;

 private:
  WindowLife life_;
};

/// The console without its windows.
class WindowlessConsole {
 public:
  explicit WindowlessConsole(Platform& platform)
      : platform_(platform),
        transaction_(
            platform, [this]() -> LiveSettings& { return settings_; }, rows_) {}

  void use(bool oem) { settings_.oem = oem; }
  /// Returns when the decoded reply was handed to its row.
  Clock::time_point exchange() {
    rows_.replied_at.reset();
    transaction_.ResetResponse();
    transaction_.subSendToMV(kCommand);
    static_cast<void>(platform_.eventLoop().waitUntil(
        [this] { return rows_.replied_at.has_value(); }, rows_.life()));
    return *rows_.replied_at;
  }
  void reset() { transaction_.link().reset(); }
  void close() { transaction_.link().close(); }

 private:
  Platform& platform_;
  ChosenProtocol settings_;
  PlainRows rows_;
  Transaction transaction_;
};

/// The whole console, whose first row is pressed.
class Console {
 public:
  Console(Platform& platform, const PeerNotes& notes)
      : platform_(platform), notes_(notes), program_(platform, [] {}) {
    program_.start();
    program_.console().activateWindow();
    QObject::connect(&reply(), &QLineEdit::textChanged, [this] {
      reply_shown_ = Clock::now();
      replied_ = true;
    });
  }
  ~Console() { program_.console().close(); }

  void press() {
    exchange([this] { button().click(); });
  }
  /// Handles what a press left to do, such as painting.
  void settle() { platform_.eventLoop().runPending(); }
  void pressAndMeasure() {
    press();
    press_to_first_byte_.add(notes_.first_byte.get() - pressed_);
    reply_to_text_.add(reply_shown_ - notes_.reply.get());
    settle();
    exchange([this] { QTest::keyClick(&program_.console(), Qt::Key_0, Qt::AltModifier); });
    accelerator_to_first_byte_.add(notes_.first_byte.get() - pressed_);
    settle();
  }
  void close() { program_.console().closePort(); }
  std::string replyText() { return reply().text().toStdString(); }

  void print() {
    press_to_first_byte_.print("window: press to first byte");
    accelerator_to_first_byte_.print("window: accelerator to first byte");
    reply_to_text_.print("window: reply to text");
  }

 private:
  /// Does `press` and waits for the reply.
  template <class Press>
  void exchange(Press press) {
    replied_ = false;
    pressed_ = Clock::now();
    press();
    static_cast<void>(
        platform_.eventLoop().waitUntil([this] { return replied_; }, program_.console().life()));
  }

  QPushButton& button() { return find<QPushButton>(program_.console(), "SendCommand(0)"); }
  QLineEdit& reply() { return find<QLineEdit>(program_.console(), "ReceiveString(0)"); }

  Platform& platform_;
  const PeerNotes& notes_;
  Program program_;
  bool replied_ = false;
  Clock::time_point pressed_, reply_shown_;
  Durations press_to_first_byte_, accelerator_to_first_byte_, reply_to_text_;
};

Clock::time_point exchangeBare(int line) {
  static const std::string command = std::string(kCommand) + '\r';
  require(writeAll(line, command) && readThrough(line, '\n'), "exchange");
  return Clock::now();
}

template <class Exchange>
void measure(Durations& durations, Exchange&& exchange) {
  for (int i = 0; i < kRoundTripsABlock; ++i) {
    const auto start = Clock::now();
    durations.add(exchange() - start);
  }
}

void measureRoundTrips(const Line& line, WindowlessConsole& link, Console& console) {
  Durations bare, dt, oem;
  for (int block = 0; block < kBlocks; ++block) {
    setRaw(line.fd());
    measure(bare, [&] { return exchangeBare(line.fd()); });
    link.use(false);
    // The first command of a block opens the port.
    link.exchange();
    measure(dt, [&] { return link.exchange(); });
    link.use(true);
    measure(oem, [&] { return link.exchange(); });
    link.close();
    console.press();
    console.settle();
    for (int i = 0; i < kRoundTripsABlock; ++i) console.pressAndMeasure();
    console.close();
  }
  bare.print("bare reads and writes");
  dt.print("link, framing, decoding, DT");
  oem.print("link, framing, decoding, OEM");
  std::printf("ratio to bare: DT %.2f, OEM %.2f\n", dt.median() / bare.median(),
              oem.median() / bare.median());
  console.print();
}

/// What a time-out does to the port: it closes and opens it. The command is long on its way then.
void measureResets(WindowlessConsole& link) {
  Durations resets;
  link.use(false);
  for (int i = 0; i < kRoundTripsABlock; ++i) {
    link.exchange();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const auto start = Clock::now();
    link.reset();
    resets.add(Clock::now() - start);
  }
  link.close();
  resets.print("reset of the open port");
}

void measureCpu(Console& console, PeerNotes& notes) {
  notes.silent = true;
  const CpuShare waiting;
  console.press();
  std::printf("silent reply wait: %.2f %% of a core (\"%s\")\n", waiting.percent(),
              console.replyText().c_str());
  console.settle();

  QEventLoop loop;
  QTimer::singleShot(std::chrono::seconds(10), &loop, &QEventLoop::quit);
  const CpuShare idle;
  loop.exec();
  std::printf("10 s idle: %.2f %% of a core\n", idle.percent());
}

void run(int argc, char** argv) {
  auto& notes = makeShared<PeerNotes>();
  const Line line([&notes](int far_end) { answer(far_end, notes); });
  chooseDisplay();
  QApplication application(argc, argv);
  const Desk desk(line);
  UnattendedPlatform platform;
  WindowlessConsole link(platform);
  Console console(platform, notes);
  measureRoundTrips(line, link, console);
  measureResets(link);
  measureCpu(console, notes);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  mvdirigo::bench::run(argc, argv);
  return 0;
}

// The system's own terminal settings tell the rate; the C library's can't be included beside them.
#include <asm/ioctls.h>
#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <thread>

#include <QEventLoop>
#include <gtest/gtest.h>

#include "core/serial_link.h"
#include "platform/qt/qt_platform.h"
#include "simulator/program/pty.h"
#include "support/chosen_settings.h"
#include "support/config_home.h"
#include "support/fault_number.h"
#include "support/port_refusals.h"
#include "support/real_time.h"

using namespace mvdirigo;

/// Stands between this program and the system's serial drivers, because a pseudo-terminal takes any
/// rate and never holds up a closing: `close` and `ioctl` of this program go through it. While it
/// exists, terminals behave as it says.
struct Driver {
  Driver() { current = this; }
  ~Driver() { current = nullptr; }
  static inline Driver* current = nullptr;

  /// Closing sleeps for half a minute unless a signal comes, and nothing can be discarded, as on an
  /// adapter that is stuck.
  bool stuck = false;
  /// The rate that the hardware takes, whatever it is asked for; 0 for that one.
  unsigned only_rate = 0;

  int interrupted_closings = 0;
  /// Control flags of the line, as they were asked for last.
  unsigned flags_asked = 0;
};

extern "C" int close(int handle) {
  if (Driver::current && Driver::current->stuck && isatty(handle)) {
    const timespec half_a_minute{30, 0};
    const bool interrupted = nanosleep(&half_a_minute, nullptr) != 0 && errno == EINTR;
    Driver::current->interrupted_closings += interrupted;
  }
  return static_cast<int>(syscall(SYS_close, handle));
}

extern "C" int ioctl(int handle, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  Driver* const driver = Driver::current;
  if (driver && driver->stuck && request == TCFLSH) return 0;
  const auto result = static_cast<int>(syscall(SYS_ioctl, handle, request, argument));
  if (!driver || result != 0) return result;
  auto* const settings = static_cast<termios2*>(argument);
  if (request == TCSETS2) driver->flags_asked = settings->c_cflag;
  if (request == TCGETS2 && driver->only_rate != 0) settings->c_ospeed = driver->only_rate;
  return result;
}

/// A pseudo-terminal; the test is the device at its master side.
struct Line {
  ~Line() { close(slave); }
  void unplug() { pty.reset(); }
  /// Sends what the line takes, waits until it can be read, and returns how much that was.
  std::size_t send(std::string_view bytes) {
    const std::size_t sent = pty->write(std::string(bytes));
    pollfd readable{slave, POLLIN, 0};
    if (sent > 0) poll(&readable, 1, 10'000);
    return sent;
  }
  const std::string& heard() {
    for (std::string more; !(more = pty->read()).empty();) heard_ += more;
    return heard_;
  }
  termios2 settings() const {
    termios2 settings{};
    ioctl(slave, TCGETS2, &settings);
    return settings;
  }

  std::optional<Pty> pty{std::in_place};
  const std::string path = pty->path();
  const int slave = open(path.c_str(), O_RDWR | O_NOCTTY);
  std::string heard_;
};

class SerialPortTest : public ::testing::Test {
 protected:
  SerialPortTest() {
    home_.link(3, line_.path);
    port_->setCommPort(3);
    port_->setRThreshold(1);
    port_->setInputLen(1);
  }

  void onComm() {
    ++events_;
    fault_ = faultNumber([this] { received_ += port_->Input(); });
    if (const auto then = then_) then();
  }
  bool runUntil(const std::function<bool()>& done) { return mvdirigo::runUntil(platform_, done); }
  bool receive(const std::string& expected) {
    return runUntil([&] { return received_ == expected; });
  }
  int openingError() {
    return faultNumber([this] { port_->setPortOpen(true); });
  }

  ConfigHome home_;
  QtPlatform platform_;
  Line line_;
  std::unique_ptr<SerialPort> port_ = platform_.makeSerialPort([this] { onComm(); });
  int events_ = 0;
  std::string received_;
  int fault_ = 0;
  std::function<void()> then_;
};

static std::string everyByte(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 256);
  return bytes;
}

TEST_F(SerialPortTest, DeliversFromTheEventLoopOnlyAndForgetsWhatCameBeforeTheOpening) {
  port_->setPortOpen(true);
  port_->setPortOpen(false);
  line_.send("stale");
  port_->setPortOpen(true);
  line_.send("x");
  port_->Output("y");
  EXPECT_EQ(port_->InBufferCount(), 1);
  EXPECT_EQ(events_, 0);
  platform_.eventLoop().runPending();
  EXPECT_EQ(events_, 1);
  EXPECT_EQ(received_, "x");
}

TEST_F(SerialPortTest, EndsAHandlersWaitWithTheNextCharactersAndNoOtherEvent) {
  int depth = 0, deepest = 0;
  then_ = [&] {
    deepest = std::max(deepest, ++depth);
    if (received_ == "abc") line_.send("def");
    EXPECT_TRUE(wakesFor(platform_, [&] { return received_ == "abcdef"; }));
    --depth;
  };
  port_->setPortOpen(true);
  line_.send("abc");
  EXPECT_TRUE(wakesFor(platform_, [&] { return depth == 0 && deepest > 0; }));
  EXPECT_EQ(deepest, 6);
}

TEST_F(SerialPortTest, LetsNoBoxSleepThroughItsEndAfterAHandlerThatYields) {
  QEventLoop box;
  bool ended = false;
  then_ = [&] {
    if (events_ == 1) {
      box.exec();
      ended = true;
    } else {
      box.quit();
      platform_.eventLoop().runPending();
      platform_.eventLoop().runPending();
    }
  };
  port_->setPortOpen(true);
  line_.send("ab");
  EXPECT_TRUE(wakesFor(platform_, [&] { return ended; }));
}

TEST_F(SerialPortTest, LetsAHandlerCloseReopenOrDestroyThePort) {
  port_->setPortOpen(true);
  then_ = [&] {
    then_ = nullptr;
    port_->setPortOpen(false);
    port_->setPortOpen(true);
    line_.send("fresh");
  };
  line_.send("old characters");
  EXPECT_TRUE(receive("ofresh"));
  then_ = [&] { port_.reset(); };
  line_.send("gone");
  EXPECT_TRUE(runUntil([&] { return !port_; }));
  loadDuring(platform_, 20);
  EXPECT_EQ(received_, "ofreshg");
}

TEST_F(SerialPortTest, KeepsAFloodBoundedInMemoryAndLosesNothing) {
  port_->setRThreshold(0);
  port_->setInputLen(1000);
  port_->setPortOpen(true);
  const std::string flood = everyByte(512 * 1024);
  std::size_t sent = 0, looks_without_room = 0;
  EXPECT_TRUE(runUntil([&] {
    const std::size_t taken = line_.send(std::string_view(flood).substr(sent, 1000));
    sent += taken;
    looks_without_room = taken == 0 ? looks_without_room + 1 : 0;
    return looks_without_room > 50;
  }));
  EXPECT_NEAR(port_->InBufferCount(), 70'000, 10'000);
  EXPECT_TRUE(runUntil([&] { return (received_ += port_->Input()).size() == sent; }));
  EXPECT_EQ(received_, flood.substr(0, sent));
}

TEST_F(SerialPortTest, TellsEveryCharacterByAnEventAndLeavesOtherEventsTheirTurn) {
  port_->setPortOpen(true);
  int ticks = 0;
  const auto timer = platform_.makeTimer([&] { ++ticks; });
  timer->setInterval(1);
  timer->setEnabled(true);
  then_ = [] { std::this_thread::sleep_for(std::chrono::microseconds(50)); };
  const std::size_t sent = line_.send(everyByte(3000));
  EXPECT_TRUE(receive(everyByte(sent)));
  EXPECT_EQ(events_, static_cast<int>(sent));
  EXPECT_GE(ticks, 10);
}

TEST_F(SerialPortTest, RefusesWithTheNumbersOfTheTable) { expectRefusals(*port_); }

TEST_F(SerialPortTest, NeverTakesOrDisturbsAPortThatAnotherHolds) {
  const auto expectInUseBy = [this](const std::string& program) {
    EXPECT_EQ(openingError(), 8005);
    EXPECT_EQ(platform_.portDetails(3).obstacle, "It is in use by " + program + " program.");
  };
  const termios2 before = line_.settings();
  const int other = open(line_.path.c_str(), O_RDWR | O_NOCTTY);
  flock(other, LOCK_EX);
  expectInUseBy("this");
  flock(other, LOCK_UN);
  ioctl(other, TIOCEXCL);
  expectInUseBy("another");
  ioctl(other, TIOCNXCL);
  const termios2 after = line_.settings();
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);

  EXPECT_EQ(openingError(), 0);
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), -1);
  int exclusive = 0;
  ioctl(other, TIOCGEXCL, &exclusive);
  EXPECT_EQ(exclusive, 1);
  port_->setPortOpen(false);
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  close(other);
  EXPECT_EQ(openingError(), 0);
}

TEST_F(SerialPortTest, CountsWhatAFullLineDidNotTakeAndBringsItLaterOrDropsItAtClosing) {
  const std::string much = everyByte(256 * 1024);
  port_->setPortOpen(true);
  port_->Output(much);
  line_.heard();  // Makes room, to which what waits already has the first right.
  port_->Output("end");
  EXPECT_GT(port_->OutBufferCount(), 100'000);
  EXPECT_LT(loadDuring(platform_, 200), 0.2);
  EXPECT_TRUE(runUntil([&] { return line_.heard() == much + "end"; }));
  EXPECT_EQ(port_->OutBufferCount(), 0);

  port_->Output(much);
  port_->setPortOpen(false);
  EXPECT_EQ(port_->OutBufferCount(), 0);
  EXPECT_EQ(openingError(), 0);
}

TEST_F(SerialPortTest, ReportsAVanishedDeviceOnceAndOpensTheOneThatComesBack) {
  for (const std::string moment : {"reading", "waiting", "writing", "idle"}) {
    SCOPED_TRACE(moment);
    const auto expectEndOfPort = [this] {
      EXPECT_TRUE(runUntil([this] { return !port_->PortOpen(); }));
    };
    Line line;
    home_.link(3, line.path);
    ASSERT_EQ(openingError(), 0);
    received_.clear();
    then_ = [&] {
      line.unplug();
      if (moment == "waiting") expectEndOfPort();
    };
    // Of three characters two are still to be delivered.
    const std::string last_words = moment == "reading" ? "abc" : moment == "waiting" ? "a" : "";
    if (moment == "writing") port_->Output(everyByte(256 * 1024));
    last_words.empty() ? then_() : void(line.send(last_words));
    expectEndOfPort();
    EXPECT_EQ(received_, last_words);
    EXPECT_EQ(fault_, 57);
    const int events = events_;
    EXPECT_LT(loadDuring(platform_, 200), 0.2);
    EXPECT_EQ(events_, events);
    EXPECT_EQ(faultNumber([this] { port_->Input(); }), 8018);
    EXPECT_EQ(openingError(), 8002);
  }
}

TEST_F(SerialPortTest, TellsTheWriterOfAVanishedDeviceAndForgetsItAtClosing) {
  port_->setPortOpen(true);
  line_.unplug();
  EXPECT_EQ(faultNumber([this] { port_->Output("x"); }), 57);
  port_->setPortOpen(false);
  loadDuring(platform_, 20);
  EXPECT_EQ(events_, 0);
}

TEST_F(SerialPortTest, SetsTheFormatOfTheLineAndLeavesItWhileTheLastBytesMayBeOnTheirWay) {
  Driver driver;
  constexpr unsigned kFormat = CREAD | CLOCAL | CBAUD | CSIZE | PARENB | PARODD | CSTOPB;
  port_->setSettings("57600");
  port_->setPortOpen(true);
  port_->setPortOpen(false);
  EXPECT_EQ(driver.flags_asked & kFormat, CREAD | CLOCAL | B57600 | CS8);
  EXPECT_EQ(line_.settings().c_cflag & CBAUD, unsigned{B57600});
}

TEST_F(SerialPortTest, RefusesARateThatTheHardwareLacksAndKeepsTheOneItHas) {
  Driver driver;
  driver.only_rate = 9600;
  port_->setSettings("230400");
  EXPECT_EQ(openingError(), 380);
  struct : SerialLink::Listener {
    void DecodeResponse() override {}
    void communicationsFailed() override {}
    void lineChanged() override {}
  } nobody;
  ChosenSettings fast;
  fast.baud = "230400";
  SerialLink link(
      platform_, [&]() -> LiveSettings& { return fast; }, nobody);
  link.openOnDemand();
  EXPECT_EQ(link.obstacle(), "This port can't do 230400 baud.");
  EXPECT_TRUE(link.PortAvailable(3)) << "at another rate";
  port_->setSettings("9600");
  EXPECT_EQ(openingError(), 0);
  EXPECT_EQ(faultNumber([this] { port_->setSettings("19200"); }), 380);
  EXPECT_EQ(port_->Settings(), "9600");
  EXPECT_EQ(line_.settings().c_cflag & CBAUD, unsigned{B9600});
  // Adapters that divide their clock.
  for (const auto& [asked, taken] :
       {std::pair{"57600", 57554U}, {"115200", 115385U}, {"230400", 230769U}}) {
    driver.only_rate = taken;
    EXPECT_NO_THROW(port_->setSettings(asked)) << asked;
  }
}

TEST_F(SerialPortTest, ClosesAStuckAdapterWithoutWaitingForIt) {
  port_->setPortOpen(true);
  port_->Output("x");
  Driver driver;
  driver.stuck = true;
  sigset_t alarm, before;
  sigemptyset(&alarm);
  sigaddset(&alarm, SIGALRM);
  sigprocmask(SIG_BLOCK, &alarm, &before);
  port_->setPortOpen(false);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(driver.interrupted_closings, 1);
}

TEST_F(SerialPortTest, GivesTheLineTimeForItsLastBytesBeforeItChangesTheRate) {
  port_->setPortOpen(true);
  port_->Output("/1b57600R\r");
  const auto arrived = std::chrono::steady_clock::now();
  port_->setPortOpen(false);
  port_->setSettings("57600");
  EXPECT_GE(std::chrono::steady_clock::now() - arrived, std::chrono::microseconds(10'400));
}

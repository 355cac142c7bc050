#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <QProcess>
#include <gtest/gtest.h>

#include "platform/qt/qt_platform.h"
#include "platform/runtime_error.h"
#include "support/config_home.h"
#include "support/real_time.h"

using namespace mvdirigo;

/// movane-sim, which links its units where the program's own ports look for them.
class MovaneSimTest : public ::testing::Test {
 protected:
  /// Starts it with the command `cat`, and returns when that runs, since then the links stand.
  void serve(const QStringList& arguments) {
    sim_.start(MOVANE_SIM, arguments + QStringList{"--", "cat"});
    sim_.write("x");
    ASSERT_TRUE(sim_.waitForReadyRead());
  }
  /// Lets the command run out of input and returns the exit code.
  int end() {
    sim_.closeWriteChannel();
    EXPECT_TRUE(sim_.waitForFinished());
    return sim_.exitCode();
  }
  /// The exit code of another one, which runs its command to the end.
  static int run(const QStringList& arguments) { return QProcess::execute(MOVANE_SIM, arguments); }
  bool linkExists(int port) const { return std::filesystem::is_symlink(home_.portLink(port)); }
  /// The first `length` bytes of the answer on a port, or as many as come in time.
  std::string ask(int comm_port, const std::string& rate, const std::string& bytes,
                  std::size_t length) {
    const auto port = platform_.makeSerialPort([] {});
    port->setCommPort(comm_port);
    port->setSettings(rate);
    port->setPortOpen(true);
    port->Output(bytes);
    std::string heard;
    runUntil(platform_, [&] {
      const bool open = skipOnError([&] { heard += port->Input(); });
      return !open || heard.size() >= length;
    });
    return heard;
  }

  ConfigHome home_;
  QtPlatform platform_;
  QProcess sim_;
};

TEST_F(MovaneSimTest, AnswersAtTheRateThatTheHostSet) {
  serve({"--unit", "port=3,address=1,baud=9600", "--unit",
         "port=5,address=:,protocol=oem,baud=57600", "--paced", "--fault", "other-rate-garbage"});
  EXPECT_EQ(ask(3, "19200", "/1&\r", 4).find('/'), std::string::npos) << "noise, no answer";
  const std::string version = "\xFF/0`Movane Stepper v7.02\x03\r\n";
  EXPECT_EQ(ask(3, "9600", "/1&\r", version.size()), version);
  EXPECT_EQ(ask(5, "57600", "\x02:2?2\x03\x04", 9), "\x02\x30`2000\x03S");
  EXPECT_EQ(end(), 0);
  EXPECT_FALSE(linkExists(3));
}

TEST_F(MovaneSimTest, TakesAnUpdateAndComparesItWithTheFile) {
  const std::string file = home_.path() / "image.zrf";
  for (const bool whole : {true, false}) {
    writeFile(file, whole ? "103A7abcdefgh" : "103A7abcdefgx");
    serve({"--check-image", file.c_str()});
    EXPECT_EQ(ask(1, "9600", "/1]40617\r", 1), "?");
    EXPECT_EQ(ask(1, "9600", "abcdef", 1), "\r");
    EXPECT_EQ(ask(1, "9600", "gh    ", 1), "\r");
    EXPECT_EQ(end(), whole ? 0 : 1);
  }
}

TEST_F(MovaneSimTest, ReturnsTheExitCodeOfTheCommandAndCleansUpAfterSignals) {
  EXPECT_EQ(run({"--", "sh", "-c", "exit 7"}), 7);
  EXPECT_EQ(run({"--", "/no/such/command"}), 127);
  for (const int signal : {SIGINT, SIGTERM}) {
    serve({});
    EXPECT_TRUE(linkExists(1));
    kill(static_cast<pid_t>(sim_.processId()), signal);
    EXPECT_TRUE(sim_.waitForFinished());
    EXPECT_EQ(sim_.exitCode(), 128 + signal);
    EXPECT_FALSE(linkExists(1));
  }
}

TEST_F(MovaneSimTest, ADeviceThatVanishesLeavesItsLinkDanglingAndMayComeBack) {
  const auto plugged_in = [this] { return std::filesystem::exists(home_.portLink(1)); };
  serve({"--fault", "vanish-at=5"});
  EXPECT_EQ(ask(1, "9600", "/1?0\r", 1), "");
  EXPECT_TRUE(runUntil(platform_, [&] { return !plugged_in(); }));
  EXPECT_EQ(run({"--", "true"}), 2) << "the link of another one";
  EXPECT_TRUE(linkExists(1));
  end();
  EXPECT_FALSE(linkExists(1));
  serve({"--fault", "vanish-at=5", "--return-after", "0"});
  EXPECT_EQ(ask(1, "9600", "/1?0\r", 1), "");
  EXPECT_TRUE(runUntil(platform_, plugged_in));
  EXPECT_EQ(ask(1, "9600", "/1?0\r", 8), "\xFF/0`0\x03\r\n");
}

TEST_F(MovaneSimTest, ReplacesOnlyLinksThatASimulatorLeftBehind) {
  const auto link = home_.portLink(1);
  for (const char* own : {"/dev/ttyUSB7", "/no/such/device", "/dev/null"}) {
    home_.link(1, own);
    EXPECT_EQ(run({"--", "true"}), 2) << own;
    EXPECT_EQ(std::filesystem::read_symlink(link), own);
  }
  std::filesystem::remove(link);
  std::filesystem::create_directory(link);
  EXPECT_EQ(run({"--", "true"}), 2);

  home_.link(1, "/dev/pts/999999");
  serve({});
  EXPECT_EQ(run({"--", "true"}), 2);
  EXPECT_EQ(ask(1, "9600", "/1?0\r", 8), "\xFF/0`0\x03\r\n");
}

TEST_F(MovaneSimTest, FreesAPortWhoseHostWasKilled) {
  serve({});
  const std::string link = home_.portLink(1);
  const int held = open(link.c_str(), O_RDWR | O_NOCTTY);
  const int other = open(link.c_str(), O_RDWR | O_NOCTTY);
  flock(held, LOCK_EX);
  ioctl(held, TIOCEXCL);
  close(other);
  loadDuring(platform_, 60);
  int exclusive = 0;
  ioctl(held, TIOCGEXCL, &exclusive);
  EXPECT_EQ(exclusive, 1) << "somebody uses it";
  close(held);
  const auto port = platform_.makeSerialPort([] {});
  port->setCommPort(1);
  EXPECT_TRUE(runUntil(platform_, [&] {
    return port->PortOpen() || skipOnError([&] { port->setPortOpen(true); });
  }));
}

TEST_F(MovaneSimTest, RefusesWrongOptions) {
  for (const auto& [wrong, why] :
       {std::pair("surplus", "The following argument was not expected: surplus\n"),
        std::pair("--seed=abc", "--seed: Value abc "),
        std::pair("--paced=no", "--paced: takes no value, but was given \"no\"\n"),
        std::pair("--unit=port=1,port=2", "--unit: \"port=2\": port was given before\n"),
        std::pair("--image-file=/no/such/folder/image", "can't write /no/such/folder/image\n"),
        std::pair("--links=/dev/null/x", "can't make the folder /dev/null/x: Not a directory\n")}) {
    sim_.start(MOVANE_SIM, {wrong, "--", "true"});
    EXPECT_TRUE(sim_.waitForFinished());
    EXPECT_EQ(sim_.exitCode(), 2) << wrong;
    const std::string told = sim_.readAllStandardError().toStdString();
    EXPECT_TRUE(told.starts_with(std::string("movane-sim: ") + why)) << told;
  }
  const std::string kept = home_.path() / "kept", fresh = home_.path() / "fresh";
  writeFile(kept, "image");
  EXPECT_EQ(run({"--image-file", kept.c_str(), "--", "true"}), 0);
  EXPECT_EQ(run({"--image-file", fresh.c_str(), "--", "true"}), 0);
  EXPECT_EQ(bytesOf(kept), "image");
  EXPECT_FALSE(std::filesystem::exists(fresh)) << "no image was received";
}

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

constexpr int kPatienceMs = 10'000;

std::string readSome(int fd) {
  pollfd polled{fd, POLLIN, 0};
  char buffer[4096];
  if (poll(&polled, 1, kPatienceMs) <= 0) return {};
  const ssize_t length = read(fd, buffer, sizeof buffer);
  return {buffer, static_cast<std::size_t>(length > 0 ? length : 0)};
}

/// movane-sim with its links in a folder of its own and its standard input and output in our hands.
class MovaneSim {
 public:
  explicit MovaneSim(std::vector<std::string> arguments) {
    if (pipe2(input_, O_CLOEXEC) != 0 || pipe2(output_, O_CLOEXEC) != 0) abort();
    arguments.insert(arguments.begin(), {MOVANE_SIM, "--links", folder_});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    process_ = fork();
    if (process_ == 0) {
      dup2(input_[0], STDIN_FILENO);
      dup2(output_[1], STDOUT_FILENO);
      execv(MOVANE_SIM, argv.data());
      _exit(126);
    }
    close(input_[0]);
    close(output_[1]);
  }
  ~MovaneSim() {
    if (process_ > 0) end();
    close(input_[1]);
    close(output_[0]);
    fs::remove_all(folder_);
  }

  /// Waits until the command `cat` runs in it, which is when the links stand.
  void awaitCommand() const {
    ASSERT_EQ(write(input_[1], "x", 1), 1);
    ASSERT_EQ(readSome(output_[0]), "x");
  }
  std::string output() const { return readSome(output_[0]); }
  /// Lets the command run out of input and returns the exit code.
  int end() {
    close(std::exchange(input_[1], -1));
    return await();
  }
  int endBySignal(int signal) {
    kill(process_, signal);
    return await();
  }
  fs::path link(int port) const { return folder_ + "/com" + std::to_string(port); }
  bool linkExists(int port) const { return fs::exists(fs::symlink_status(link(port))); }

 private:
  int await() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static std::string makeFolder() {
    std::string folder = fs::temp_directory_path() / "movane-sim-test-XXXXXX";
    return mkdtemp(folder.data());
  }

  std::string folder_ = makeFolder();
  int input_[2]{};
  int output_[2]{};
  pid_t process_ = 0;
};

/// A host's end of a line.
class Line {
 public:
  explicit Line(const fs::path& device) : fd_(open(device.c_str(), O_RDWR | O_NOCTTY)) {}
  ~Line() { close(fd_); }

  void setRate(speed_t rate) const {
    termios settings{};
    ASSERT_EQ(tcgetattr(fd_, &settings), 0);
    cfmakeraw(&settings);
    cfsetspeed(&settings, rate);
    ASSERT_EQ(tcsetattr(fd_, TCSANOW, &settings), 0);
  }
  /// The first `length` bytes of the answer, or as many as come in time.
  std::string ask(const std::string& bytes, std::size_t length) const {
    EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    std::string heard;
    while (heard.size() < length) {
      const std::string some = readSome(fd_);
      if (some.empty()) break;
      heard += some;
    }
    return heard;
  }

 private:
  int fd_;
};

TEST(MovaneSim, AnswersOnPseudoTerminalsAtTheRateThatTheHostSet) {
  MovaneSim sim({"--unit", "port=3,address=1,baud=9600", "--unit",
                 "port=5,address=:,protocol=oem,baud=57600", "--paced", "--fault",
                 "other-rate-garbage", "--", "cat"});
  sim.awaitCommand();
  const std::string version = "\xFF/0`Movane Stepper v7.02\x03\r\n";
  const Line first(sim.link(3));
  first.setRate(B19200);
  EXPECT_EQ(first.ask("/1&\r", 4).find('/'), std::string::npos) << "noise, no answer";
  first.setRate(B9600);
  EXPECT_EQ(first.ask("/1&\r", version.size()), version);
  const Line second(sim.link(5));
  second.setRate(B57600);
  EXPECT_EQ(second.ask("\x02:2?2\x03\x04", 9), "\x02\x30`2000\x03S");
  EXPECT_EQ(sim.end(), 0);
  EXPECT_FALSE(sim.linkExists(3));
}

TEST(MovaneSim, TakesAnUpdateAndComparesItWithTheFile) {
  const fs::path file = fs::temp_directory_path() / ("movane-sim-" + std::to_string(getpid()));
  for (const bool whole : {true, false}) {
    std::ofstream(file, std::ios::binary) << "103A7abcdef" << (whole ? "gh" : "gx");
    MovaneSim sim({"--check-image", file, "--", "cat"});
    sim.awaitCommand();
    const Line line(sim.link(1));
    line.setRate(B9600);
    EXPECT_EQ(line.ask("/1]40617\r", 1), "?");
    EXPECT_EQ(line.ask("abcdef", 1), "\r");
    EXPECT_EQ(line.ask("gh    ", 1), "\r");
    EXPECT_EQ(sim.end(), whole ? 0 : 1);
  }
  fs::remove(file);
}

TEST(MovaneSim, ReturnsTheExitCodeOfTheCommandAndCleansUpAfterSignals) {
  EXPECT_EQ(MovaneSim({"--", "sh", "-c", "exit 7"}).end(), 7);
  EXPECT_EQ(MovaneSim({"--", "/no/such/command"}).end(), 127);
  for (const int signal : {SIGINT, SIGTERM}) {
    MovaneSim sim({"--", "cat"});
    sim.awaitCommand();
    EXPECT_TRUE(sim.linkExists(1));
    EXPECT_EQ(sim.endBySignal(signal), 128 + signal);
    EXPECT_FALSE(sim.linkExists(1));
  }
}

TEST(MovaneSim, ADeviceThatVanishesTakesItsLinkAlongAndComesBack) {
  for (const bool returns : {false, true}) {
    std::vector<std::string> arguments = {"--fault", "vanish-at=5", "--", "cat"};
    if (returns) arguments.insert(arguments.begin(), {"--return-after", "0"});
    MovaneSim sim(arguments);
    sim.awaitCommand();
    const Line vanishing(sim.link(1));
    EXPECT_EQ(vanishing.ask("/1?0\r", 1), "") << "a hang-up reads as the end";
    for (int ms = 0; returns && !sim.linkExists(1) && ms < kPatienceMs; ++ms) poll(nullptr, 0, 1);
    ASSERT_EQ(sim.linkExists(1), returns);
    if (returns) {
      EXPECT_EQ(Line(sim.link(1)).ask("/1?0\r", 8), "\xFF/0`0\x03\r\n");
    }
  }
}

TEST(MovaneSim, ExplainsItselfAndRefusesWrongOptions) {
  MovaneSim help({"--help"});
  EXPECT_NE(help.output().find("--check-image"), std::string::npos);
  EXPECT_EQ(help.end(), 0);
  for (const std::vector<std::string>& wrong :
       std::vector<std::vector<std::string>>{{"--bogus"},
                                             {"surplus"},
                                             {"--unit", "port=17"},
                                             {"--unit", "baud=300"},
                                             {"--unit", "address=12"},
                                             {"--unit", "id=XYZ"},
                                             {"--unit", "colour=red"},
                                             {"--fault", "loud"},
                                             {"--seed", "x"},
                                             {"--check-image", "/no/such/file"},
                                             {"--unit", "port=2", "--unit", "port=2"}}) {
    EXPECT_EQ(MovaneSim(wrong).end(), 2) << wrong.back();
  }
}

}  // namespace
}  // namespace mvdirigo

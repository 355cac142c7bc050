#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/qt/qt_event_loop.h"
#include "platform/qt/qt_serial_port.h"
#include "simulator/program/pty.h"
#include "support/config_home.h"
#include "support/fault_number.h"
#include "support/files.h"

using namespace mvdirigo;

/// A port on devices and lock files of the test's own.
class PortDevicesTest : public ::testing::Test {
 protected:
  PortDevicesTest() {
    std::filesystem::create_directories(folder_.path / "serial/by-id");
    std::filesystem::create_directories(locks_);
    port_.setCommPort(5);
    link("ttyUSB0", line_.path());
  }
  void link(const std::string& name, const std::filesystem::path& target) const {
    std::filesystem::remove(folder_.path / name);
    std::filesystem::create_symlink(target, folder_.path / name);
  }
  void unlink(const std::string& name) const { std::filesystem::remove(folder_.path / name); }
  /// Opens the port and closes it again; the device that it was, or the fault's number.
  std::string opened() {
    const int fault = faultNumber([this] { port_.setPortOpen(true); });
    if (fault != 0) return std::to_string(fault);
    port_.setPortOpen(false);
    return devices_.describe(5).device;
  }
  std::filesystem::path lockFile() const {
    return locks_ / ("LCK..pts_" + line_.path().substr(std::string("/dev/pts/").size()));
  }

  ConfigHome home_;
  TemporaryFolder folder_;
  std::filesystem::path locks_ = folder_.path / "locks";
  PortDevices devices_{{folder_.path, locks_}};
  QtEventLoop loop_;
  LineTraffic traffic_;
  QtSerialPort port_{devices_, loop_, traffic_, [] {}};
  const Pty line_, other_line_;
};

TEST_F(PortDevicesTest, FindsAnAdapterThatCameBackUnderAnotherName) {
  link("serial/by-id/usb-adapter", "../../ttyUSB0");
  EXPECT_EQ(opened(), line_.path());
  unlink("ttyUSB0");
  EXPECT_EQ(opened(), "8002");
  link("ttyUSB1", other_line_.path());
  link("serial/by-id/usb-adapter", "../../ttyUSB1");
  link("ttyUSB0", line_.path());
  EXPECT_EQ(opened(), other_line_.path()) << "though another adapter has its place";
  unlink("serial/by-id/usb-adapter");
  EXPECT_EQ(opened(), "8002");
  devices_.forgetLinks();
  EXPECT_EQ(opened(), line_.path());
  std::filesystem::create_directories(home_.portLink(5).parent_path().parent_path());
  std::filesystem::create_directory_symlink("ports", home_.portLink(5).parent_path());
  EXPECT_EQ(opened(), "8002") << "links that can't be looked at";
}

TEST_F(PortDevicesTest, KeepsItsLockFileOverAReopeningAndRemovesItAtTheEnd) {
  port_.setPortOpen(true);
  EXPECT_EQ(std::stoi(bytesOf(lockFile())), getpid());
  const std::filesystem::path same_file = folder_.path / "lock";
  std::filesystem::create_hard_link(lockFile(), same_file);
  port_.reopen();
  EXPECT_TRUE(std::filesystem::equivalent(lockFile(), same_file));
  QtSerialPort second(devices_, loop_, traffic_, [] {});
  second.setCommPort(5);
  EXPECT_EQ(faultNumber([&] { second.setPortOpen(true); }), 8005);
  EXPECT_EQ(devices_.describe(5).obstacle, "It is in use by this program.");
  port_.setPortOpen(false);
  EXPECT_FALSE(std::filesystem::exists(lockFile()));
  port_.setPortOpen(true);
  std::filesystem::remove(lockFile());
  writeFile(lockFile(), "another program's");
  port_.setPortOpen(false);
  EXPECT_TRUE(std::filesystem::exists(lockFile()));
}

TEST_F(PortDevicesTest, HonoursLockFilesOfOthersAndTakesWhatEndedProgramsLeft) {
  const auto expectRefusal = [this](const std::string& obstacle) {
    EXPECT_EQ(opened(), "8005");
    EXPECT_TRUE(devices_.describe(5).obstacle.starts_with(obstacle)) << obstacle;
  };
  const pid_t alive = getppid();
  const pid_t ended = fork();
  if (ended == 0) _exit(0);
  waitpid(ended, nullptr, 0);

  writeFile(lockFile(), "      " + std::to_string(alive) + "\n");
  expectRefusal("It is in use by the program ");
  writeFile(lockFile(), std::string(reinterpret_cast<const char*>(&alive), sizeof alive));
  expectRefusal("It is in use by the program ");
  writeFile(lockFile(), "");
  expectRefusal("Its lock file doesn't tell who uses it. If no program uses the port, remove " +
                lockFile().string());
  // These would hold an opening up, or lead it elsewhere.
  for (const auto& make : {+[](const char* name) { return mkfifo(name, 0600); },
                           +[](const char* name) { return symlink("/proc/self/stat", name); }}) {
    std::filesystem::remove(lockFile());
    ASSERT_EQ(make(lockFile().c_str()), 0);
    expectRefusal("What stands in place of its lock file is none.");
  }
  std::filesystem::remove(lockFile());
  EXPECT_EQ(devices_.describe(5).obstacle, "") << "that is over";

  for (const pid_t left : {ended, getpid()}) {
    writeFile(lockFile(), std::to_string(left) + "\n");
    EXPECT_EQ(opened(), line_.path());
  }
}

TEST_F(PortDevicesTest, LeavesALockFileAloneThatAnotherProgramIsReplacing) {
  writeFile(lockFile(), "2147483647\n");
  const int other = open(lockFile().c_str(), O_RDONLY);
  flock(other, LOCK_EX);
  EXPECT_EQ(opened(), "8005");
  EXPECT_TRUE(std::filesystem::exists(lockFile()));
  close(other);
  EXPECT_EQ(opened(), line_.path());
}

TEST_F(PortDevicesTest, NamesALockFileThatCanNotBeWritten) {
  PortDevices devices({folder_.path, "/sys"});
  EXPECT_EQ(faultNumber([&] { return devices.take(5, {}); }), 70);
  EXPECT_EQ(devices.describe(5).obstacle.find("Its lock file /sys/LCK..pts_"), 0U);
}

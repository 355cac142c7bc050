#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include <gtest/gtest.h>

#include "console/command_file.h"
#include "console/recorder.h"
#include "support/fault_number.h"
#include "support/files.h"
#include "support/virtual_test.h"

using namespace mvdirigo;
namespace fs = std::filesystem;

constexpr int kTickMs = 50;

struct RecorderTest : VirtualTest, Recorder::Bar {
  void setBarCaption(int, const std::string&) override {}
  void enableBarButton(int, bool) override {}
  void activityChanged() override {}
  void pressRow(int row) override {
    const auto now = (platform_.now() - start) / std::chrono::milliseconds(kTickMs);
    pressed += std::to_string(now) + ":" + std::to_string(row) + " ";
    recorder.recordPress(row);
    std::exchange(inside_press, [] {})();
  }
  const WindowLife& life() const override { return window; }

  void tick(int ticks) { platform_.runFor(ticks * kTickMs); }
  /// The presses, as "tick:row", of the first `ticks` ticks after a click on one of the buttons.
  std::string played(int ticks, void (Recorder::*click)() = &Recorder::clickPlayback) {
    pressed.clear();
    start = platform_.now();
    (recorder.*click)();
    tick(ticks);
    return pressed;
  }
  WindowLife window;
  std::function<void()> inside_press = [] {};
  std::string pressed;
  SimTime start = platform_.now();
  Recorder recorder{platform_, *this};
};

TEST_F(RecorderTest, EndsAFullRecordingAtThePressThatHasNoRow) {
  recorder.clickRecord();
  for (int press = 0; press < 500; ++press) {
    tick(1);
    pressRow(press % 25);
  }
  tick(40000);
  expectBox("The recording is full: it holds 500 presses. It has been stopped.", box::kInformation);
  recorder.recordPress(7);
  EXPECT_FALSE(recorder.Recording());
  EXPECT_TRUE(played(33268, &Recorder::clickPlayEndless).ends_with(" 499:23 500:24 33268:0 "))
      << "the end entry's ticks, as many as it counts, and one";
  recorder.clickPlayback();
  recorder.clickRecord();
  EXPECT_EQ(recorder.table().delay(499).number(), 0);
  EXPECT_EQ(recorder.table().delay(500).number(), 32767) << "a start leaves the last row as it is";
}

TEST_F(RecorderTest, LeavesWhatTheBarDidInsideAPressAlone) {
  recorder.clickRecord();
  for (const int row : {0, 1, 2}) tick(3), pressRow(row);
  tick(5);
  recorder.clickRecord();
  const auto playWith = [this](std::function<void()> action) {
    inside_press = std::move(action);
    return played(200);
  };
  EXPECT_EQ(playWith([this] { recorder.clickPlayback(); }), "1:0 ") << "stopped";
  EXPECT_EQ(playWith([this] { recorder.clickPlayback(), recorder.clickPlayback(); }),
            "1:0 2:0 5:1 8:2 ");
  EXPECT_EQ(playWith([this] { tick(100); }), "1:0 104:1 107:2 ") << "waited for the user";
  playWith([this] { window.leave(); });
  EXPECT_EQ(recorder.StepIndex(), 0) << "the window went away";
}

struct CommandFileTest : testing::Test {
  /// A file of 1,025 lines, which are `lines`, then `rest`.
  static std::string fileOf(std::vector<std::string> lines, const std::string& rest) {
    lines.resize(1025, rest);
    std::string bytes;
    for (const std::string& line : lines) bytes += line + "\r\n";
    return bytes;
  }
  /// Writing and reading return the fault's number, 0 for none.
  int write(const fs::path& file) const {
    const auto string_to_send = [this](int row) { return strings[static_cast<unsigned>(row)]; };
    return faultNumber([&] { writeCommandFile(file.string(), string_to_send, table); });
  }
  int read(const fs::path& file) {
    taken = 0;
    const auto take_string = [this](int row, const std::string& text) {
      EXPECT_EQ(row, taken++);
      strings.at(static_cast<unsigned>(row)) = text;
    };
    return faultNumber([&] { readCommandFile(file.string(), take_string, table); });
  }
  int readBytes(const std::string& bytes) {
    writeFile(path, bytes);
    return read(path);
  }

  TemporaryFolder temporary;
  fs::path path = temporary.path / "file";
  std::array<std::string, kCommandFileStrings> strings;
  RecordTable table;
  int taken = 0;
};

TEST_F(CommandFileTest, SavesNumbersBareAndEveryLoadedCellInQuotes) {
  strings = {"/1A1,2R", "\"", "say \"hi\"", "\u00E9\u20AC"};
  table.setButton(0, Cell::ofNumber(24));
  table.setDelay(0, Cell::ofNumber(7));
  table.setButton(1, Cell::ofText(""));
  writeFile(path, std::string(9000, 'x'));
  write(path);
  std::vector<std::string> lines{R"("/1A1,2R")", R"("""")", R"("say ""hi""")", "\"\u00E9\u20AC\""};
  lines.resize(25, R"("")");
  lines.insert(lines.end(), {"24", "7", R"("")"});
  EXPECT_EQ(bytesOf(path), fileOf(lines, ""));
  lines[25] = R"("24")";
  lines[26] = R"("7")";
  EXPECT_EQ(read(path), 0);
  write(path);
  EXPECT_EQ(bytesOf(path), fileOf(lines, R"("")")) << "the second time";
}

TEST_F(CommandFileTest, ReadsWhatEditorsMakeOfIt) {
  std::string by_hand = bytesOf(MVDIRIGO_TEST_DATA "/by-hand.txt");
  for (int row = 0; row < 500; ++row) by_hand += "1,4\n";
  ASSERT_EQ(readBytes(by_hand + "\"more\",ignored\n"), 0);
  const std::vector<std::string> start(strings.begin(), strings.begin() + 7);
  EXPECT_EQ(start, (std::vector<std::string>{"/1A100R", "/2A200R", "/3 \"lone\" quote",
                                             "/4 un\"quoted", "/5\r\nsecond line", "", "/7"}));
  EXPECT_EQ(strings[8] + strings[9] + strings[10], "/9/10/11 \" \n") << "blanks behind a quote";
  EXPECT_EQ(table.button(499).number(), 1);
  EXPECT_EQ(table.delay(499).number(), 4);
  EXPECT_EQ(readBytes("a,"), 62);
  EXPECT_EQ(taken, 2) << "a comma has a field on both sides";
  for (const std::string malformed : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3"}) {
    readBytes("\xC3\xA9\r\n" + malformed + "\r\n");
    EXPECT_EQ(strings[0], "\u00C3\u00A9") << "one field that is not UTF-8 decides for all";
  }
}

TEST_F(CommandFileTest, RefusesAtOnceWhatItCantReadOrWrite) {
  writeFile(path, "\"");
  fs::resize_file(path, std::uintmax_t{1} << 40);
  EXPECT_EQ(read(path), 6) << "a line of 1 TiB";
  fs::permissions(path, fs::perms::none);
  const int forbidden = ::geteuid() == 0 ? 0 : 70;
  const fs::path folder = temporary.path, pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const std::tuple<fs::path, int, int> cases[] = {
      {pipe, 75, 75},        {folder, 75, 75},     {folder / "none" / "file", 53, 53},
      {"/dev/full", 61, 75}, {"/dev/zero", 0, 75}, {path, forbidden, forbidden}};
  for (const auto& [file, written, taken_in] : cases) {
    EXPECT_EQ(write(file), written) << file;
    EXPECT_EQ(read(file), taken_in) << file;
  }
}

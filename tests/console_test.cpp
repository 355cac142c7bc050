#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "console/command_file.h"
#include "console/recorder.h"
#include "platform/runtime_error.h"
#include "support/fault_number.h"
#include "support/files.h"
#include "support/virtual_test.h"

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

constexpr int kTickMs = 50;

using Presses = std::vector<std::pair<int, int>>;  // (tick, row)

struct RecorderTest : VirtualTest, Recorder::Bar {
  void setBarCaption(int, const std::string&) override {}
  void enableBarButton(int, bool) override {}
  void pressRow(int row) override {
    pressed.emplace_back(now(), row);
    recorder.recordPress(row);
    if (inside_press) std::exchange(inside_press, nullptr)();
  }
  const WindowLife& life() const override { return window; }

  void tick(int ticks = 1) { platform_.runFor(ticks * kTickMs); }
  int now() const {
    return static_cast<int>((platform_.now() - start) / std::chrono::milliseconds(kTickMs));
  }
  /// Forgets the presses so far, and counts ticks from here.
  void startOver() {
    pressed.clear();
    start = platform_.now();
  }
  /// Records presses of the rows 0, 1, 2, ..., each `delays[i]` ticks after the one before.
  void record(const std::vector<int>& delays, int end_delay) {
    recorder.clickRecord();
    for (int row = 0; const int delay : delays) {
      tick(delay);
      pressRow(row++);
    }
    tick(end_delay);
    recorder.clickRecord();
    startOver();
  }
  /// Puts loaded fields into the table: button, delay, button, delay, ...
  void load(const std::vector<std::string>& fields) {
    for (int cell = 0; const std::string& text : fields) {
      const auto set = cell % 2 == 0 ? &RecordTable::setButton : &RecordTable::setDelay;
      (recorder.table().*set)(cell++ / 2, Cell::ofText(text));
    }
  }

  WindowLife window;
  std::function<void()> inside_press;
  Presses pressed;
  SimTime start = platform_.now();
  Recorder recorder{platform_, *this};
};

TEST_F(RecorderTest, PlaysWithTheRecordedDistancesFromTheFirstTickOn) {
  const auto played = [this](const std::vector<int>& delays) {
    record(delays, 45);
    recorder.clickPlayback();
    tick(40000);
    EXPECT_FALSE(recorder.Playing());
    return pressed;
  };
  EXPECT_EQ(played({99, 1, 7, 2, 300}), (Presses{{1, 0}, {2, 1}, {9, 2}, {11, 3}, {311, 4}}));
  EXPECT_EQ(recorder.table().button(5).text(), "");
  EXPECT_EQ(recorder.table().delay(5).number(), 45);
  EXPECT_EQ(played({5}), (Presses{{1, 0}})) << "a recording replaces the one before";
  EXPECT_EQ(played({1, 2, 0, 2}), (Presses{{1, 0}, {3, 1}})) << "cut at a delay of 0";
  EXPECT_EQ(played({1, 40000}), (Presses{{1, 0}, {32768, 1}})) << "a pause past the largest count";
}

TEST_F(RecorderTest, PausesForTheEndEntryAndOneTickAfterEveryEndlessCycleOfADay) {
  record({5, 3}, 4);
  recorder.clickPlayEndless();
  constexpr int kTicksOfADay = 24 * 60 * 60 * 20;
  while (now() < kTicksOfADay) {
    pressed.clear();
    tick(8);
    ASSERT_EQ(pressed, (Presses{{now() - 7, 0}, {now() - 4, 1}}));
  }
  recorder.clickPlayback();
  startOver();
  recorder.clickPlayback();
  tick(50);
  EXPECT_EQ(pressed, (Presses{{1, 0}, {4, 1}})) << "a stop ends the endless mode too";
}

TEST_F(RecorderTest, EndsOnTheFirstTickWhenNothingWasRecorded) {
  for (const char* recorded : {"never", "no press"}) {
    recorder.clickPlayback();
    tick();
    EXPECT_FALSE(recorder.Playing()) << recorded;
    record({}, 30);
  }
  recorder.clickPlayEndless();
  tick(100);
  EXPECT_TRUE(recorder.Playing());
  EXPECT_TRUE(pressed.empty());
}

TEST_F(RecorderTest, KeepsItsCountersAtAStopAndStartsAfresh) {
  record({1, 10, 10}, 5);
  recorder.clickPlayback();
  tick(4);
  recorder.clickPlayEndless();
  EXPECT_FALSE(recorder.Playing()) << "while it plays, a stop like the other";
  tick(30);
  EXPECT_EQ(recorder.StepIndex(), 1);
  EXPECT_EQ(recorder.TickCount(), 6);
  recorder.clickPlayback();
  tick(100);
  EXPECT_EQ(pressed, (Presses{{1, 0}, {35, 0}, {45, 1}, {55, 2}}));
}

TEST_F(RecorderTest, TogglesARecordingOverWhatTheTableHolds) {
  record({5, 5}, 5);
  recorder.clickPlayback();
  recorder.toggleRecording();
  EXPECT_TRUE(recorder.Recording() && !recorder.Playing());
  tick(3);
  pressRow(7);
  recorder.toggleRecording();
  EXPECT_FALSE(recorder.Recording());
  EXPECT_EQ(recorder.table().button(0).text() + "," + recorder.table().delay(0).text(), "7,3");
  EXPECT_EQ(recorder.table().button(1).text(), "1") << "neither cleared nor ended";
}

TEST_F(RecorderTest, EndsAFullRecordingAtThePressThatHasNoRow) {
  recorder.clickRecord();
  for (int press = 0; press < 500; ++press) {
    tick();
    pressRow(press % 25);
  }
  EXPECT_TRUE(recorder.Recording());
  tick(3);
  platform_.script().expectBox("The recording is full: it holds 500 presses. It has been stopped.",
                               box::kInformation);
  recorder.recordPress(7);
  EXPECT_FALSE(recorder.Recording());
  startOver();
  recorder.clickPlayEndless();
  tick(504);
  ASSERT_EQ(pressed.size(), 501U);
  EXPECT_EQ(pressed[499], std::make_pair(500, 24));
  EXPECT_EQ(pressed[500], std::make_pair(504, 0)) << "the end entry's 3 ticks and one";
  recorder.clickPlayback();
  recorder.clickRecord();
  EXPECT_EQ(recorder.table().delay(499).number(), 0);
  EXPECT_EQ(recorder.table().delay(500).number(), 3) << "a start leaves the last row as it is";
}

TEST_F(RecorderTest, PlaysLoadedTextUntilACellIsNoNumber) {
  load({"3", "", " 50 ", "2", "", "5", "0", "0"});
  recorder.clickPlayback();
  tick(50);
  EXPECT_EQ(pressed, (Presses{{1, 3}, {3, 50}}));
  const std::vector<std::pair<std::vector<std::string>, std::string>> broken{
      {{"3", "0", "abc", "2"}, "13 :: Type mismatch"},
      {{"3", "0", "4", "abc"}, "13 :: Type mismatch"},
      {{"3", "0", "4", ""}, "13 :: Type mismatch"},
      {{"3", "0", "51", "2"}, "9 :: Subscript out of range"},
      {{"3", "0", "-1", "2"}, "9 :: Subscript out of range"},
      {{"3", "0", "4", "32768"}, "6 :: Overflow"},
      {{"3", "0"}, "0 :: torn"}};
  for (const auto& [fields, fault] : broken) {
    startOver();
    load(fields);
    if (fields.size() == 2) inside_press = [] { throw std::runtime_error("torn"); };
    platform_.script().expectBox("RecordPlayTimer_Timer() Error #: " + fault, box::kOkOnly);
    recorder.clickPlayEndless();
    tick(50);
    EXPECT_EQ(pressed.size(), 1U);
    EXPECT_FALSE(recorder.Playing() || recorder.PlayEndless());
  }
}

TEST_F(RecorderTest, LeavesWhatTheBarDidInsideAPressAlone) {
  record({1, 3, 3}, 5);
  const auto playWith = [this](std::function<void()> action) {
    startOver();
    inside_press = std::move(action);
    recorder.clickPlayback();
    tick(200);
  };
  playWith([this] { recorder.clickPlayback(); });
  EXPECT_EQ(pressed.size(), 1U) << "stopped";
  EXPECT_EQ(recorder.StepIndex(), 0);
  playWith([this] {
    recorder.clickPlayback();
    recorder.clickPlayback();
  });
  EXPECT_EQ(pressed, (Presses{{1, 0}, {2, 0}, {5, 1}, {8, 2}})) << "started again";
  playWith([this] { tick(100); });
  EXPECT_EQ(pressed, (Presses{{1, 0}, {104, 1}, {107, 2}})) << "waited for the user";
  playWith([this] { window.leave(); });
  EXPECT_EQ(recorder.StepIndex(), 0) << "the window went away";
}

struct CommandFileTest : testing::Test {
  static fs::path sample(const std::string& name) { return fs::path(MVDIRIGO_TEST_DATA) / name; }
  /// A file of 1,025 lines, which are `lines`, then `rest`.
  static std::string fileOf(std::vector<std::string> lines, const std::string& rest) {
    lines.resize(1025, rest);
    std::string bytes;
    for (const std::string& line : lines) bytes += line + "\r\n";
    return bytes;
  }
  /// Writing and reading return the fault's number, 0 for none.
  int write(const fs::path& file) const {
    const auto string_to_send = [this](int row) { return strings.at(index(row)); };
    return faultNumber([&] { writeCommandFile(file.string(), string_to_send, table); });
  }
  int read(const fs::path& file) {
    taken = 0;
    const auto take_string = [this](int row, const std::string& text) {
      EXPECT_EQ(row, taken++);
      strings.at(index(row)) = text;
    };
    return faultNumber([&] { readCommandFile(file.string(), take_string, table); });
  }
  int readBytes(const std::string& bytes) {
    writeFile(path, bytes);
    return read(path);
  }
  static std::size_t index(int row) { return static_cast<std::size_t>(row); }

  TemporaryFolder temporary;
  fs::path folder = temporary.path;
  fs::path path = folder / "file";
  std::array<std::string, kCommandFileStrings> strings;
  RecordTable table;
  int taken = 0;
};

TEST_F(CommandFileTest, SavesNumbersBareAndEveryLoadedCellInQuotes) {
  strings = {"/1A1,2R", "\"", "say \"hi\"", "\u00E9\u20AC"};
  table.setButton(0, Cell::ofNumber(24));
  table.setDelay(0, Cell::ofNumber(7));
  table.setButton(1, Cell::ofText(""));
  write(path);
  std::vector<std::string> lines{R"("/1A1,2R")", R"("""")", R"("say ""hi""")", "\"\u00E9\u20AC\""};
  lines.resize(25, R"("")");
  lines.insert(lines.end(), {"24", "7", R"("")"});
  EXPECT_EQ(bytesOf(path), fileOf(lines, ""));
  lines[25] = R"("24")";
  lines[26] = R"("7")";
  for (const int save : {2, 3}) {
    EXPECT_EQ(read(path), 0);
    write(path);
    EXPECT_EQ(bytesOf(path), fileOf(lines, R"("")")) << save;
  }
}

TEST_F(CommandFileTest, BringsBackEveryString) {
  strings = {"", "\"", "\",\"", "a\r\nb", "\r", " blanks ", "\"\r\n\"", "\uFEFFmark", "\U0001F600"};
  strings[9] = std::string("nul\0nul", 7);
  strings[10] = std::string(65536, '"');
  table.setDelay(0, Cell::ofText("abc, \"def\""));
  const auto written = strings;
  write(path);
  EXPECT_EQ(read(path), 0);
  EXPECT_EQ(strings, written);
  EXPECT_EQ(table.delay(0).text(), "abc, \"def\"");
  EXPECT_THROW(table.delay(1).number(), RuntimeError) << "an empty line gives empty text";
}

TEST_F(CommandFileTest, ReadsWhatEditorsMakeOfIt) {
  std::string by_hand = bytesOf(sample("by-hand.txt"));
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
  ASSERT_EQ(readBytes(fileOf({"\"/1\xE9 \xB5\""}, "")), 0);
  EXPECT_EQ(strings[0], "/1\u00E9 \u00B5");
  for (const std::string malformed : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3"}) {
    readBytes("\xC3\xA9\r\n" + malformed + "\r\n");
    EXPECT_EQ(strings[0], "\u00C3\u00A9") << "one field that is not UTF-8 decides for all";
  }
}

TEST_F(CommandFileTest, KeepsWhatWasReadBeforeAFailure) {
  strings.fill("old");
  EXPECT_EQ(read(sample("binary.bin")), 62);
  EXPECT_EQ(readBytes(""), 62);
  EXPECT_EQ(strings[24], "old");
  EXPECT_EQ(readBytes("a\r\n" + std::string(65537, 'x') + "\r\n"), 6);
  EXPECT_EQ(taken, 1);
  EXPECT_EQ(readBytes("\"/1A1\"\r\n\"/1A10"), 62);
  EXPECT_EQ(taken, 1) << "a string cut off in its middle is not taken";

  const std::string whole = fileOf({}, "4");
  table.setDelay(499, Cell::ofNumber(77));
  EXPECT_EQ(readBytes(whole.substr(0, whole.size() - 3)), 62) << "the last line is missing";
  EXPECT_EQ(table.button(2).number(), 4);
  EXPECT_EQ(table.delay(499).number(), 77);
  EXPECT_EQ(readBytes(whole.substr(0, whole.size() - 2)), 0) << "only its line end is missing";
  EXPECT_EQ(readBytes(whole + "\"more"), 0);
}

TEST_F(CommandFileTest, RefusesAtOnceWhatItCantReadOrWrite) {
  writeFile(path, "\"");
  fs::resize_file(path, std::uintmax_t{1} << 40);
  EXPECT_EQ(read(path), 6) << "a line of 1 TiB";
  const fs::path pipe = folder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const fs::path& no_file : {pipe, folder}) {
    EXPECT_EQ(read(no_file), 75) << no_file;
    EXPECT_EQ(write(no_file), 75) << no_file;
  }
  EXPECT_EQ(read("/dev/zero"), 75);
  EXPECT_EQ(read(folder / "none"), 53);
  EXPECT_EQ(write(folder / "none" / "file"), 53);
  EXPECT_EQ(write("/dev/full"), 61);
  EXPECT_EQ(write("/dev/null"), 0);
  fs::permissions(path, fs::perms::none);
  const int forbidden = ::geteuid() == 0 ? 0 : 70;
  EXPECT_EQ(write(path), forbidden);
  EXPECT_EQ(read(path), forbidden);
}

}  // namespace
}  // namespace mvdirigo

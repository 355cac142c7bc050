#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/runtime_error.h"
#include "simulator/simulated_bus.h"
#include "support/virtual_test.h"
#include "update/controller_version.h"
#include "update/firmware_update.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// A simulated unit of which a test can replace answers, and a record of what it heard.
class Unit : public SimulatedLine {
 public:
  Unit(const UnitOptions& unit, const BusOptions& bus) : bus_({unit}, bus) {}

  /// By the command without slash, address and carriage return; an empty answer is none.
  std::map<std::string, std::string> answers = {{"\xAA", "\r"}};
  /// What came at each rate, pieces left out.
  std::vector<std::pair<int, std::string>> heard;

  SimulatedUnit& model() { return bus_.unit(0); }

  void receive(char byte, int host_baud, SimTime now) override {
    if (model().updating()) return bus_.receive(byte, host_baud, now);
    if (heard.empty() || heard.back().first != host_baud) heard.emplace_back(host_baud, "");
    heard.back().second += byte;
    if (byte == '/') command_.clear();
    command_ += byte;
    const bool wake = byte == '\xAA';
    const auto answer = answers.find(wake           ? "\xAA"
                                     : byte == '\r' ? command_.substr(2, command_.size() - 3)
                                                    : "");
    // A model that never hears the carriage return does not answer.
    if (answer == answers.end()) return bus_.receive(byte, host_baud, now);
    for (const char c : answer->second) said_.emplace_back(now += byteTime(host_baud), c);
  }
  std::optional<SimTime> nextEvent() const override {
    return said_.empty() ? bus_.nextEvent() : said_.front().first;
  }
  std::string advance(SimTime now, int host_baud) override {
    std::string bytes = bus_.advance(now, host_baud);
    for (; !said_.empty() && said_.front().first <= now; said_.pop_front()) {
      bytes += said_.front().second;
    }
    return bytes;
  }
  bool vanished() const override { return bus_.vanished(); }

 private:
  SimulatedBus bus_;
  std::string command_;
  std::deque<std::pair<SimTime, char>> said_;
};

/// The dialog: keeps what it was told, and notices being touched after it left.
class DialogDouble : public FirmwareUpdate::Window {
 public:
  WindowLife life;
  std::vector<std::string> statuses = {"Status: None"};
  std::string spinner;
  std::string spins;
  std::string traffic;
  std::vector<int> steps;
  bool update_enabled = false;
  bool pause_enabled = false;
  bool pause_was_enabled = false;
  bool enlarged = false;
  bool verbose_checked = false;
  int unit = 1;
  std::string baud = "57600";
  std::function<void(const std::string&)> on_status;

  bool verbose() override { return verbose_checked; }
  void printTraffic(const std::string& bytes) override { touch(), traffic += "[" + bytes + "]"; }
  void setStatus(const std::string& text) override {
    touch();
    statuses.push_back(text);
    if (on_status) on_status(text);
  }
  void setSpinner(const std::string& text) override { touch(), spinner = text, spins += text; }
  int progress() override { return steps.back(); }
  void setProgress(int percent) override { touch(), steps.push_back(percent); }
  void enableUpdate(bool enabled) override { touch(), update_enabled = enabled; }
  void enlarge() override { touch(), enlarged = true; }
  void enablePause(bool enabled) override {
    touch(), pause_enabled = enabled, pause_was_enabled |= enabled;
  }
  int unitNumber() override { return unit; }
  std::string baudText() override { return baud; }
  void selectFirstBaud() override { touch(), baud = "9600"; }

 private:
  void touch() const { EXPECT_FALSE(life.leaving()) << "touched after it left"; }
};

class Chosen : public LiveSettings {
 public:
  std::string port = "3", baud = "9600", timeout = "1000";

  std::string CommPortSetting() override { return port; }
  std::string BaudRate() override { return baud; }
  bool DTProtocol() override { return true; }
  bool OEMProtocol() override { return false; }
  std::string MaxStrings() override { return "11"; }
  std::string RCVTimeout() override { return timeout; }
  bool searching() override { return false; }
  void setResponseString(const std::string&) override {}
  void stopScanTimer() override {}
};

const std::string kConfirm =
    "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial bus.\r\n"
    "- Terminate connections for high baud rates.\r\n\r\n"
    "- DO NOT POWER OFF DEVICE until update is complete.";
const std::string kUnable = "Unable to validate ZRF file!";
const std::string kWrongModel =
    "This ZRF update file does not work with this stepper model or this model can not be field "
    "upgraded.";
const std::string kFailedUnit =
    "Unable to validate file for this controller state.\r\r"
    "The controller has not passed self-validation.\rTake care to ensure this is the correct "
    "update for this particular stepper controller.";
const std::string kPieceTimeout = " 5 Timeout waiting for response, Exiting";
const std::string kLineTimeout = "Status: Timeout. No Movane detected.";

// Sanitizers take their time.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kPieceStride = 37;
#else
constexpr int kPieceStride = 1;
#endif

struct Box {
  std::string text;
  int style;
  BoxButton answer = BoxButton::kOk;
};

std::string bytes(std::size_t count) {
  std::string text(count, '\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

BusOptions withFaults(const std::vector<LineFault>& faults) {
  BusOptions options;
  options.faults = faults;
  return options;
}

class UpdateTest : public VirtualTest {
 protected:
  UpdateTest() {
    char folder[] = "/tmp/mvdirigo-update-XXXXXX";
    folder_ = ::mkdtemp(folder);
    file_ = folder_ / "image.zrf";
    openDialog();
  }
  ~UpdateTest() override { fs::remove_all(folder_); }

  void plugUnit(const UnitOptions& unit = {}, const BusOptions& bus = {}) {
    platform_.detach(3);
    unit_ = std::make_unique<Unit>(unit, bus);
    platform_.attach(3, *unit_);
  }
  void openDialog(const UnitOptions& unit = {}, const BusOptions& bus = {}) {
    update_.reset();
    plugUnit(unit, bus);
    dialog_ = std::make_unique<DialogDouble>();
    update_ = std::make_unique<FirmwareUpdate>(platform_, *dialog_, dialog_->life);
    update_->Form_Load(chosen_);
  }
  void write(const std::string& content) {
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << content;
  }
  void choose() {
    platform_.script().expectOpenFile(file_.string());
    update_->cmdLoadImage_Click();
  }
  void choose(const std::string& content) {
    write(content);
    choose();
  }
  /// A whole update that shows these boxes and leaves the dialog idle.
  void update(const std::string& last_status, const std::vector<Box>& boxes = {}) {
    platform_.script().expectBox(kConfirm, 68, BoxButton::kYes);
    for (const Box& box : boxes) platform_.script().expectBox(box.text, box.style, box.answer);
    update_->cmdUpdate_Click();
    EXPECT_EQ(dialog_->statuses.back(), last_status);
    EXPECT_TRUE(dialog_->update_enabled);
    EXPECT_FALSE(dialog_->pause_enabled);
    for (const auto& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
  }
  /// Runs `action` so much later, while something waits.
  void after(SimTime delay, std::function<void()> action) {
    platform_.queue().post(platform_.now() + delay, std::move(action));
  }

  fs::path folder_;
  fs::path file_;
  Chosen chosen_;
  std::unique_ptr<DialogDouble> dialog_;
  std::unique_ptr<Unit> unit_;
  std::unique_ptr<FirmwareUpdate> update_;
};

TEST(UpdateFile, RecognisesAndDecodesItsHeader) {
  struct Case {
    std::string text;
    bool no_header, full;
    std::int32_t cpu_id;
    std::string cpu_id_text, model;
  };
  const Case cases[] = {
      {"103A7", false, true, 0x3A7, "3A7", "stepper"},
      {"03A70", true, false, 0, "", ""},  // The second digit must be 0.
      {"00A70", false, false, 0xA70, "A70", "stepper"},
      {"5010f", false, true, 0x10F, "10F", "stepper"},
      {"200a3", false, false, 0x0A3, "0A3", "stepper"},
      {"603A7", true, false, 0, "", ""},
      {"F03A7", true, false, 0, "", ""},
      {"a03A7", true, false, 0, "", ""},
      {"XYABC", false, false, 0, "000", "stepper"},
      {"10 A7", false, false, 0x010, "010", "stepper"},  // The number stops at the blank.
      {std::string("\xFF\x00\x01\x02\x03", 5), false, false, 0, "000", "stepper"},
      {"     ", false, false, 0, "000", "stepper"},
  };
  ScriptedDialogs dialogs;
  for (const Case& c : cases) {
    ZrfHeader header;
    header.Model = "left over";
    recogniseHeader(c.text, header, dialogs);
    EXPECT_EQ(header.NoHeader, c.no_header) << c.text;
    EXPECT_EQ(header.FullUpdate, c.full) << c.text;
    EXPECT_EQ(header.CpuId, c.cpu_id) << c.text;
    EXPECT_EQ(header.CpuIdText, c.cpu_id_text) << c.text;
    EXPECT_EQ(header.Model, c.model) << c.text;
    EXPECT_FALSE(header.IsServo) << c.text;
    EXPECT_EQ(payloadStart(header), c.no_header ? 1u : 6u) << c.text;
  }
  EXPECT_EQ(hexLiteral("123456789"), 0x23456789);
  EXPECT_EQ(hexLiteral("FFFFFFFF"), -1);
}

TEST(ControllerVersion, IsTheFirstWordWithVAndPoint) {
  EXPECT_EQ(ExtractVersion("/0`Movane Servo  V7.02 v8.00\r"), "V7.02");
  EXPECT_EQ(ExtractVersion("v7 2.0 Rev1.5"), "Rev1.5");
  EXPECT_EQ(ExtractVersion("ERR 12\r"), "");
  EXPECT_EQ(ExtractVersion(""), "");
}

TEST(ControllerVersion, TellsWhetherTheUnitKnowsItsCpuId) {
  using enum CpuIdQuery;
  const std::pair<const char*, CpuIdQuery> cases[] = {
      {"v7.02", kAnswered},     {"v8.00", kAnswered},    {"v6.10", kAnswered},
      {"v10.23", kAnswered},    {"v7.2", kAnswered},     {"v7.01", kNotAnswered},
      {"v7.00", kNotAnswered},  {"v5.01", kNotAnswered}, {"v7.0\x03\r", kNotAnswered},
      {"v07.01", kNotAnswered}, {"v7.0b", kNotAnswered}, {"v123.4", kUnknown},
      {"v.02", kUnknown},       {".v", kUnknown},
  };
  for (const auto& [word, answer] : cases) EXPECT_EQ(cpuIdQueryOf(word), answer) << word;
  for (const char* word : {"v7.", "v7.x", "ab.1", "vx1.0"}) {
    EXPECT_THROW(cpuIdQueryOf(word), RuntimeError) << word;
  }
}

TEST(FlashReply, FindsANumberTwoPlacesBehindAZero) {
  const std::pair<const char*, bool> cases[] = {
      {"/0`123\r", true},  {"/0@103A7\r", true}, {"/0`12\r", false}, {"/0`3A7\r", false},
      {"/1`123\r", false}, {"0\r12", true},      {"\r/0`456", true}, {"/0`45", false},
  };
  for (const auto& [text, found] : cases) {
    FlashReply reply;
    reply.WantNumeric = true;
    for (const char* c = text; *c != '\0'; ++c) {
      if (*c == '\r') reply.ReplyDone = true;
      reply.append(*c);
    }
    EXPECT_EQ(reply.NumericSeen, found) << text;
    EXPECT_EQ(reply.WantNumeric, !found) << text;
  }
}

TEST(FlashReply, KeepsTheNewestOfAReplyWithoutEnd) {
  FlashReply reply;
  reply.WantNumeric = reply.ReplyDone = true;
  for (int i = 0; i < 100000; ++i) reply.append(i % 3 == 0 ? '0' : 'x');
  EXPECT_EQ(reply.UpdateRxBuffer().size(), FlashReply::kCapacity);
  EXPECT_FALSE(reply.NumericSeen);
  for (const char c : std::string("/0`778")) reply.append(c);
  EXPECT_TRUE(reply.UpdateRxBuffer().ends_with("0xx0/0`778"));
  EXPECT_EQ(reply.UpdateRxBuffer().size(), FlashReply::kCapacity);
  EXPECT_TRUE(reply.NumericSeen);
}

TEST_F(UpdateTest, SendsEverythingInOrderAtTheRightRate) {
  UnitOptions unit_15;
  unit_15.address = '@';
  openDialog(unit_15);
  dialog_->unit = 15;
  choose("103A7" + bytes(9));
  update("Status: OK");
  const std::string image = bytes(9) + "   ";
  EXPECT_EQ(platform_.socket(3).sent, "\xAA/@T\r/@b57600R\r/@&\r/@!\r/@]40617\r" + image);
  EXPECT_EQ(unit_->model().image(), image);
  const std::vector<std::pair<int, std::string>> heard = {{9600, "\xAA/@T\r/@b57600R\r"},
                                                          {57600, "/@&\r/@!\r/@]40617\r"}};
  EXPECT_EQ(unit_->heard, heard);
  const std::vector<std::string> statuses = {"Status: None",
                                             "Status: Loaded " + file_.string(),
                                             "Status: Terminating Commands...",
                                             "Status: Negotiating baud rate...",
                                             "Status: Validating ZRF update file...",
                                             "Status: Validating ZRF file...",
                                             "Status: ***FULL UPDATE*** ZRF file OK...",
                                             "Status: Entering update mode...",
                                             "Status: Transmitting data...",
                                             "Status: Transfer complete...",
                                             "Status: OK"};
  EXPECT_EQ(dialog_->statuses, statuses);
  EXPECT_EQ(dialog_->steps, (std::vector{5, 2, 10, 20, 25, 30}));
  EXPECT_TRUE(dialog_->pause_was_enabled);
}

TEST_F(UpdateTest, MovesSpinnerAndProgressInSteps) {
  choose("003A7" + bytes(600));
  update("Status: OK");
  EXPECT_EQ(dialog_->spins, "-/|\\-/|\\-/|\\-/| ");  // Pieces 0, 7, ... 98; 7 is 3 modulo 4.
  EXPECT_EQ(dialog_->steps.size(), 4 + 14);          // 42 bytes, the first time 36, per step.
}

TEST_F(UpdateTest, DeliversThePayloadButNotAPieceThatWouldStartAtTheLastByte) {
  // File length, and how many bytes of the payload are sent: with and without a header.
  const std::size_t cases[][3] = {{5, 0, 5},
                                  {6, 0, 6},
                                  {7, 2, 6},
                                  {11, 6, 11},
                                  {12, 6, 12},
                                  {13, 8, 12},
                                  {65536, 65531, 65536},
                                  {1048576, 1048571, 1048576}};
  const std::string rates[] = {"9600", "19200", "38400", "57600"};
  int round = 0;
  for (const auto& [length, with_header, without] : cases) {
    for (const std::string start : {"103A7", "003A7", "603A7", "1103"}) {
      const bool has_header = start == "103A7" || start == "003A7";
      std::string content = start + bytes(length);
      content.resize(length);
      openDialog();
      dialog_->baud = rates[round++ % 4];
      choose(content);
      update("Status: OK");
      std::string sent = has_header ? content.substr(5, with_header) : content.substr(0, without);
      sent.resize((sent.size() + 5) / 6 * 6, ' ');
      EXPECT_TRUE(unit_->model().image() == sent) << start << " " << length;
    }
    ++round;
  }
}

TEST_F(UpdateTest, EndsEachWayInItsOwnWords) {
  struct Case {
    const char* name;
    std::map<std::string, std::string> answers;
    std::vector<Box> boxes;
    std::string status;
    std::string last_command;
    std::string file = "003A7";
  };
  const auto kCancel = BoxButton::kCancel;
  const std::string no_version =
      "Unable to get a valid version string from stepper controller. Got: ";
  const std::string critical =
      "Critical Upgrade must use Partial upgrade files only. Please re-try the update with the "
      "Partial Upgrade file. Exiting...";
  const std::string valid = "Status: Validating ZRF file...";
  const std::string ok = "Status: OK";
  const std::string entering = "Status: Entering update mode...";
  const std::string partial = "[40617";
  const Case cases[] = {
      {"no wake answer", {{"\xAA", ""}}, {}, ok, partial},
      {"no terminate answer",
       {{"T", ""}},
       {{"No response from Terminate command. Verify unit is powered up, connected and the address "
         "switch is set to 1.",
         0}},
       "Status: Terminating Commands...",
       "T"},
      {"no version answer", {{"&", ""}}, {{kUnable, 49, kCancel}}, valid, "&"},
      {"no version word", {{"&", "ERR 12\r"}}, {{no_version + "ERR 12", 65, kCancel}}, valid, "&"},
      {"long version", {{"&", "v123.4\r"}}, {{kUnable, 49, kCancel}}, valid, "&"},
      {"unusable version",
       {{"&", "v7.x\r"}},
       {{"validUpdateFile() Error #: 13 :: Type mismatch", 64}, {kUnable, 49, kCancel}},
       valid,
       "&"},
      {"old version needs no ID", {{"&", "v7.01\r"}, {"!", ""}}, {}, ok, partial},
      {"no ID answer", {{"!", ""}}, {{kUnable, 49, kCancel}}, valid, "!"},
      {"ID that is no number", {{"!", "/0@A7\r"}}, {{kUnable, 49, kCancel}}, valid, "!"},
      {"other ID", {{"!", "/0@103A8\r"}}, {{kWrongModel, 65, kCancel}}, valid, "!"},
      {"ID in lower case", {{"!", "/0@103a7\r"}}, {}, ok, partial},
      {"full file", {}, {}, ok, "]40617", "103A7"},
      {"failed unit, partial file", {{"&", "?\r"}}, {{kFailedUnit, 48}}, ok, partial},
      {"failed unit, full file",
       {{"&", "?\r"}},
       {{kFailedUnit, 48}, {critical, 112}},
       entering,
       "&",
       "103A7"},
      {"no prompt",
       {{partial, "OK\r"}},
       {{" 20 Unrecognized response from Unit, Exiting", 0}},
       entering,
       partial},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    openDialog();
    choose(c.file + bytes(100));
    for (const auto& [command, answer] : c.answers) unit_->answers[command] = answer;
    update(c.status, c.boxes);
    const std::string& heard = unit_->heard.back().second;
    EXPECT_TRUE(heard.ends_with("/1" + c.last_command + "\r")) << heard;
  }
}

TEST_F(UpdateTest, CallsASuccessAtTheTenthTryInvalidAndGoesOnAfterTenFailures) {
  choose("003A7" + bytes(20));
  unit_->answers["&"] = "";
  const Box again = {kUnable, 49};
  update("Status: OK", std::vector<Box>(10, again));

  openDialog();
  choose();
  unit_->answers["&"] = "";
  platform_.script().expectBox(kConfirm, 68, BoxButton::kYes);
  for (int i = 1; i < 9; ++i) platform_.script().expectBox(kUnable, 49);
  platform_.script().expectBox(kUnable, 49, BoxButton::kOk, [&] { unit_->answers.erase("&"); });
  update_->cmdUpdate_Click();
  EXPECT_EQ(dialog_->statuses.back(), "Status: Invalid ZRF update file...");
  EXPECT_TRUE(dialog_->update_enabled);
}

TEST_F(UpdateTest, TakesAnEarlierNumericAnswerForASecondValidation) {
  choose("003A7" + bytes(20));
  update("Status: OK");
  platform_.runFor(5000);
  unit_->answers["!"] = "";
  update("Status: Validating ZRF file...", {{kWrongModel, 65, BoxButton::kCancel}});
}

TEST_F(UpdateTest, LeavesTheBaudRateToAUnitWithoutFirmware) {
  UnitOptions without_firmware;
  without_firmware.valid_firmware = false;
  BusOptions at_once;
  at_once.paced = false;
  openDialog(without_firmware, at_once);
  choose("003A7" + bytes(20));
  update("Status: OK", {{kFailedUnit, 48}});
  EXPECT_EQ(unit_->heard.size(), 1u);
  EXPECT_EQ(unit_->heard[0].second, "\xAA/1T\r/1&\r/1[40617\r");
  EXPECT_EQ(dialog_->baud, "9600");
}

TEST_F(UpdateTest, EndsWhenThePromptCameBeforeItsCommand) {
  dialog_->verbose_checked = true;
  dialog_->on_status = [&](const std::string& status) {
    if (status == "Status: Entering update mode...") platform_.socket(3).deliver("?");
  };
  choose("003A7" + bytes(20));
  update("Status: Entering update mode...", {{"Response: ''. Exiting...", 112}});
  EXPECT_TRUE(dialog_->enlarged);
  EXPECT_TRUE(dialog_->traffic.starts_with("[\xAA][][/1T\r][")) << dialog_->traffic;
}

TEST_F(UpdateTest, DoesNothingWhenNotConfirmed) {
  choose("003A7" + bytes(20));
  platform_.script().expectBox(kConfirm, 68, BoxButton::kNo);
  update_->cmdUpdate_Click();
  EXPECT_EQ(dialog_->statuses.back(), "Status: None");
  EXPECT_TRUE(dialog_->update_enabled);
  EXPECT_EQ(platform_.socket(3).sent, "");
}

TEST_F(UpdateTest, StaysAbortedAfterAReceiveTimeOutUntilTheDialogIsLoadedAgain) {
  openDialog({}, withFaults({{FaultKind::kSilent, 0, 5}}));
  unit_->answers["&"] = "v7.01\r";
  choose("003A7" + bytes(100));
  dialog_->on_status = [&](const std::string& status) {
    if (status != kLineTimeout) return;
    after(1s, [&] {
      EXPECT_TRUE(dialog_->update_enabled);
      EXPECT_EQ(dialog_->steps.back(), 0);
      update_->cmdUpdate_Click();  // Ignored: the first update still waits.
    });
  };
  update(kLineTimeout, {{kPieceTimeout, 0}});
  update("Status: Transmitting data...");
  EXPECT_EQ(unit_->model().pieces(), 0);
  openDialog();
  choose();
  update("Status: OK");
}

TEST_F(UpdateTest, NeverCallsAnImageWholeThatIsNot) {
  constexpr int kPieces = 1000;
  const std::string payload = bytes(6 * kPieces);
  write("003A7" + payload);
  const Box timeout = {kPieceTimeout, 0};
  const Box line_gone = {"MSComm_OnComm() Error #: 57 :: Device I/O error", 0};
  const std::string ok = "Status: OK";
  struct Case {
    FaultKind kind;
    long amount;
    std::string status;
    std::vector<Box> boxes;
    std::string status_at_last_piece;
  };
  const Case cases[] = {
      {FaultKind::kDrop, 100, kLineTimeout, {timeout}, kLineTimeout},
      {FaultKind::kDouble, 100, ok, {}, ok},
      {FaultKind::kCorrupt, 100, kLineTimeout, {timeout}, kLineTimeout},
      {FaultKind::kLate, 300, ok, {}, ok},
      {FaultKind::kLate, 2000, kLineTimeout, {}, ok},
      {FaultKind::kLate, 13000, kLineTimeout, {timeout}, kLineTimeout},
      {FaultKind::kRefusePiece, 3, "Status: Error 3!", {}, "Status: Error 3!"},
      {FaultKind::kVanish, 0, kLineTimeout, {line_gone, timeout}, kLineTimeout},
  };
  for (const Case& c : cases) {
    for (int piece = 1; piece <= kPieces && !HasFailure(); piece += kPieceStride) {
      SCOPED_TRACE("fault " + std::to_string(static_cast<int>(c.kind)) + " of " +
                   std::to_string(c.amount) + " at piece " + std::to_string(piece));
      openDialog({}, withFaults({{c.kind, c.amount, piece}}));
      choose();
      update(piece == kPieces ? c.status_at_last_piece : c.status, c.boxes);
      const bool whole = unit_->model().image() == payload;
      EXPECT_TRUE(whole || dialog_->statuses.back() != ok);
    }
  }
}

TEST_F(UpdateTest, DoesNotTakeARepeatedAcknowledgementForTheNextPieces) {
  write("003A7" + bytes(60));
  for (const bool paced : {true, false}) {
    for (int piece = 1; piece < 10; ++piece) {
      BusOptions bus =
          withFaults({{FaultKind::kDouble, 100, piece}, {FaultKind::kRefusePiece, 3, 10}});
      bus.paced = paced;
      openDialog({}, bus);
      choose();
      update("Status: Error 3!");
    }
  }
}

TEST_F(UpdateTest, ReportsAFileThatChangesUntilTheTransferStarts) {
  const std::string content = "003A7" + bytes(600);
  const Box unable = {kUnable, 49, BoxButton::kCancel};
  const Box wrong_model = {kWrongModel, 65, BoxButton::kCancel};
  const Box not_found = {"validUpdateFile() Error #: 53 :: File not found", 64};
  const Box no_file = {"validUpdateFile() Error #: 75 :: Path/File access error", 64};
  const std::string settling = "Status: Negotiating baud rate...";
  const std::string validating = "Status: Validating ZRF file...";
  const std::string valid = "Status: ZRF file OK...";
  const std::string transmitting = "Status: Transmitting data...";
  const std::string ok = "Status: OK";
  const auto remove = [&] { fs::remove(file_); };
  struct Case {
    const char* name;
    std::string when;
    std::function<void()> change;
    std::vector<Box> boxes;
    std::string status;
  };
  const Case cases[] = {
      {"deleted", settling, remove, {not_found, unable}, validating},
      {"now a directory",
       settling,
       [&] { remove(), fs::create_directory(file_); },
       {no_file, unable},
       validating},
      {"now a FIFO",
       settling,
       [&] { remove(), ::mkfifo(file_.c_str(), 0600); },
       {no_file, unable},
       validating},
      {"empty", settling, [&] { write(""); }, {wrong_model}, validating},
      {"too large",
       settling,
       [&] { fs::resize_file(file_, kLargestUpdateFile + 1); },
       {{"cmdUpdate_Click() Error #: 7 :: Out of memory", 0}},
       valid},
      {"deleted after the check",
       valid,
       remove,
       {{"cmdUpdate_Click() Error #: 53 :: File not found", 0}},
       valid},
      {"replaced after the check",
       valid,
       [&] { write("103A7" + bytes(600)); },
       {{"cmdUpdate_Click() Error #: 75 :: Path/File access error", 0}},
       valid},
      {"deleted while sent", transmitting, remove, {}, ok},
      {"truncated while sent", transmitting, [&] { write("003A7"); }, {}, ok},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(file_);
    openDialog();
    choose(content);
    dialog_->on_status = [&](const std::string& status) {
      if (status == c.when) c.change();
    };
    update(c.status, c.boxes);
    EXPECT_EQ(unit_->model().image(), c.status == ok ? bytes(600) : "");
  }
}

TEST_F(UpdateTest, EndsAtOnceWhenTheWindowGoesAwayInAnyWait) {
  write("003A7" + bytes(60));
  // What is not answered, and until when something waits without a box to show.
  const std::pair<std::string, SimTime> cases[] = {{"\xAA", 5s}, {"T", 5s},       {"&", 10s},
                                                   {"!", 10s},   {"[40617", 25s}, {"piece", 17s}};
  for (const auto& [silent, end] : cases) {
    for (SimTime leaves = 333us; leaves < end; leaves += leaves < 40ms ? 333us : 97ms) {
      openDialog({}, withFaults({{FaultKind::kSilent, 0, 5}}));
      unit_->answers[silent] = "";
      choose();
      platform_.script().expectBox(kConfirm, 68, BoxButton::kYes);
      const SimTime start = platform_.now();
      after(leaves, [&] { dialog_->life.leave(); });
      update_->cmdUpdate_Click();
      ASSERT_EQ(platform_.now() - start, leaves) << silent;
      update_.reset();
      platform_.runUntilIdle();
    }
  }
  openDialog();
  platform_.script().expectBox(kConfirm, 68, BoxButton::kYes, [&] { dialog_->life.leave(); });
  update_->cmdUpdate_Click();
}

TEST_F(UpdateTest, RefusesUnsuitableSettingsAndReportsACancelledFileDialog) {
  const std::string unsuitable =
      "Communication Settings are incompatible with update mode. Please lower the baud rate.";
  for (std::string* setting : {&chosen_.port, &chosen_.baud, &chosen_.timeout}) {
    const std::string suitable = std::exchange(*setting, "x");
    platform_.script().expectBox(unsuitable, 0);
    openDialog();
    *setting = suitable;
  }
  openDialog();
  platform_.script().expectOpenFile(std::nullopt);
  platform_.script().expectBox("cmdLoadImage_Click() Error #: 32755 :: Cancel was selected.", 0);
  update_->cmdLoadImage_Click();
  EXPECT_FALSE(dialog_->update_enabled);
  choose("603A7");
  EXPECT_TRUE(dialog_->update_enabled);
  platform_.detach(3);
  update("Status: Loaded " + file_.string(),
         {{"cmdUpdate_Click() Error #: 8002 :: Invalid port number", 0}});
}

}  // namespace
}  // namespace mvdirigo

#include <sys/stat.h>

#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "simulator/model/simulated_bus.h"
#include "simulator/model/update_image.h"
#include "support/chosen_settings.h"
#include "support/files.h"
#include "support/virtual_test.h"
#include "update/firmware_update.h"
#include "update/flash_reply.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// A simulated unit of which a test can replace answers, and a record of what it heard.
class Unit : public SimulatedBus {
 public:
  using Say = std::function<void(SimTime delay, char byte)>;
  Unit(Say say, const UnitOptions& unit, const BusOptions& bus)
      : SimulatedBus({unit}, bus), say_(std::move(say)) {}

  /// By the wake byte or a command's text behind the address; an empty answer is none.
  std::map<std::string, std::string> answers = {{"\xAA", "\r"}};
  /// Every rate that the host spoke at, in front of what it said; pieces left out.
  std::string heard;

  void receive(char byte, int host_baud, SimTime now) override {
    if (unit(0).updating()) return SimulatedBus::receive(byte, host_baud, now);
    if (std::exchange(baud_, host_baud) != host_baud) heard += std::to_string(host_baud) + ":";
    heard += byte;
    if (byte == '/') command_.clear();
    command_ += byte;
    const bool whole = byte == '\r' && command_.size() > 2;
    const auto answer = answers.find(whole ? command_.substr(2, command_.size() - 3) : command_);
    // A model that never hears the carriage return does not answer.
    if (answer == answers.end()) return SimulatedBus::receive(byte, host_baud, now);
    SimTime delay{};
    for (const char c : answer->second) say_(delay += byteTime(host_baud), c);
  }

 private:
  Say say_;
  int baud_ = 0;
  std::string command_;
};

/// The dialog: keeps what it was told.
class DialogDouble : public FirmwareUpdate::Window {
 public:
  WindowLife life;
  /// Without the "Status: " that each begins with.
  std::vector<std::string> statuses;
  std::string spins, traffic, baud = "57600";
  std::vector<int> steps;
  std::size_t sent = 0, all = 0;
  bool update_enabled = false, pause_enabled = false, enlarged = false, verbose_checked = false;
  int unit = 1;
  std::function<void(const std::string&)> on_status = [](const std::string&) {};

  bool verbose() const override { return verbose_checked; }
  void printTraffic(FlashLink::Direction direction, std::string_view bytes) override {
    traffic += direction == FlashLink::Direction::kSent ? ">" : "<";
    traffic += "[" + std::string(bytes) + "]";
  }
  void setStatus(const std::string& text) override {
    EXPECT_TRUE(text.starts_with("Status: ")) << text;
    statuses.push_back(text.substr(8));
    on_status(statuses.back());
  }
  void setSpinner(const std::string& text) override { spins += text; }
  int progress() const override { return steps.back(); }
  void setProgress(int percent) override { steps.push_back(percent); }
  void enableUpdate(bool enabled) override { update_enabled = enabled; }
  void enlarge() override { enlarged = true; }
  void enablePause(bool enabled) override { pause_enabled = enabled; }
  void showEndOfStatus() override {}
  void showFile(const UpdateFileFacts&) override {}
  void startTransfer(std::size_t bytes) override { sent = 0, all = bytes; }
  void setSent(std::size_t bytes) override { sent = bytes; }
  void closeConsolePort() override {}
  int unitNumber() const override { return unit; }
  std::string baudText() const override { return baud; }
  void selectFirstBaud() override { baud = "9600"; }
};

const std::string kConfirm =
    "Are you sure you want to continue? \r\n\r\n- Disconnect all other devices from serial bus.\r\n"
    "- Terminate connections for high baud rates.\r\n\r\n"
    "- DO NOT POWER OFF DEVICE until update is complete.";
const std::string kOk = "OK", kNone = "None";
const std::string kTerminating = "Terminating Commands...";
const std::string kSettling = "Negotiating baud rate...";
const std::string kSettled = "Validating ZRF update file...";
const std::string kValidating = "Validating ZRF file...";
const std::string kValid = "ZRF file OK...";
const std::string kEntering = "Entering update mode...";
const std::string kSending = "Transmitting data...";
const std::string kLineTimeout = "Timeout. No Movane detected.";

struct Box {
  std::string text;
  int style = 0;
  BoxButton answer = BoxButton::kOk;
  std::function<void()> while_open = {};
};
constexpr BoxButton kCancel = BoxButton::kCancel;
const Box kUnable = {"Unable to validate ZRF file!", 49, kCancel};
const Box kGoOn = {kUnable.text, kUnable.style};
const Box kWrongModel = {
    "This ZRF update file does not work with this stepper model or this model can not be field "
    "upgraded.",
    65, kCancel};
const Box kFailedUnit = {
    "Unable to validate file for this controller state.\r\r"
    "The controller has not passed self-validation.\rTake care to ensure this is the correct "
    "update for this particular stepper controller.",
    48};
const Box kPieceTimeout = {" 5 Timeout waiting for response, Exiting"};
const Box kLineGone = {"MSComm_OnComm() Error #: 57 :: Device I/O error"};

std::string bytes(std::size_t count) {
  std::string text(count, '\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

class UpdateTest : public VirtualTest {
 protected:
  UpdateTest() { openDialog(); }

  void plugIn(const UnitOptions& unit = {}, const BusOptions& bus = {}) {
    const auto say = [this](SimTime delay, char byte) {
      after(delay, [this, byte] { platform_.socket(3).deliver({byte}); });
    };
    unit_ = std::make_unique<Unit>(say, unit, bus);
    platform_.attach(3, *unit_);
  }
  void openDialog(const UnitOptions& unit = {}, const BusOptions& bus = {}) {
    update_.reset();
    platform_.detach(3);
    plugIn(unit, bus);
    dialog_ = std::make_unique<DialogDouble>();
    update_ = std::make_unique<FirmwareUpdate>(platform_, *dialog_, dialog_->life);
    update_->Form_Load(chosen_);
  }
  /// Loads the update file, which holds `content`, or what it held before.
  void choose(const std::optional<std::string>& content = std::nullopt) {
    if (content) writeFile(file_, *content);
    platform_.script().expectOpenFile(file_.string());
    update_->cmdLoadImage_Click();
  }
  /// The same in a new dialog, for another unit.
  void load(const std::optional<std::string>& content = {}, const BusOptions& bus = {},
            const UnitOptions& unit = {}) {
    openDialog(unit, bus);
    choose(content);
  }
  /// Runs `action` when the dialog shows `status` for the nth time.
  void at(const std::string& status, std::function<void()> action, int nth = 1) {
    dialog_->on_status = [=](const std::string& shown) mutable {
      if (shown == status && --nth == 0) action();
    };
  }
  /// A whole update that shows these boxes and leaves the dialog idle.
  void update(const std::string& last_status, const std::vector<Box>& boxes = {}) {
    platform_.script().expectBox(kConfirm, 68, BoxButton::kYes);
    for (const auto& [text, style, answer, while_open] : boxes) {
      platform_.script().expectBox(text, style, answer, while_open);
    }
    update_->cmdUpdate_Click();
    EXPECT_EQ(dialog_->statuses.back(), last_status);
    EXPECT_TRUE(dialog_->update_enabled);
    EXPECT_FALSE(dialog_->pause_enabled);
    for (const auto& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
  }

  TemporaryFolder folder_;
  fs::path file_ = folder_.path / "image.zrf";
  ChosenSettings chosen_;
  std::unique_ptr<DialogDouble> dialog_;
  std::unique_ptr<Unit> unit_;
  std::unique_ptr<FirmwareUpdate> update_;
};

TEST_F(UpdateTest, SendsEverythingInOrderAtTheRightRate) {
  load("103A7" + bytes(597), {}, {.address = '@'});
  dialog_->unit = 15;
  at(kTerminating, [&] { dialog_->unit = 3, dialog_->baud = "9600"; });
  update(kOk);
  EXPECT_EQ(unit_->unit(0).image(), bytes(597) + "   ");
  EXPECT_EQ(unit_->heard, "9600:\xAA/@T\r/@b57600R\r57600:/@&\r/@!\r/@]40617\r");
  EXPECT_EQ(dialog_->statuses,
            (std::vector<std::string>{"Loaded " + file_.string(), kTerminating, kSettling, kSettled,
                                      kValidating, "***FULL UPDATE*** " + kValid, kEntering,
                                      kSending, "Transfer complete...", kOk}));
  EXPECT_EQ(dialog_->spins, "-/|\\-/|\\-/|\\-/| ");  // Pieces 0, 7, ... 98; 7 is 3 modulo 4.
  EXPECT_EQ(dialog_->steps.size(), 4 + 14);          // 42 bytes, the first time 36, per step.
  dialog_->steps.resize(6);
  EXPECT_EQ(dialog_->steps, (std::vector{5, 2, 10, 20, 25, 30}));
}

TEST_F(UpdateTest, DeliversThePayloadAtEveryRate) {
  const std::string rates[] = {"9600", "19200", "38400", "57600"};
  int round = 0;
  for (const std::size_t length : {5U, 6U, 7U, 11U, 12U, 13U, 65536U, 1048576U}) {
    for (const std::string start : {"103A7", "003A7", "603A7", "1103"}) {
      std::string content = start + bytes(length);
      content.resize(length);
      load(content);
      dialog_->baud = rates[round++ % 4];
      update(kOk);
      EXPECT_EQ(dialog_->sent, dialog_->all);
      EXPECT_TRUE(unit_->unit(0).image() == imageOfUpdateFile(content)) << start << " " << length;
    }
    ++round;
  }
}

TEST_F(UpdateTest, EndsEachWayInItsOwnWords) {
  const std::string x299(299, 'x');
  const Box no_version = {
      "Unable to get a valid version string from stepper controller. Got: \\x02" + x299 + "\u2026",
      65, kCancel};
  const Box critical = {
      "Critical Upgrade must use Partial upgrade files only. Please re-try the update with the "
      "Partial Upgrade file. Exiting...",
      112};
  struct Case {
    std::string command, answer;
    std::vector<Box> boxes;
    std::string status, last_commands, file = "003A7";
  };
  const Case cases[] = {
      {"\xAA", "", {}, kOk, "TbR&!["},
      {"&", "\x02" + x299 + "x\n\r", {no_version}, kValidating, "R&"},
      {"&", "v123.4\r", {kUnable}, kValidating, "R&"},
      {"&", "v7.01\r", {}, kOk, "R&["},
      {"!", "/0@A7\r", {kUnable}, kValidating, "R&!"},
      {"!", "/0@103A8\r", {kWrongModel}, kValidating, "R&!"},
      {"!", "/0@103a7\r", {}, kOk, "R&!["},
      {"-", "", {}, kOk, "R&!]", "103A7"},
      {"&", "?\r", {kFailedUnit, critical}, kEntering, "R&", "103A7"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command + " answered by " + c.answer);
    load(c.file + bytes(100));
    unit_->answers[c.command] = c.answer;
    update(c.status, c.boxes);
    std::string commands = unit_->heard;
    std::erase_if(commands, [](char byte) { return std::strchr("/\r:0123456789", byte); });
    EXPECT_TRUE(commands.ends_with(c.last_commands)) << commands;
  }
}

TEST_F(UpdateTest, CallsASuccessAtTheTenthTryInvalidAndGoesOnAfterTenFailures) {
  choose("003A7" + bytes(20));
  unit_->answers["&"] = "";
  update(kOk, std::vector(10, kGoOn));
  EXPECT_EQ(unit_->unit(0).image(), bytes(20) + "    ");

  load();
  unit_->answers["&"] = "";
  const auto answer = [&] { unit_->answers.erase("&"); };
  at(kValidating, answer, 10);
  update("Invalid ZRF update file...", std::vector(9, kGoOn));
}

TEST_F(UpdateTest, LooksForANumberInNoVersionButInEarlierAnswers) {
  dialog_->baud = "9600";  // The only rate at which a restarted unit hears this dialog's port.
  choose("003A7" + bytes(20));
  unit_->answers = {{"&", "/0`123 v7.02\r"}, {"!", ""}};
  const auto answer = [&] { unit_->answers.clear(); };
  at(kValidating, answer, 2);
  update(kOk, {kGoOn});
  platform_.runFor(5000);
  unit_->answers["!"] = "";
  update(kValidating, {kWrongModel});
}

TEST_F(UpdateTest, LeavesTheBaudRateToAUnitWithoutFirmware) {
  for (const bool paced : {true, false}) {
    load("003A7" + bytes(20), {.paced = paced}, {.valid_firmware = false});
    update(kOk, {kFailedUnit});
    EXPECT_EQ(unit_->heard, "9600:\xAA/1T\r/1&\r/1[40617\r");
    EXPECT_EQ(dialog_->baud, "9600");
  }
}

TEST_F(UpdateTest, EndsWhenThePromptCameBeforeItsCommand) {
  dialog_->verbose_checked = true;
  at(kEntering, [&] { platform_.socket(3).deliver("?"); });
  choose("003A7" + bytes(20));
  update(kEntering, {{"Response: ''. Exiting...", 112}});
  EXPECT_TRUE(dialog_->enlarged);
  EXPECT_TRUE(dialog_->traffic.starts_with(">[\xAA]>[/1T\r]<[")) << dialog_->traffic;
}

TEST_F(UpdateTest, StaysAbortedAfterAReceiveTimeOutUntilTheDialogIsLoadedAgain) {
  load("003A7" + bytes(100), {.faults = {{FaultKind::kSilent, 0, 5}}});
  dialog_->baud = "9600";
  unit_->answers["&"] = "v7.01\r";
  const auto look = [&] {
    EXPECT_TRUE(dialog_->update_enabled && dialog_->pause_enabled);
    EXPECT_EQ(dialog_->steps.back(), 0);
    update_->cmdUpdate_Click();  // Ignored: the first update still waits.
  };
  at(kLineTimeout, [&] { after(1s, look); });
  update(kLineTimeout, {kPieceTimeout});
  update(kSending);
  EXPECT_EQ(unit_->unit(0).pieces(), 0);
  load();
  update(kOk);
}

TEST_F(UpdateTest, ReopensThePortAtAReceiveTimeOutAndEndsWhenThatFails) {
  const BusOptions silence = {.faults = {{FaultKind::kSilent, 0, 5}}};
  load("003A7" + bytes(100), silence);
  SimTime timed_out{};
  at(kLineTimeout, [&] {
    timed_out = platform_.now();
    platform_.socket(3).refusal = Fault::kPortAlreadyOpen;
  });
  update(kLineTimeout, {kPieceTimeout});
  EXPECT_EQ(platform_.now(), timed_out);
  platform_.socket(3).refusal.reset();
  chosen_.timeout = "15000";
  load({}, silence);
  dialog_->baud = "9600";
  update(kSending, {kPieceTimeout});
  update_->close();
  plugIn();
  unit_->answers["&"] = "v7.01\r";
  update(kOk);
}

TEST_F(UpdateTest, DropsACharacterThatCameWhileTheUnitSettled) {
  choose("003A7" + bytes(20));
  SimTime start = platform_.now(), settling{};
  at(kSettled, [&] { settling = platform_.now() - start; });
  update(kOk);
  load();
  // Just in time for the port, but too late for the handler.
  after(settling, [&] { platform_.socket(3).deliver("?"); });
  update(kOk);
}

TEST_F(UpdateTest, CompletesWithALateAcknowledgementOfTheLastPiece) {
  load("003A7" + bytes(60), {.faults = {{FaultKind::kLate, 2000, 10}}});
  update(kOk);
  EXPECT_EQ(unit_->unit(0).image(), bytes(60));
  load({}, {.faults = {{FaultKind::kLate, 13000, 10}}});
  update(kLineTimeout, {kPieceTimeout});
}

TEST_F(UpdateTest, DoesNotTakeARepeatedAcknowledgementForTheNextPieces) {
  for (int piece = 1; piece < 10; ++piece) {
    load("003A7" + bytes(60),
         {.faults = {{FaultKind::kDouble, 100, piece}, {FaultKind::kRefusePiece, 3, 10}}});
    update("Error 3!");
  }
}

TEST_F(UpdateTest, ReportsAFileThatChangesUntilTheTransferStarts) {
  const Box not_found = {"validUpdateFile() Error #: 53 :: File not found", 64};
  const Box no_file = {"validUpdateFile() Error #: 75 :: Path/File access error", 64};
  const auto remove = [&] { fs::remove(file_); };
  const auto make_fifo = [&] { remove(), ::mkfifo(file_.c_str(), 0600); };
  const auto grow = [&] { fs::resize_file(file_, kLargestUpdateFile + 1); };
  const auto holds = [&](std::string text) { return [=, this] { writeFile(file_, text); }; };
  const std::string fault = "cmdUpdate_Click() Error #: ";
  struct Case {
    std::string when;
    std::function<void()> change;
    std::vector<Box> boxes;
    std::string status;
  };
  const Case cases[] = {
      {kSettling, remove, {not_found, kUnable}, kValidating},
      {kSettling, make_fifo, {no_file, kUnable}, kValidating},
      {kSettling, holds(""), {kWrongModel}, kValidating},
      {kSettling, grow, {{fault + "7 :: Out of memory"}}, kValid},
      {kValid, remove, {{fault + "53 :: File not found"}}, kValid},
      {kValid, holds("103A7" + bytes(600)), {{fault + "75 :: Path/File access error"}}, kValid},
      {kSending, holds("003A7"), {}, kOk}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    fs::remove_all(file_);
    load("003A7" + bytes(600));
    at(c.when, c.change);
    update(c.status, c.boxes);
    EXPECT_EQ(unit_->unit(0).image(), c.status == kOk ? bytes(600) : "");
  }
}

TEST_F(UpdateTest, ReportsADeviceThatVanishesUnderAWriteOnce) {
  const std::pair<std::string, std::string> cases[] = {
      {"\xAA", "Loaded " + file_.string()}, {"/1&\r", kValidating}, {"piece ", kSending}};
  for (const auto& [command, status] : cases) {
    load("003A7piece ");
    platform_.socket(3).vanishes_at_write = command;
    const bool validating = status == kValidating;
    const std::string procedure = validating ? "validUpdateFile" : "cmdUpdate_Click";
    update(status, {{procedure + "() Error #: 57 :: Device I/O error", validating ? 64 : 0,
                     BoxButton::kOk, [&] { platform_.runFor(1); }}});
  }
}

TEST_F(UpdateTest, ReportsWhatKeepsItFromStarting) {
  const std::string unsuitable =
      "Communication Settings are incompatible with update mode. Please lower the baud rate.";
  for (std::string* setting : {&chosen_.port, &chosen_.baud, &chosen_.timeout}) {
    const std::string suitable = std::exchange(*setting, "x");
    const bool is_rate = setting == &chosen_.baud;
    platform_.script().expectBox(unsuitable, 0);
    load("603A7");
    SimulatedBus of_another_port{{UnitOptions{}}};
    platform_.attach(1, of_another_port);
    update("Loaded " + file_.string(),
           {{std::string("cmdUpdate_Click() Error #: ") +
             (is_rate ? "380 :: Invalid property value" : "13 :: Type mismatch")}});
    EXPECT_EQ(platform_.socket(1).sent + platform_.socket(3).sent, "");
    platform_.detach(1);
    *setting = suitable;
  }
  openDialog();
  platform_.script().expectOpenFile(std::nullopt);
  platform_.script().expectBox("cmdLoadImage_Click() Error #: 32755 :: Cancel was selected.", 0);
  update_->cmdLoadImage_Click();
  EXPECT_FALSE(dialog_->update_enabled);
  const FileRequest& request = platform_.script().fileRequests().back();
  EXPECT_EQ(request.title + "/" + request.filter + "/" + request.default_extension,
            "Firmware Update/MVUpdate (*.zrf)|*.zrf/hex");
  EXPECT_TRUE(request.file_must_exist);
  choose("603A7");
  EXPECT_TRUE(dialog_->update_enabled);
  platform_.script().expectBox(kConfirm, 68, BoxButton::kNo);
  update_->cmdUpdate_Click();
  EXPECT_EQ(dialog_->statuses.back(), kNone);
  platform_.detach(3);
  update(kNone, {{"cmdUpdate_Click() Error #: 8002 :: Invalid port number"}});
}

TEST(FlashReply, KeepsTheNewestOfAReplyWithoutEndAndFindsANumberInIt) {
  FlashReply reply;
  reply.WantNumeric = reply.ReplyDone = true;
  for (int i = 0; i < 100000; ++i) reply.append(i % 3 == 0 ? '0' : 'x');
  for (const char c : std::string("//0`  7")) reply.append(c);
  EXPECT_TRUE(reply.UpdateRxBuffer().ends_with("0xx0//0`  7"));
  EXPECT_TRUE(reply.NumericSeen);
}

}  // namespace
}  // namespace mvdirigo

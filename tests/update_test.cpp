#include <cstring>
#include <map>

#include "simulator/model/update_image.h"
#include "support/update_window.h"
#include "update/update_file.h"

using namespace mvdirigo;
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

const std::string kOk = "OK", kNone = "None";
const std::string kTerminating = "Terminating Commands...";
const std::string kSettling = "Negotiating baud rate...";
const std::string kSettled = "Validating ZRF update file...";
const std::string kValidating = "Validating ZRF file...";
const std::string kValid = "ZRF file OK...";
const std::string kEntering = "Entering update mode...";
const std::string kSending = "Transmitting data...";
const Box kGoOn = {kUnable.text, kUnable.style};
const Box kWrongModel = {
    "This ZRF update file does not work with this stepper model or this model can not be field "
    "upgraded.",
    65, BoxButton::kCancel};
const Box kFailedUnit = {
    "Unable to validate file for this controller state.\r\r"
    "The controller has not passed self-validation.\rTake care to ensure this is the correct "
    "update for this particular stepper controller.",
    48};

std::string bytes(std::size_t count) {
  std::string text(count, '\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

class UpdateTest : public UpdateWindow {
 protected:
  UpdateTest() {
    store("Settings", "CommPortSetting", "3");
    start();
    press("LoadButton(3)");
  }

  void openDialog(const UnitOptions& unit = {}, const BusOptions& bus = {}) {
    if (program_->update() != nullptr) press(dialog(), "cmdClose");
    platform_.detach(3);
    const auto say = [this](SimTime delay, char byte) {
      after(delay, [this, byte] { platform_.socket(3).deliver({byte}); });
    };
    unit_ = std::make_unique<Unit>(say, unit, bus);
    platform_.attach(3, *unit_);
    press(settings(), "cmdUpdate");
    target("cboBaud", "57600");
    statuses_.clear();
    on_status_ = {};
    QObject::connect(&display("txtStatus"), &QLineEdit::textChanged, [this](const QString& text) {
      statuses_.push_back(text.toStdString().substr(8));
      if (on_status_) on_status_();
    });
  }
  /// Loads the update file, which holds `content`, or what it held before, in a new dialog for a
  /// new unit.
  void load(const std::optional<std::string>& content = {}, const BusOptions& bus = {},
            const UnitOptions& unit = {}) {
    openDialog(unit, bus);
    if (content) writeFile(image_, *content);
    UpdateWindow::load(image_);
  }
  void target(const char* which, const char* choice) {
    find<QComboBox>(dialog(), which).setCurrentText(choice);
  }
  /// Runs `action` when the dialog shows `status`.
  void at(const std::string& status, std::function<void()> action) {
    on_status_ = [=, this] {
      if (statuses_.back() == status) action();
    };
  }
  /// A whole update that shows these boxes and leaves the dialog idle.
  void update(const std::string& last_status, const std::vector<Box>& boxes = {}) {
    expectConfirmation();
    expectBoxes(boxes);
    press(dialog(), "cmdUpdate");
    EXPECT_EQ(display("txtStatus").text().toStdString(), "Status: " + last_status);
    EXPECT_TRUE(enabled("cmdUpdate") && !enabled("cmdPause"));
    for (const auto& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
  }

  std::unique_ptr<Unit> unit_;
  std::vector<std::string> statuses_;
  std::function<void()> on_status_;
};

TEST_F(UpdateTest, SendsEverythingInOrderAtTheRightRate) {
  load("103A7" + bytes(597), {.faults = {{FaultKind::kLate, 20}}}, {.address = '@'});
  target("cboID", "15");
  at(kTerminating, [&] { target("cboID", "3"), target("cboBaud", "9600"); });
  QString spins;
  std::vector<int> steps;
  QObject::connect(&display("txtSpinner"), &QLineEdit::textChanged,
                   [&](const QString& position) { spins += position; });
  QObject::connect(&find<QProgressBar>(dialog(), "pgbUpdate"), &QProgressBar::valueChanged,
                   [&](int percent) { steps.push_back(percent); });
  update(kOk);
  EXPECT_EQ(unit_->unit(0).image(), bytes(597) + "   ");
  EXPECT_EQ(unit_->heard, "9600:\xAA/@T\r/@b57600R\r57600:/@&\r/@!\r/@]40617\r");
  EXPECT_EQ(statuses_,
            (std::vector<std::string>{"Loaded " + image_, kTerminating, kSettling, kSettled,
                                      kValidating, "***FULL UPDATE*** " + kValid, kEntering,
                                      kSending, "Transfer complete...", kOk}));
  EXPECT_EQ(spins, "-/|\\-/|\\-/|\\-/| ");  // Pieces 0, 7, ... 98; 7 is 3 modulo 4.
  EXPECT_EQ(steps.size(), 4 + 14);          // 42 bytes, the first time 36, per step.
  steps.resize(6);
  EXPECT_EQ(steps, (std::vector{5, 2, 10, 20, 25, 30}));
}

TEST_F(UpdateTest, DeliversThePayloadAtEveryRate) {
  const char* const rates[] = {"9600", "19200", "38400", "57600"};
  int round = 0;
  for (const std::size_t length : {5U, 6U, 7U, 11U, 12U, 13U, 70000U}) {
    for (const std::string start : {"103A7", "003A7", "603A7", "1103"}) {
      std::string content = start + bytes(length);
      content.resize(length);
      load(content);
      target("cboBaud", rates[round++ % 4]);
      update(kOk);
      const QString progress = display("TransferProgress").text();
      EXPECT_EQ(progress.section(" of ", 0, 0) + " bytes", progress.section(" of ", 1));
      EXPECT_TRUE(unit_->unit(0).image() == imageOfUpdateFile(content)) << start << " " << length;
    }
    ++round;
  }
}

TEST_F(UpdateTest, EndsEachWayInItsOwnWords) {
  const std::string x299(299, 'x');
  const Box no_version = {
      "Unable to get a valid version string from stepper controller. Got: \\x02" + x299 + "\u2026",
      65, BoxButton::kCancel};
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
      {"&", "\x02" + x299 + "x\n\r", {no_version}, kValidating, "R&"},
      {"&", "v123.4\r", {kUnable}, kValidating, "R&"},
      {"&", "v7.01\r", {}, kOk, "R&["},
      {"!", "/0@103a7\r", {}, kOk, "R&!["},
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
  load("003A7" + bytes(20));
  unit_->answers["&"] = "";
  update(kOk, std::vector(10, kGoOn));
  EXPECT_EQ(unit_->unit(0).image(), bytes(20) + "    ");

  load();
  unit_->answers["&"] = "";
  std::vector boxes(9, kGoOn);
  boxes.back().while_open = [&] { unit_->answers.erase("&"); };
  update("Invalid ZRF update file...", boxes);
}

TEST_F(UpdateTest, LooksForANumberInNoVersionButInEarlierAnswers) {
  load("003A7" + bytes(20));
  target("cboBaud", "9600");  // The only rate at which a restarted unit hears this dialog's port.
  unit_->answers = {{"&", "/0`123 v7.02\r"}, {"!", ""}};
  update(kOk, {{kGoOn.text, kGoOn.style, BoxButton::kOk, [&] { unit_->answers.clear(); }}});
  platform_.runFor(5000);
  unit_->answers["!"] = "";
  update(kValidating, {kWrongModel});
}

TEST_F(UpdateTest, LeavesTheBaudRateToAUnitWithoutFirmware) {
  for (const bool paced : {true, false}) {
    load("003A7" + bytes(20), {.paced = paced}, {.valid_firmware = false});
    update(kOk, {kFailedUnit});
    EXPECT_EQ(unit_->heard, "9600:\xAA/1T\r/1&\r/1[40617\r");
    EXPECT_EQ(find<QComboBox>(dialog(), "cboBaud").currentText(), "9600");
  }
}

TEST_F(UpdateTest, EndsWhenThePromptCameBeforeItsCommand) {
  load("003A7" + bytes(20));
  find<QAbstractButton>(dialog(), "Verbose").click();
  at(kEntering, [&] { platform_.socket(3).deliver("?"); });
  update(kEntering, {{"Response: ''. Exiting...", 112}});
  platform_.runFor(100);
  const QString traffic = find<QPlainTextEdit>(dialog(), "Traffic").toPlainText();
  EXPECT_TRUE(traffic.startsWith("> \u00AA\n> /1T\\r\n< ")) << traffic.toStdString();
}

TEST_F(UpdateTest, StaysAbortedAfterAReceiveTimeOutUntilTheDialogIsLoadedAgain) {
  load("003A7" + bytes(100), {.faults = {{FaultKind::kSilent, 0, 5}}});
  target("cboBaud", "9600");
  unit_->answers["&"] = "v7.01\r";
  const auto look = [&] {
    EXPECT_TRUE(enabled("cmdUpdate") && enabled("cmdPause") && bar() == "0%");
    press(dialog(), "cmdUpdate");  // Ignored: the first update still waits.
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
  setting("RCVTimeout").setText("15000");
  load({}, silence);
  target("cboBaud", "9600");
  update(kSending, {kPieceTimeout});
  unit_->setFaults({});
  unit_->answers["&"] = "v7.01\r";
  update(kOk);
}

TEST_F(UpdateTest, DropsACharacterThatCameWhileTheUnitSettled) {
  load("003A7" + bytes(20));
  SimTime start = platform_.now(), settling{};
  at(kSettled, [&] { settling = platform_.now() - start; });
  update(kOk);
  load();
  // Just in time for the port, but too late for the handler.
  after(settling, [&] { platform_.socket(3).deliver("?"); });
  update(kOk);
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
  const auto remove = [&] { fs::remove(image_); };
  const auto grow = [&] { fs::resize_file(image_, kLargestUpdateFile + 1); };
  const auto holds = [&](std::string text) { return [=, this] { writeFile(image_, text); }; };
  const std::string fault = "cmdUpdate_Click() Error #: ";
  struct Case {
    std::string when;
    std::function<void()> change;
    std::vector<Box> boxes;
    std::string status;
  };
  const Case cases[] = {
      {kSettling, remove, {not_found, kUnable}, kValidating},
      {kSettling, holds(""), {kWrongModel}, kValidating},
      {kSettling, grow, {{fault + "7 :: Out of memory"}}, kValid},
      {kValid, remove, {{fault + "53 :: File not found"}}, kValid},
      {kValid, holds("103A7" + bytes(600)), {{fault + "75 :: Path/File access error"}}, kValid},
      {kSending, holds("003A7"), {}, kOk}};
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    load("003A7" + bytes(600));
    at(c.when, c.change);
    update(c.status, c.boxes);
    EXPECT_EQ(unit_->unit(0).image(), c.status == kOk ? bytes(600) : "");
  }
}

TEST_F(UpdateTest, ReportsADeviceThatVanishesUnderAWriteOnce) {
  const std::pair<std::string, std::string> cases[] = {
      {"\xAA", "Loaded " + image_}, {"/1&\r", kValidating}, {"piece ", kSending}};
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
  auto& baud_rates = find<QListWidget>(settings(), "lstBaudRate");
  const auto give = [&](const char* port, int rate, const char* time_out) {
    setting("CommPortSetting").setText(port);
    baud_rates.setCurrentRow(rate);
    setting("RCVTimeout").setText(time_out);
  };
  const std::tuple<const char*, int, const char*, std::string> cases[] = {
      {"x", 0, "1000", "13 :: Type mismatch"},
      {"3", -1, "1000", "380 :: Invalid property value"},
      {"3", 0, "x", "13 :: Type mismatch"}};
  SimulatedBus of_another_port{{UnitOptions{}}};
  platform_.attach(1, of_another_port);
  for (const auto& [port, rate, time_out, fault] : cases) {
    give(port, rate, time_out);
    expectBox(
        "Communication Settings are incompatible with update mode. Please lower the baud rate.");
    load("603A7");
    update("Loaded " + image_, {{"cmdUpdate_Click() Error #: " + fault}});
    EXPECT_EQ(platform_.socket(1).sent + platform_.socket(3).sent, "");
  }
  give("3", 0, "1000");
  openDialog();
  platform_.script().expectOpenFile(std::nullopt);
  expectBox("cmdLoadImage_Click() Error #: 32755 :: Cancel was selected.");
  press(dialog(), "cmdLoadImage");
  EXPECT_FALSE(enabled("cmdUpdate"));
  const FileRequest& request = platform_.script().fileRequests().back();
  EXPECT_EQ(request.title + "/" + request.filter + "/" + request.default_extension,
            "Firmware Update/MVUpdate (*.zrf)|*.zrf/hex");
  EXPECT_TRUE(request.file_must_exist);
  load("603A7");
  UpdateWindow::update({}, BoxButton::kNo);
  EXPECT_EQ(statuses_.back(), kNone);
}

// What an update says when its line goes wrong, in each of its waits and boxes.
#include "support/matrix.h"
#include "support/update_window.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

// The columns: the answer to what is just being sent is lost, 1500 ms late, loses bytes, has bytes
// doubled or changed, comes behind noise, without ETX, in front of noise without end, or refuses a
// piece; the device vanishes for good, or is back after 50 ms; another program takes the port as
// soon as it is closed; "Close" is pressed; the console is closed.
//
// "-" can't happen, because  -ask  nothing is asked then, or a unit that is awake says nothing,
//                            -etx  what a unit says in its update mode has no ETX,
//                            -one  only a piece can be refused.
// No answer in an update has a checksum. The commands are the same in both protocols.

constexpr const char* kTable = R"(
silent late    dropped doubled  changed noise no-etx endless refused vanish back   taken close  quit while
-ask   -ask    -ask    -ask     -ask    -ask  -ask   -ask    -one    noport done   inuse closed quit confirm-box
-ask   -ask    -ask    -ask     -ask    done  -ask   -ask    -one    gone   gone   taken closed quit waking
nostop done    nostop  done     done    done  done   done    -one    gone   gone   taken closed quit stopping
done   done    done    done     done    done  done   done    -one    noport noport inuse closed quit rating
-ask   -ask    -ask    -ask     -ask    done  -ask   -ask    -one    gone   gone   done  closed quit settling
unable done    nover   mismatch unable  done  done   done    -one    gone   gone   done  closed quit version unable-box
unable done    unable  done     unable  done  done   done    -one    gone   gone   done  closed quit id
prompt done    prompt  done     prompt  done  -etx   done    -one    gone   gone   done  closed quit entering
piece  aborted piece   done     piece   done  -etx   done    refused gone   gone   done  closed quit sending
)";

struct Box {
  std::string text;
  int style = 0;
  BoxButton answer = BoxButton::kOk;
};
struct Outcome {
  /// Without "Status: "; empty for that of the state.
  std::string status;
  std::vector<Box> boxes;
};
const std::string kTimeout = "Timeout. No Movane detected.";
const Box kUnable = {"Unable to validate ZRF file!", 49, BoxButton::kCancel};

const std::map<std::string, Outcome> kOutcomes = {
    {"done", {"OK", {}}},
    {"aborted", {kTimeout, {}}},
    {"piece", {kTimeout, {{" 5 Timeout waiting for response, Exiting"}}}},
    {"refused", {"Error 3!", {}}},
    {"prompt", {"", {{" 20 Unrecognized response from Unit, Exiting"}}}},
    {"unable", {"", {kUnable}}},
    {"nover",
     {"",
      {{"Unable to get a valid version string from stepper controller. Got: \u00FF/`Mvane Sep 7.0",
        65, BoxButton::kCancel}}}},
    {"mismatch", {"", {{"validUpdateFile() Error #: 13 :: Type mismatch", 64}, kUnable}}},
    {"nostop",
     {"",
      {{"No response from Terminate command. Verify unit is powered up, connected and the address "
        "switch is set to 1."}}}},
    {"gone", {"", {{"MSComm_OnComm() Error #: 57 :: Device I/O error"}}}},
    {"noport", {"", {{"cmdUpdate_Click() Error #: 8002 :: Invalid port number"}}}},
    {"inuse", {"", {{"cmdUpdate_Click() Error #: 8005 :: Port already open"}}}},
    {"taken",
     {"Negotiating baud rate...", {{"cmdUpdate_Click() Error #: 8005 :: Port already open"}}}},
    {"closed", {}},
    {"quit", {}},
};

/// A state is reached when the line has carried `sent` last; then the dialog says `status`.
struct State {
  std::string sent, status;
  SimTime later{};
};
const std::string kValidating = "Validating ZRF file...";
const std::map<std::string, State> kStates = {
    {"confirm-box", {"", "Loaded "}},
    {"waking", {"\xAA", "Loaded "}},
    {"stopping", {"/1T", "Terminating Commands..."}},
    {"rating", {"/1b96", "Negotiating baud rate..."}},
    {"settling", {"/1b9600R\r", "Negotiating baud rate...", 1s}},
    {"version", {"/1&", kValidating}},
    {"unable-box", {"/1&", kValidating}},
    {"id", {"/1!", kValidating}},
    {"entering", {"/1]40617", "Entering update mode..."}},
    {"sending", {"/1]40617\rxxxxxxxxxxx", "Transmitting data..."}},
};

class UpdateFaultMatrix : public UpdateWindow {
 protected:
  UpdateFaultMatrix() {
    platform_.onRunPending = [this] {
      QApplication::processEvents();
      const std::string& sent = platform_.socket(1).sent;
      if (!state_.sent.empty() && sent.ends_with(state_.sent)) {
        state_.sent.clear();
        struck_at_ = sent.size();
        after(state_.later, [this] { strike(); });
      }
      // Only the answer to what is being sent now is damaged.
      if (struck_at_ > 0 && sent.size() >= struck_at_ + 2) {
        struck_at_ = 0;
        if (cell_.fault != "endless") bus_->setFaults({});
      }
    };
  }

  void strike() {
    const long part = cell_.state == "entering" || cell_.state == "sending" ? 100 : 25;
    const std::map<std::string, LineFault> line_faults = {
        {"silent", {FaultKind::kSilent, 0}},      {"late", {FaultKind::kLate, 1500}},
        {"dropped", {FaultKind::kDrop, part}},    {"doubled", {FaultKind::kDouble, part}},
        {"changed", {FaultKind::kCorrupt, part}}, {"no-etx", {FaultKind::kLostEtx, 100}},
        {"endless", {FaultKind::kEndless, -1}},   {"refused", {FaultKind::kRefusePiece, 3}}};
    const std::string& fault = cell_.fault;
    const auto known = line_faults.find(fault);
    bus_->setFaults({});
    if (known != line_faults.end()) bus_->setFaults({known->second});
    if (fault == "noise") receive(std::string(5, '\x80'));
    if (fault == "taken") platform_.socket(1).refusal = Fault::kPortAlreadyOpen;
    if (fault == "vanish" || fault == "back") platform_.detach(1);
    if (fault == "back") after(50ms, [this] { platform_.attach(1, *bus_); });
    if (fault == "close") press(dialog(), "cmdClose");
    if (fault == "quit") console().close();
  }

  void expectBox(const Box& box, std::function<void()> while_open = {}) {
    platform_.script().expectBox(box.text, box.style, box.answer, std::move(while_open));
  }

  void start(const MatrixCell& cell, const char* protocol) {
    cell_ = cell;
    state_ = {};
    struck_at_ = 0;
    platform_.detach(1);
    platform_.socket(1).refusal.reset();
    openWithImage(18);
    find<QRadioButton>(settings(), protocol).click();
    platform_.socket(1).sent.clear();
    state_ = kStates.at(cell.state);
  }

  void expectCell(const MatrixCell& cell, const char* protocol) {
    start(cell, protocol);
    const Outcome& outcome = kOutcomes.at(cell.outcome);
    expectConfirmation([this] {
      if (cell_.state == "confirm-box") strike(), platform_.runFor(100);
    });
    if (cell.state == "unable-box") {
      cell_.fault = "silent";
      expectBox({kUnable.text, kUnable.style}, [&] {
        cell_.fault = cell.fault;
        strike();
        struck_at_ = platform_.socket(1).sent.size() + 3;
        platform_.runFor(100);
      });
    }
    for (const Box& box : outcome.boxes) expectBox(box);
    const std::string& status = kStates.at(cell.state).status;
    press(dialog(), "cmdUpdate");
    EXPECT_EQ(ended_, cell.outcome == "quit");
    if (program_->update() != nullptr && !ended_) {
      const QString expected =
          QString::fromStdString("Status: " + (outcome.status.empty() ? status : outcome.status));
      EXPECT_TRUE(display("txtStatus").text().startsWith(expected))
          << display("txtStatus").text().toStdString();
      EXPECT_TRUE(enabled("cmdUpdate") && enabled("cmdLoadImage") && enabled("cboBaud"));
      press(dialog(), "cmdClose");
    } else {
      EXPECT_TRUE(cell.outcome == "closed" || ended_);
    }
    EXPECT_EQ(bus_->unit(0).image() == std::string(18, 'x'), cell.outcome == "done");
    platform_.socket(1).refusal.reset();
    bus_->setFaults({});
    if (cell.fault == "vanish") platform_.attach(1, *bus_);
    platform_.runFor(30000);
    if (!ended_) {
      EXPECT_TRUE(settings().isVisible());
      press("SendCommand(9)", 100);
      EXPECT_EQ(reply(9) + light(9), "0 No Errorgreen");
      console().close();
    }
    EXPECT_TRUE(console().PortAvailable(1));
    for (const auto& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
  }

  void expectEveryCell(const char* protocol) {
    for (const MatrixCell& cell : cellsOf(kTable)) {
      SCOPED_TRACE(std::string(protocol) + ", " + cell.state + " x " + cell.fault);
      expectCell(cell, protocol);
    }
  }

  MatrixCell cell_;
  State state_;
  std::size_t struck_at_ = 0;
};

TEST_F(UpdateFaultMatrix, UnderDt) { expectEveryCell("DTProtocol"); }
TEST_F(UpdateFaultMatrix, UnderOem) { expectEveryCell("OEMProtocol"); }

}  // namespace
}  // namespace mvdirigo

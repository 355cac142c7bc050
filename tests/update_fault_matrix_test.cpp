// What an update tells when its line goes wrong, in each of its waits and boxes.
#include "support/fault_matrix.h"

using namespace mvdirigo;
using namespace std::chrono_literals;

// Faults of an answer concern the one to what is just being sent. "-" can't happen, because
//   -ask  nothing is asked then, or a unit that is awake says nothing,
//   -etx  what a unit says in its update mode has no ETX,
//   -one  only a piece can be refused.
// No answer in an update has a checksum. The commands are the same in both protocols.

constexpr const char* kTable = R"(
silent late=1500 drop=25  double=25  corrupt=25  garbage-before lost-etx endless refuse-piece vanish back   taken close  quit while
-ask   -ask      -ask     -ask       -ask        -ask           -ask     -ask    -one         noport done   inuse closed quit confirm-box
-ask   -ask      -ask     -ask       -ask        -ask           -ask     -ask    -one         gone   gone   taken closed quit waking
nostop done      nostop   done       done        done           done     done    -one         gone   gone   taken closed quit stopping
done   done      done     done       done        done           done     done    -one         noport noport inuse closed quit rating
-ask   -ask      -ask     -ask       -ask        -ask           -ask     -ask    -one         gone   gone   done  closed quit settling
unable done      nover    mismatch   unable      done           done     done    -one         gone   gone   done  closed quit version unable-box
unable done      unable   done       unable      done           done     done    -one         gone   gone   done  closed quit id
silent late=1500 drop=100 double=100 corrupt=100 garbage-before lost-etx endless refuse-piece vanish back   taken close  quit while
prompt done      prompt   done       prompt      done           -etx     done    -one         gone   gone   done  closed quit entering
piece  aborted   piece    done       piece       done           -etx     done    refused      gone   gone   done  closed quit sending
unseen done     unseen   done       unseen      done           -etx     done    refused      gone   gone   done  closed quit last-piece
)";

struct Outcome {
  std::vector<Box> boxes;
  /// Without "Status: "; empty for that of the state.
  std::string status;
};
const std::string kNegotiating = "Negotiating baud rate...";
const std::string kValidating = "Validating ZRF file...";
const std::string kFault = "cmdUpdate_Click() Error #: ";

const std::map<std::string, Outcome> kOutcomes = {
    {"done", {{}, "OK"}},
    {"aborted", {{}, kLineTimeout}},
    {"piece", {{kPieceTimeout}, kLineTimeout}},
    {"unseen", {{kPieceTimeout}, kLineTimeout}},
    {"refused", {{}, "Error 3!"}},
    {"prompt", {{{" 20 Unrecognized response from Unit, Exiting"}}}},
    {"unable", {{kUnable}}},
    {"nover",
     {{{"Unable to get a valid version string from stepper controller. Got: \u00FF/`Mvane Sep 7.0",
        65, BoxButton::kCancel}}}},
    {"mismatch", {{{"validUpdateFile() Error #: 13 :: Type mismatch", 64}, kUnable}}},
    {"nostop",
     {{{"No response from Terminate command. Verify unit is powered up, connected and the address "
        "switch is set to 1."}}}},
    {"gone", {{{"MSComm_OnComm() Error #: 57 :: Device I/O error"}}}},
    {"noport", {{{kFault + "8002 :: Invalid port number"}}}},
    {"inuse", {{{kFault + "8005 :: Port already open"}}}},
    {"taken", {{{kFault + "8005 :: Port already open"}}, kNegotiating}},
    {"closed", {}},
    {"quit", {}}};

/// A state is reached when the line has carried `sent` last; then the dialog says `status`.
struct State {
  std::string sent, status;
  SimTime later{};
};
const std::map<std::string, State> kStates = {
    {"confirm-box", {"", "Loaded "}},
    {"waking", {"\xAA", "Loaded "}},
    {"stopping", {"/1T", "Terminating Commands..."}},
    {"rating", {"/1b96", kNegotiating}},
    {"settling", {"/1b9600R\r", kNegotiating, 1s}},
    {"version", {"/1&", kValidating}},
    {"unable-box", {"/1&", kValidating}},
    {"id", {"/1!", kValidating}},
    {"entering", {"/1]40617", "Entering update mode..."}},
    {"sending", {"/1]40617\rxxxxxxxxxxx", "Transmitting data..."}},
    {"last-piece", {std::string(17, 'x'), "Transmitting data..."}}};

class UpdateFaultMatrix : public FaultMatrixTest {
 protected:
  UpdateFaultMatrix() {
    platform_.onRunPending = [this] {
      QApplication::processEvents();
      watchLine();
    };
  }

  void watchLine() {
    const std::string& sent = platform_.socket(1).sent;
    if (!state_.sent.empty() && sent.ends_with(state_.sent)) {
      state_.sent.clear();
      heal_at_ = sent.size() + 2;
      after(state_.later, [this] {
        cell_.state == "unable-box" ? bus_->setFaults({parseFault("silent")}) : strike();
      });
    }
    if (sent.size() == heal_at_ && cell_.fault != "endless") bus_->setFaults({});
  }

  void expectBoxesOf(const Outcome& outcome) {
    expectConfirmation([this] {
      if (cell_.state == "confirm-box") strike(), platform_.runFor(100);
    });
    if (cell_.state == "unable-box") {
      platform_.script().expectBox(kUnable.text, kUnable.style, BoxButton::kOk, [this] {
        strike();
        heal_at_ = platform_.socket(1).sent.size() + 5;
        platform_.runFor(100);
      });
    }
    expectBoxes(outcome.boxes);
  }

  void expectCell() override {
    openWithImage(18);
    choose(protocol_);
    platform_.socket(1).sent.clear();
    state_ = kStates.at(cell_.state);
    const Outcome& outcome = kOutcomes.at(cell_.outcome);
    const std::string status =
        "Status: " + (outcome.status.empty() ? state_.status : outcome.status);
    expectBoxesOf(outcome);
    press(dialog(), "cmdUpdate");

    EXPECT_EQ(ended_, cell_.outcome == "quit");
    EXPECT_EQ(settings().isVisible(), cell_.outcome == "closed");
    const bool whole = cell_.outcome == "done" || cell_.outcome == "unseen";
    EXPECT_EQ(bus_->unit(0).image() == std::string(18, 'x'), whole);
    if (!ended_ && !settings().isVisible()) {
      EXPECT_TRUE(display("txtStatus").text().startsWith(status.c_str())) << status;
      EXPECT_TRUE(enabled("cmdUpdate") && enabled("cmdLoadImage") && enabled("cboBaud"));
      press(dialog(), "cmdClose");
    }
    heal();
    platform_.runFor(30000);
    if (!ended_) {
      EXPECT_TRUE(settings().isVisible());
      press("SendCommand(9)", 100);
      EXPECT_EQ(reply(9) + light(9), "0 No Errorgreen");
      console().close();
    }
    EXPECT_TRUE(console().PortAvailable(1));
  }

  State state_;
  std::size_t heal_at_ = 0;
};

TEST_F(UpdateFaultMatrix, OfDt) { expectEveryCell(kTable, "DTProtocol"); }
TEST_F(UpdateFaultMatrix, OfOem) { expectEveryCell(kTable, "OEMProtocol"); }

// What the console says when a line goes wrong, whatever it is doing.
#include "support/files.h"
#include "support/matrix.h"
#include "support/window_test.h"

namespace mvdirigo {
namespace {

using namespace std::chrono_literals;

// The columns: from then on the unit is silent or 1500 ms late, or its answers lose bytes, come
// with bytes doubled or changed, behind noise, without ETX, with a wrong checksum, or in front of
// noise without end; the device vanishes for good, or is back after 50 ms; another program takes
// the port as soon as it is closed.
//
// "-" can't happen, because  -sum  a DT answer has no checksum,
//                            -cut  the half of an answer that is heard can't be damaged any more.
// A "*" says that remains of a lost answer stand in front of the next one, as the receive rules
// have it. A refused piece exists in an update only, of which another table tells.

constexpr const char* kDt = R"(
silent late dropped doubled changed noise no-etx sum   endless vanish back  taken  while
mute   late drop    dbl     chg     noise cut    -sum  read    shut   read  shut   closed
mute   late drop    dbl     chg     noise cut    -sum  read    fail   again read   open answered timed-out full-box
mute   late drop    dbl     chg     noise cut    -sum  read    fail   fail  read   pressed sending recording playing endlessly
mute   late drop    dbl     chg     noise cut    -sum  read    fail   fail  read   slash-box strings-box help-box load-box save-box unread-box
mute   -cut -cut    -cut    -cut    mid   -cut   -sum  -cut    fail   fail  read   answering
none   astray drop  dbl     chg     noise cut    -sum  read    none   read  read   searching
end    end  end     end     end     end   end    -sum  end     told   told  end    closing
)";

constexpr const char* kOem = R"(
silent late dropped doubled changed noise no-etx sum   endless vanish back  taken  while
mute   late mute*   mute    mute    read  mute*  mute* read    shut   read  shut   closed
mute   late mute*   mute    mute    read  mute*  mute* read    fail   again read   open answered timed-out full-box
mute   late mute*   mute    mute    read  mute*  mute* read    fail   fail  read   pressed sending recording playing endlessly
mute   late mute*   mute    mute    read  mute*  mute* read    fail   fail  read   slash-box strings-box help-box load-box save-box unread-box
mute*  -cut -cut    -cut    -cut    mute  -cut   -cut  -cut    fail*  fail* read   answering
none   astray none* none    none    read  none*  none* read    none   read  read   searching
end    end  end     end     end     end   end    end   end     told   told  end    closing
)";

#define GREEN " No Error (green)"
#define MUTE "No Movane detected. Check connections (red)"
#define SEARCHING "Auto Scan in Progress. Searching for Devices on serial bus. "
#define FAILED "Communications Error, no Movane found"

/// What is told in the row from the fault on, with the light's colour, and the port in the end.
const std::map<std::string, std::string> kOutcomes = {
    {"read", "Movane Stepper v7.02" GREEN ", open"},
    {"late", MUTE " > Movane Stepper v7.02" GREEN ", open"},
    {"mute", MUTE ", open"},
    {"shut", MUTE ", closed"},
    {"fail", FAILED " > " MUTE ", closed"},
    {"again", FAILED " > Movane Stepper v7.02" GREEN ", open"},
    {"none", "/1& " SEARCHING " (white) > " MUTE ", closed"},
    {"astray", "/>& Movane Stepper v7.02" GREEN ", open"},
    {"end", ", closed"},
    {"told", FAILED ", closed"},
    // What the fixed positions of a DT answer make of it.
    {"drop", "Movane Steppr v7.0" GREEN ", open"},
    {"dbl", "Movane Steppeer v7.022" GREEN ", open"},
    {"chg", "Movane Steppbr v7.#2" GREEN ", open"},
    {"noise", "\u00FF\u00FF/0`Movane Stepper v7.02" GREEN ", open"},
    {"mid", "Movane Step\u0080\u0080\u0080\u0080\u0080per v7.02" GREEN ", open"},
    {"cut", "Movane Stepper v7.0" GREEN ", open"},
};

class FaultMatrix : public WindowTest {
 protected:
  FaultMatrix() {
    platform_.onRunPending = [this] {
      QApplication::processEvents();
      if (program_) look();
    };
  }

  /// Keeps what is newly told in the row that is looked at.
  void look() {
    const QString tip = replyField(row_).toolTip();
    if (tip == last_tip_ || searching_) return;
    last_tip_ = tip;
    const bool failed = reply(row_) == FAILED;
    told_ += (told_.empty() ? "" : " > ") + reply(row_) + (failed ? "" : " (" + light(row_) + ")");
  }
  void lookAt(int row) {
    row_ = row;
    last_tip_ = replyField(row).toolTip();
    told_.clear();
  }

  void strike() {
    static const std::map<std::string, LineFault> kLineFaults = {
        {"silent", {FaultKind::kSilent, 0}},    {"late", {FaultKind::kLate, 1500}},
        {"dropped", {FaultKind::kDrop, 10}},    {"doubled", {FaultKind::kDouble, 10}},
        {"changed", {FaultKind::kCorrupt, 10}}, {"noise", {FaultKind::kGarbageBefore, 5}},
        {"no-etx", {FaultKind::kLostEtx, 100}}, {"sum", {FaultKind::kBadChecksum, 100}},
        {"endless", {FaultKind::kEndless, -1}}};
    if (fault_ == "taken") platform_.socket(1).refusal = Fault::kPortAlreadyOpen;
    if (fault_ == "vanish" || fault_ == "back") platform_.detach(1);
    if (fault_ == "back") after(50ms, [this] { platform_.attach(1, *bus_); });
    away_ = fault_ == "vanish";
    const auto known = kLineFaults.find(fault_);
    if (known != kLineFaults.end()) bus_->setFaults({known->second});
  }
  void heal() {
    platform_.socket(1).refusal.reset();
    bus_->setFaults({});
    if (std::exchange(away_, false)) platform_.attach(1, *bus_);
    platform_.runFor(10);  // What is on the line still arrives.
  }

  /// A whole exchange of row 3, whose answer or time-out is over after `then_ms`.
  void exchange(int then_ms) {
    press("SendCommand(3)", then_ms);
    lookAt(3);
  }
  /// The fault strikes in the middle of an exchange of row 3, and all that follows passes.
  void strikeInExchange() {
    press("SendCommand(3)", 2);
    strike();
    settle();
  }
  void settle() { platform_.runFor(2600); }
  void strikeBetweenExchanges() {
    strike();
    platform_.runFor(1000);
    press("SendCommand(3)");
    settle();
  }
  void strikeUnderBox(const std::string& text, int style, const std::function<void()>& open) {
    platform_.script().expectBox(text, style, BoxButton::kOk, [this] { strikeInExchange(); });
    open();
  }
  void record() {
    press("LoadButton(2)");
    press("SendCommand(3)", 3000);
    press("SendCommand(4)", 100);
    press("LoadButton(2)");
    lookAt(3);
  }
  void play(const std::string& button) {
    record();
    press(button);
    platform_.runUntil([&] { return !onConsole("SendCommand(3)").isEnabled(); }, 100);
    platform_.runFor(2);
    strike();
    settle();
    next_ = [this] { platform_.runUntil([&] { return !told_.empty(); }, 1000); };
  }
  void search() {
    row_ = 0;
    searching_ = true;
    if (expected_.starts_with("none")) {
      expectBox(
          "No Devices were found. Please refer to your operators manual for instractions on "
          "settings up the communications.");
    }
    after(50ms, [this] { strike(); });
    press(settings(), "AutoSetup");
    searching_ = false;
    look();
    settle();
    const std::string found_at = commandField(0).text().toStdString();
    if (found_at != "/2&") told_ = found_at + " " + told_;
  }

  const std::map<std::string, std::function<void()>> kStates = {
      {"closed", [this] { strikeBetweenExchanges(); }},
      {"open", [this] { exchange(1600), strikeBetweenExchanges(); }},
      {"answered", [this] { exchange(100), strikeBetweenExchanges(); }},
      {"timed-out",
       [this] {
         bus_->setFaults({{FaultKind::kSilent, 0}});
         exchange(1600);
         heal();
         strikeBetweenExchanges();
       }},
      // In the turn of the event loop between the press and the command.
      {"pressed",
       [this] {
         exchange(1600);
         after(0s, [this] { strike(); });
         press("SendCommand(3)");
         settle();
       }},
      {"sending", [this] { strikeInExchange(); }},
      {"answering",
       [this] {
         press("SendCommand(3)", 20);
         if (fault_ == "silent") bus_.emplace(std::vector<UnitOptions>(1));
         fault_ == "noise" ? receive(std::string(5, '\x80')) : strike();
         settle();
       }},
      {"recording",
       [this] {
         press("LoadButton(2)");
         strikeInExchange();
         EXPECT_EQ(onConsole<QLineEdit>("Activity").text(), "Recording: 1 press");
       }},
      {"playing",
       [this] {
         play("LoadButton(1)");
         end_ = [this] {
           platform_.runFor(300);
           EXPECT_EQ(onConsole<QPushButton>("LoadButton(1)").text(), QString("Play"));
         };
       }},
      {"endlessly",
       [this] {
         play("LoadButton(0)");
         end_ = [this] {
           platform_.runFor(300);
           EXPECT_EQ(onConsole<QPushButton>("LoadButton(1)").text(), QString("Stop Playback"));
           EXPECT_EQ(reply(3), kVersionReply) << "in the next round";
         };
       }},
      {"searching", [this] { search(); }},
      {"slash-box",
       [this] {
         commandField(5).setText("1&");
         strikeUnderBox(
             "Please Enter Command Strings with a leading slash '/' followed by the unit address, "
             "such as '/1&'.",
             box::kOkOnly, [this] { press("SendCommand(5)"); });
       }},
      {"strings-box",
       [this] {
         strikeUnderBox("Maximum number of strings allowed is 25", box::kOkOnly,
                        [this] { setting("MaxStrings").setText("26"); });
       }},
      {"help-box",
       [this] {
         press("LoadButton(7)");
         strikeUnderBox("This opens the Help Window.", box::kOkOnly, [this] {
           press(find<QWidget>(console(), "StringFunHelp"), "LoadButton(7)");
         });
       }},
      {"full-box",
       [this] {
         press("LoadButton(2)");
         bus_->setFaults({{FaultKind::kSilent, 0}});
         for (int press = 0; press < 500; ++press) console().SendCommand_Click(3);
         platform_.runFor(5000);
         heal();
         lookAt(3);
         platform_.script().expectBox(
             "The recording is full: it holds 500 presses. It has been stopped.", box::kInformation,
             BoxButton::kOk, [this] { strike(), platform_.runFor(100); });
         press("SendCommand(3)");
         settle();
       }},
      {"load-box",
       [this] {
         platform_.script().expectOpenFile(std::nullopt, [this] { strikeInExchange(); });
         press("LoadButton(5)");
       }},
      {"save-box",
       [this] {
         platform_.script().expectSaveFile(std::nullopt, [this] { strikeInExchange(); });
         press("LoadButton(4)");
       }},
      {"unread-box",
       [this] {
         platform_.script().expectOpenFile("/none");
         strikeUnderBox("Error Reading file: /none", box::kExclamation,
                        [this] { press("LoadButton(5)"); });
       }},
      {"closing",
       [this] {
         press("SendCommand(3)", 2);
         after(0s, [this] { strike(); });
         console().close();
         settle();
       }},
  };

  /// Everything that must hold in the end, whatever happened.
  void expectOutcome(const MatrixCell& cell) {
    const bool leaves_remains = expected_.ends_with('*');
    if (leaves_remains) expected_.pop_back();
    EXPECT_EQ(told_ + (portOpen() ? ", open" : ", closed"), kOutcomes.at(expected_));
    if (cell.state != "closing") {
      platform_.runFor(0);
      EXPECT_TRUE(onConsole("SendCommand(0)").isEnabled());
      EXPECT_EQ(onConsole<QLineEdit>("LineStatus").text().endsWith(" open"), portOpen());
      heal();
      const std::string before = reply(row_);
      const int row = std::exchange(row_, 4);
      lookAt(4);
      next_();
      EXPECT_EQ(told_, (leaves_remains ? "`" : "") + kVersionReply + " (green)") << "the next";
      EXPECT_EQ(reply(row), before);
      EXPECT_TRUE(portOpen());
      for (int other = 5; other < 11; ++other) EXPECT_EQ(reply(other), "");
      end_();
      platform_.store().saves.clear();
      console().close();
    }
    EXPECT_TRUE(ended_ && !portOpen());
    EXPECT_EQ(platform_.store().saves.size(), 26U);
    for (const auto& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
  }

  void expectEveryCell(const std::string& table, const std::string& protocol) {
    for (const MatrixCell& cell : cellsOf(table)) {
      SCOPED_TRACE(protocol + ", " + cell.state + " x " + cell.fault);
      fault_ = cell.fault;
      expected_ = cell.outcome;
      told_.clear();
      last_tip_.clear();
      next_ = [this] { press("SendCommand(4)", 100); };
      end_ = [] {};
      row_ = 3;
      program_.reset();
      platform_.detach(1);
      platform_.socket(1).refusal.reset();
      bus_.emplace(std::vector{UnitOptions{.address = cell.state == "searching" ? '2' : '1'}});
      platform_.attach(1, *bus_);
      start();
      platform_.store().saves.clear();
      find<QRadioButton>(settings(), protocol).click();
      for (int row = 0; row < 11; ++row) {
        commandField(row).setText(QString("/%1&").arg(bus_->unit(0).options().address));
      }
      kStates.at(cell.state)();
      expectOutcome(cell);
    }
  }

  std::string fault_, expected_, told_;
  QString last_tip_;
  int row_ = 3;
  bool away_ = false, searching_ = false;
  std::function<void()> next_, end_;
};

TEST_F(FaultMatrix, OfDt) { expectEveryCell(kDt, "DTProtocol"); }
TEST_F(FaultMatrix, OfOem) { expectEveryCell(kOem, "OEMProtocol"); }

}  // namespace
}  // namespace mvdirigo

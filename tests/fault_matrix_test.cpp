// What the console tells when a line goes wrong, whatever it is doing.
#include "support/fault_matrix.h"

using namespace mvdirigo;
using namespace std::chrono_literals;

// "-" can't happen, because  -sum  a DT answer has no checksum,
//                            -cut  the half of an answer that was heard can't be damaged any more.
// A "*" says that remains of a lost answer stand in front of the next one, as the receive rules
// have it. A refused piece exists in an update only, of which another table tells.

constexpr const char* kDt = R"(
silent late=1500 drop=10 double=10 corrupt=10 garbage-before lost-etx bad-checksum endless vanish back  taken seized while
mute   late      drop    double    corrupt    garbage        cut      -sum         read    shut   read  shut  shut   closed
mute   late      drop    double    corrupt    garbage        cut      -sum         read    fail   again read  shut   open answered timed-out full-box
mute   late      drop    double    corrupt    garbage        cut      -sum         read    fail   fail  read  shut   pressed sending recording playing endlessly
mute   late      drop    double    corrupt    garbage        cut      -sum         read    fail   fail  read  shut   slash-box strings-box help-box load-box save-box unread-box
mute   -cut      -cut    -cut      -cut       -cut           -cut     -sum         -cut    fail   fail  read  -cut   answering
none   astray    drop    double    corrupt    garbage        cut      -sum         read    none   read  read  none   searching
end    end       end     end       end        end            end      -sum         end     told   told  end   end    closing
)";
constexpr const char* kOem = R"(
silent late=1500 drop=10 double=10 corrupt=10 garbage-before lost-etx bad-checksum endless vanish back  taken seized while
mute   late      mute*   mute      mute       read           mute*    mute*        read    shut   read  shut  shut   closed
mute   late      mute*   mute      mute       read           mute*    mute*        read    fail   again read  shut   open answered timed-out full-box
mute   late      mute*   mute      mute       read           mute*    mute*        read    fail   fail  read  shut   pressed sending recording playing endlessly
mute   late      mute*   mute      mute       read           mute*    mute*        read    fail   fail  read  shut   slash-box strings-box help-box load-box save-box unread-box
mute*  -cut      -cut    -cut      -cut       -cut           -cut     -cut         -cut    fail*  fail* read  -cut   answering
none   astray    none*   none      none       read           none*    none*        read    none   read  read  none   searching
end    end       end     end       end        end            end      end          end     told   told  end   end    closing
)";

#define READ "Movane Stepper v7.02 No Error (green)"
#define MUTE "No Movane detected. Check connections (red)"
#define FAILED "Communications Error, no Movane found"
#define SEARCHING "Auto Scan in Progress. Searching for Devices on serial bus. "

/// What is told in the row from the fault on, with the light's colour, and the port in the end.
const std::map<std::string, std::string> kOutcomes = {
    {"read", READ ", open"},
    {"mute", MUTE ", open"},
    {"late", MUTE " > " READ ", open"},
    {"shut", MUTE ", closed"},
    {"fail", FAILED " > " MUTE ", closed"},
    {"again", FAILED " > " READ ", open"},
    {"end", ", closed"},
    {"told", FAILED ", closed"},
    {"none", "/1& " SEARCHING " (white) > " MUTE ", closed"},
    // Found under the address that is asked by the time of the answer.
    {"astray", "/>& " READ ", open"},
    // What the fixed positions of a DT answer make of it.
    {"drop", "Movane Steppr v7.0 No Error (green), open"},
    {"double", "Movane Steppeer v7.022 No Error (green), open"},
    {"corrupt", "Movane Steppbr v7.#2 No Error (green), open"},
    {"garbage", "\u00FF\u00FF/0`" READ ", open"},
    {"cut", "Movane Stepper v7.0 No Error (green), open"}};

class FaultMatrix : public FaultMatrixTest {
 protected:
  FaultMatrix() {
    platform_.onRunPending = [this] {
      QApplication::processEvents();
      if (program_ && !searching_) look();
    };
  }

  /// Keeps what is newly told in the row that is looked at.
  void look() {
    const QString tip = replyField(row_).toolTip();
    if (tip == seen_tip_) return;
    seen_tip_ = tip;
    const bool failed = reply(row_) == FAILED;
    told_ += (told_.empty() ? "" : " > ") + reply(row_) + (failed ? "" : " (" + light(row_) + ")");
  }
  void lookAt(int row) {
    row_ = row;
    seen_tip_ = replyField(row).toolTip();
    told_.clear();
  }

  void settle() { platform_.runFor(2600); }
  void fallSilent() { bus_->setFaults({parseFault("silent")}); }
  void strikeNext() {
    after(0s, [this] { strike(); });
  }
  void exchange(int then_ms) {
    press("SendCommand(3)", then_ms);
    lookAt(3);
  }
  void strikeInExchange(int after_ms = 2) {
    press("SendCommand(3)", after_ms);
    strike();
    settle();
  }
  void strikeBetweenExchanges() {
    strike();
    platform_.runFor(1000);
    press("SendCommand(3)");
    settle();
  }
  void strikeUnderBox(const char* text, int style = box::kOkOnly) {
    script_.expectBox(text, style, BoxButton::kOk, in_exchange_);
  }
  /// Records presses of rows 3 and 4 and plays them back; the fault strikes under the first.
  void play(const char* button, const std::string& caption_afterwards) {
    press("LoadButton(2)");
    press("SendCommand(3)", 3000);
    press("SendCommand(4)", 100);
    press("LoadButton(2)");
    lookAt(3);
    press(button);
    platform_.runUntil([&] { return !onConsole("SendCommand(3)").isEnabled(); }, 100);
    platform_.runFor(2);
    strike();
    settle();
    next_ = [this, caption_afterwards] {
      platform_.runUntil([this] { return !told_.empty(); }, 1000);
      platform_.runFor(300);
      EXPECT_EQ(onConsole<QPushButton>("LoadButton(1)").text().toStdString(), caption_afterwards);
    };
  }
  void search() {
    row_ = 0;
    searching_ = true;
    if (cell_.outcome.starts_with("none")) {
      expectBox(
          "No Devices were found. Please refer to your operators manual for instractions on "
          "settings up the communications.");
    }
    after(50ms, [this] { strike(); });
    press(settings(), "AutoSetup");
    searching_ = false;
    look();
    settle();
    const std::string found = commandField(0).text().toStdString();
    if (found != "/2&") told_ = found + " " + told_;
  }
  void fillRecording() {
    press("LoadButton(2)");
    fallSilent();
    for (int press = 0; press < 500; ++press) console().SendCommand_Click(3);
    platform_.runFor(5000);
    lookAt(3);
    script_.expectBox("The recording is full: it holds 500 presses. It has been stopped.",
                      box::kInformation, BoxButton::kOk,
                      [this] { strike(), platform_.runFor(100); });
  }

  ScriptedDialogs& script_ = platform_.script();
  const std::function<void()> in_exchange_ = [this] { strikeInExchange(); };
  const std::map<std::string, std::function<void()>> kStates = {
      {"closed", [this] { strikeBetweenExchanges(); }},
      {"open", [this] { exchange(1600), strikeBetweenExchanges(); }},
      {"answered", [this] { exchange(100), strikeBetweenExchanges(); }},
      {"timed-out", [this] { fallSilent(), exchange(1600), strikeBetweenExchanges(); }},
      // In the turn of the event loop between the press and the command.
      {"pressed", [this] { exchange(1600), strikeNext(), press("SendCommand(3)"), settle(); }},
      {"sending", [this] { strikeInExchange(); }},
      {"answering",
       [this] {
         if (cell_.fault != "silent") return strikeInExchange(20);
         press("SendCommand(3)", 20);
         bus_.emplace(std::vector<UnitOptions>(1));
         settle();
       }},
      {"recording", [this] { press("LoadButton(2)"), strikeInExchange(); }},
      {"playing", [this] { play("LoadButton(1)", "Play"); }},
      {"endlessly", [this] { play("LoadButton(0)", "Stop Playback"); }},
      {"searching", [this] { search(); }},
      {"slash-box",
       [this] {
         strikeUnderBox(
             "Please Enter Command Strings with a leading slash '/' followed by the unit address, "
             "such as '/1&'.");
         commandField(5).setText("1&");
         press("SendCommand(5)");
       }},
      {"strings-box",
       [this] {
         strikeUnderBox("Maximum number of strings allowed is 25");
         setting("MaxStrings").setText("26");
       }},
      {"help-box",
       [this] {
         press("LoadButton(7)");
         strikeUnderBox("This opens the Help Window.");
         press(find<QWidget>(console(), "StringFunHelp"), "LoadButton(7)");
       }},
      {"full-box", [this] { fillRecording(), press("SendCommand(3)"), settle(); }},
      {"load-box", [this] { script_.expectOpenFile({}, in_exchange_), press("LoadButton(5)"); }},
      {"save-box", [this] { script_.expectSaveFile({}, in_exchange_), press("LoadButton(4)"); }},
      {"unread-box",
       [this] {
         script_.expectOpenFile("/none");
         strikeUnderBox("Error Reading file: /none", box::kExclamation);
         press("LoadButton(5)");
       }},
      {"closing",
       [this] {
         press("SendCommand(3)", 2);
         strikeNext();
         console().close();
         settle();
       }},
  };

  void expectNextExchange(bool with_remains) {
    platform_.runFor(0);
    EXPECT_TRUE(onConsole("SendCommand(0)").isEnabled());
    EXPECT_EQ(onConsole<QLineEdit>("LineStatus").text().endsWith(" open"), portOpen());
    heal();
    const int row = row_;
    const std::string before = reply(row);
    lookAt(4);
    next_();
    EXPECT_EQ(told_, (with_remains ? "`" : "") + std::string(READ)) << "the next";
    EXPECT_EQ(reply(row), cell_.state == "endlessly" ? kVersionReply : before);
    EXPECT_TRUE(portOpen());
    for (int other = 5; other < 11; ++other) EXPECT_EQ(reply(other), "");
  }

  void expectCell() override {
    const char address = cell_.state == "searching" ? '2' : '1';
    bus_.emplace(std::vector{UnitOptions{.address = address}});
    platform_.attach(1, *bus_);
    start();
    choose(protocol_);
    for (int row = 0; row < 11; ++row) commandField(row).setText(QString("/%1&").arg(address));
    next_ = [this] { press("SendCommand(4)", 100); };
    lookAt(3);
    kStates.at(cell_.state)();

    const bool leaves_remains = cell_.outcome.ends_with('*');
    if (leaves_remains) cell_.outcome.pop_back();
    EXPECT_EQ(told_ + (portOpen() ? ", open" : ", closed"), kOutcomes.at(cell_.outcome));
    if (!ended_) {
      expectNextExchange(leaves_remains);
      platform_.store().saves.clear();
      console().close();
    }
    EXPECT_TRUE(ended_ && !portOpen());
    EXPECT_EQ(platform_.store().saves.size(), 26U);
    heal();
  }

  std::string told_;
  QString seen_tip_;
  int row_ = 3;
  bool searching_ = false;
  std::function<void()> next_;
};

TEST_F(FaultMatrix, OfDt) { expectEveryCell(kDt, "DTProtocol"); }
TEST_F(FaultMatrix, OfOem) { expectEveryCell(kOem, "OEMProtocol"); }

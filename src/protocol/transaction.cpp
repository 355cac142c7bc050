#include "protocol/transaction.h"

#include <utility>

#include "platform/handler_edge.h"
#include "platform/text.h"
#include "protocol/reply_decoding.h"

namespace mvdirigo {
namespace {

/// Until the first layout sets the chosen time-out.
constexpr int kInitialTimeOutMs = 4000;

constexpr char kStatusReadyBit = 32;
/// A unit that is ready and one that is still busy show alike: a light tells of the exchange only.
constexpr LightColour kReadyColour = LightColour::kGreen;
constexpr LightColour kBusyColour = LightColour::kGreen;

}  // namespace

Transaction::Transaction(Platform& platform, LiveSettingsSource settings, Rows& rows)
    : platform_(platform),
      settings_(settings),
      rows_(rows),
      link_(platform, std::move(settings), *this),
      tmrReceiveTimeOut_(platform.makeTimer([this] {
        atHandlerEdge(platform_.dialogs(), "tmrReceiveTimeOut_Timer",
                      [this] { tmrReceiveTimeOut_Timer(); });
      })) {
  tmrReceiveTimeOut_->setInterval(kInitialTimeOutMs);
}

void Transaction::SendCommand_Click(int Index) {
  if (rows_.life().leaving()) return;
  commandString = latin1FromUtf8(rows_.StringToSend(Index));
  if (!commandString.starts_with('/')) {
    platform_.dialogs().messageBox(
        "Please Enter Command Strings with a leading slash '/' followed by the unit address, such "
        "as '/1&'.");
    return;
  }
  rows_.enableSendCommands(false);
  link_.clearReply();
  rows_.setButtonShape(Index, LightColour::kWhite);
  rows_.startButtonTimer(Index);
  rows_.recordPress(Index);
  currentRow = Index;
  platform_.eventLoop().runPending();
  if (rows_.life().leaving()) return;
  subSendToMV("");
}

void Transaction::Command1_Click() {
  commandString.assign(9, '\r');
  subSendToMV("");
}

void Transaction::subSendToMV(const std::string& strCommand) {
  if (!trimBlanks(strCommand).empty()) commandString = strCommand;
  const std::string unitAddress = unitAddressOf(commandString);
  tmrReceiveTimeOut_->setEnabled(true);
  link_.openOnDemand();
  obstacle_ = link_.obstacle();
  commandString = substituteRandom(commandString, [this] { return platform_.random(); });
  link_.forgetRawReply();
  sent_at_ms_ = platform_.eventLoop().nowMs();

  LiveSettings& settings = settings_();
  if (settings.DTProtocol()) link_.transmit(commandString + '\r');
  if (!settings.OEMProtocol()) return;
  link_.transmit(framing_.frame(unitAddress, commandString, currentRow));
}

void Transaction::DecodeResponse() {
  tmrReceiveTimeOut_->setEnabled(false);
  LiveSettings& settings = settings_();
  const DecodedReply reply =
      settings.DTProtocol() ? decodeDt(link_.reply()) : decodeOem(link_.reply());
  if (reply.status) status_code_ = statusCode(*reply.status);
  const char* status_text = ErrorTable[static_cast<std::size_t>(status_code_)];
  rows_.setReceiveString(currentRow, shownReply(reply.data) + status_text,
                         exchangeUntilNow(Exchange::Outcome::kAnswered));
  link_.keepData(reply.data);
  settings.takeReply(reply.data);
  const bool ready = reply.status && (*reply.status & kStatusReadyBit) != 0;
  rows_.setButtonShape(currentRow, ready ? kReadyColour : kBusyColour);
  rows_.enableSendCommands(true);
}

void Transaction::communicationsFailed() {
  rows_.setReceiveString(currentRow, "Communications Error, no Movane found",
                         exchangeUntilNow(Exchange::Outcome::kLineFailed));
}

void Transaction::tmrReceiveTimeOut_Timer() {
  const bool searching = settings_().searching();
  // In a search the tick may meet any query, also one that is just being answered.
  const bool cuts_an_answer_off = searching && link_.receiving();
  rows_.setReceiveString(currentRow,
                         searching ? "Auto Scan in Progress. Searching for Devices on serial bus. "
                                   : "No Movane detected. Check connections",
                         exchangeUntilNow(obstacle_.empty() ? Exchange::Outcome::kNoReply
                                                            : Exchange::Outcome::kNothingSent));
  rows_.setButtonShape(currentRow, searching ? LightColour::kYellow : LightColour::kRed);
  tmrReceiveTimeOut_->setEnabled(false);
  if (!cuts_an_answer_off) link_.reset();
  rows_.enableSendCommands(true);
}

Exchange Transaction::exchangeUntilNow(Exchange::Outcome outcome) {
  return {outcome, status_code_, link_.takeRawReply(), obstacle_,
          platform_.eventLoop().nowMs() - sent_at_ms_};
}

}  // namespace mvdirigo

#include "update/firmware_update.h"

#include <algorithm>

#include "platform/handler_edge.h"
#include "platform/runtime_error.h"
#include "platform/text.h"
#include "update/controller_version.h"

namespace mvdirigo {
namespace {

// The waits and the access code are those of the table in docs/PROTOCOLS.md.
constexpr int kAnswerTimeoutMs = 5000;
/// One character at 9600 bit/s takes 1 ms, and common adapters hold it back for up to 16 ms.
constexpr int kRestOfAnswerMs = 20;
constexpr int kSettlePauseMs = 5000;
constexpr int kPromptTimeoutMs = 20000;
constexpr int kStartPauseMs = 10;
constexpr int kPieceTimeoutMs = 12000;

constexpr int kMostValidations = 10;
constexpr std::size_t kPieceLength = 6;
constexpr int kPiecesPerSpin = 7;
/// The progress bar moves by so much per this share of the file, instead of with every piece.
constexpr int kProgressStep = 5;
constexpr double kProgressShare = 6.7;

const std::string kWakeByte = "\xAA";
const std::string kAccessCode = "40617";

/// The piece that starts at `position`, counted from 1; blanks stand for bytes past the end.
std::string pieceAt(const std::string& image, std::size_t position) {
  std::string piece = image.substr(position - 1, kPieceLength);
  piece.resize(kPieceLength, ' ');
  return piece;
}

/// A unit's answer for people, without the line ends around it.
std::string shownAnswer(std::string_view reply) {
  constexpr std::string_view kLineEnds = "\r\n";
  const auto first = std::min(reply.find_first_not_of(kLineEnds), reply.size());
  reply.remove_prefix(first);
  return shortVisibleText(reply.substr(0, reply.find_last_not_of(kLineEnds) + 1));
}

char addressCharacter(int unit) {
  // Unit 15 is not "?", which is the prompt of the update mode.
  return "123456789:;<=>@"[unit - 1];
}

}  // namespace

FirmwareUpdate::FirmwareUpdate(Platform& platform, Window& window, const WindowLife& life)
    : dialogs_(platform.dialogs()), window_(window), life_(life), link_(platform, window, life) {}

void FirmwareUpdate::Form_Load(LiveSettings& settings) {
  try {
    link_.setUp(settings);
  } catch (const RuntimeError&) {
    dialogs_.messageBox(
        "Communication Settings are incompatible with update mode. Please lower the baud rate.");
  }
}

void FirmwareUpdate::cmdLoadImage_Click() {
  atHandlerEdge(dialogs_, "cmdLoadImage_Click", [this] {
    const std::string name = dialogs_.openFile({.title = "Firmware Update",
                                                .filter = "MVUpdate (*.zrf)|*.zrf",
                                                .default_extension = "hex",
                                                .file_must_exist = true,
                                                .cancel_is_error = true});
    if (name.empty() || life_.leaving()) return;
    chosen_file_ = name;
    window_.setStatus("Status: Loaded " + name);
    window_.showEndOfStatus();
    window_.enableUpdate(true);
  });
}

void FirmwareUpdate::cmdUpdate_Click() {
  if (running_) return;
  running_ = true;
  try {
    atHandlerEdge(dialogs_, "cmdUpdate_Click", [this] { update(); });
  } catch (const FlashLink::Over&) {
  }
  running_ = false;
  if (life_.leaving()) return;
  window_.enablePause(false);
  window_.enableUpdate(true);
}

void FirmwareUpdate::update() {
  window_.enableUpdate(false);
  file_ = chosen_file_;
  link_.startAnew();
  if (window_.verbose()) window_.enlarge();
  link_.yield();
  if (!confirm()) return;
  wake();
  if (!terminateCommands()) return;
  negotiateBaudRate();
  ZrfHeader header;
  if (!validate(header)) return;
  const std::string image = readImage();
  if (!enterUpdateMode(header)) return;
  transmit(header, image);
}

bool FirmwareUpdate::confirm() {
  const BoxButton answer = showBox(
      "Are you sure you want to continue? \r\n\r\n"
      "- Disconnect all other devices from serial bus.\r\n"
      "- Terminate connections for high baud rates.\r\n\r\n"
      "- DO NOT POWER OFF DEVICE until update is complete.",
      box::kYesNo + box::kInformation);
  if (answer != BoxButton::kYes) {
    window_.setStatus("Status: None");
    return false;
  }
  confirmed_before_ = true;
  address_ = addressCharacter(window_.unitNumber());
  baud_ = window_.baudText();
  return true;
}

void FirmwareUpdate::wake() {
  link_.sendFlashtoMV(kWakeByte);
  link_.waitFor(link_.reply.ReplyDone, kAnswerTimeoutMs);
}

bool FirmwareUpdate::terminateCommands() {
  window_.setStatus("Status: Terminating Commands...");
  link_.sendFlashtoMV(command("T"));
  if (link_.waitFor(link_.reply.ReplyDone, kAnswerTimeoutMs)) return true;
  showBox(std::string("No response from Terminate command. Verify unit is powered up, connected "
                      "and the address switch is set to ") +
          address_ + ".");
  return false;
}

void FirmwareUpdate::negotiateBaudRate() {
  // The unit's prompt follows the end of its answer; whoever takes it from the port, it is the
  // rest.
  link_.pause(kRestOfAnswerMs);
  const std::string_view answer = link_.reply.UpdateRxBuffer();
  const std::string rest(answer.substr(std::min(answer.find('\r'), answer.size())));
  const std::string unread = link_.getRXBuffer(0);
  // A unit that prompts for an update understands no other command, and listens at 9600.
  if ((rest + unread).find('?') == std::string::npos) {
    window_.setStatus("Status: Negotiating baud rate...");
    window_.setProgress(5);
    link_.sendFlashtoMV(command("b" + baud_ + "R"));
    link_.WaitOutputDrained();
  } else {
    window_.selectFirstBaud();
    baud_ = window_.baudText();
  }
  link_.reopen(baud_ + ",N,8,1");
  link_.pause(kSettlePauseMs);
  link_.discardInput();
}

bool FirmwareUpdate::validate(ZrfHeader& header) {
  window_.setStatus("Status: Validating ZRF update file...");
  window_.setProgress(2);
  int attempt = 1;
  for (; attempt <= kMostValidations; ++attempt) {
    const Validation result = validUpdateFile(header);
    if (result == Validation::kAccepted) break;
    if (!tryAgain(result, header)) return false;
  }
  // Even a success at the last attempt is too late, while ten failures that the user waved through
  // count as validated.
  if (attempt != kMostValidations) return true;
  window_.setStatus("Status: Invalid ZRF update file...");
  return false;
}

bool FirmwareUpdate::tryAgain(Validation result, const ZrfHeader& header) {
  std::string text = "Unable to validate ZRF file!";
  int icon = box::kExclamation;
  if (result == Validation::kNoVersion) {
    text = "Unable to get a valid version string from " + header.Model +
           " controller. Got: " + shownAnswer(link_.reply.UpdateRxBuffer());
    icon = box::kInformation;
  } else if (result == Validation::kWrongModel) {
    text = "This ZRF update file does not work with this " + header.Model +
           " model or this model can not be field upgraded.";
    icon = box::kInformation;
  }
  return showBox(text, box::kOkCancel + icon) == BoxButton::kOk;
}

FirmwareUpdate::Validation FirmwareUpdate::validUpdateFile(ZrfHeader& header) {
  try {
    window_.setStatus("Status: Validating ZRF file...");
    checked_header_ = headerText(readStartOfFile(file_, kHeaderLength));
    recogniseHeader(checked_header_, header, dialogs_);
    link_.throwIfOver();
    return validateAgainstUnit(header);
  } catch (const RuntimeError& error) {
    showBox(errorReport("validUpdateFile", error), box::kInformation);
    return Validation::kNotValidated;
  }
}

FirmwareUpdate::Validation FirmwareUpdate::validateAgainstUnit(ZrfHeader& header) {
  FlashReply& reply = link_.reply;
  reply.clear();
  reply.WantNumeric = false;
  link_.sendFlashtoMV(command("&"));
  link_.WaitOutputDrained();
  if (!link_.waitFor(reply.ReplyDone, kAnswerTimeoutMs)) return Validation::kNotValidated;

  header.ControllerFailed = reply.contains("?");
  if (header.ControllerFailed) {
    window_.setStatus("Status: Unable to validate file for this controller state...");
    showBox(
        "Unable to validate file for this controller state.\r\r"
        "The controller has not passed self-validation.\r"
        "Take care to ensure this is the correct update for this particular " +
            header.Model + " controller.",
        box::kExclamation);
    return Validation::kAccepted;
  }

  const std::string version = ExtractVersion(reply.UpdateRxBuffer());
  if (version.empty()) return Validation::kNoVersion;
  reply.clear();
  const CpuIdQuery query = cpuIdQueryOf(version);
  if (query == CpuIdQuery::kUnknown) return Validation::kNotValidated;
  if (query == CpuIdQuery::kAnswered) {
    const Validation result = checkCpuId(header);
    if (result != Validation::kAccepted) return result;
  }
  reply.clear();
  window_.setStatus(header.FullUpdate ? "Status: ***FULL UPDATE*** ZRF file OK..."
                                      : "Status: ZRF file OK...");
  return Validation::kAccepted;
}

FirmwareUpdate::Validation FirmwareUpdate::checkCpuId(const ZrfHeader& header) {
  // `NumericSeen` stays set from one validation to the next; a later one takes what is there.
  link_.reply.WantNumeric = true;
  link_.sendFlashtoMV(command("!"));
  link_.WaitOutputDrained();
  if (!link_.waitFor(link_.reply.NumericSeen, kAnswerTimeoutMs)) return Validation::kNotValidated;
  const std::string answer = lowerCase(trimBlanks(link_.reply.UpdateRxBuffer()));
  const bool fits = answer.find(lowerCase(header.CpuIdText)) != std::string::npos;
  return fits ? Validation::kAccepted : Validation::kWrongModel;
}

std::string FirmwareUpdate::readImage() {
  window_.setProgress(10);
  std::string image = readUpdateFile(file_);
  // Another file in its place would be sent on the word of the one that was checked.
  if (headerText(image) != checked_header_) throw RuntimeError(Fault::kPathFileAccess);
  return image;
}

bool FirmwareUpdate::enterUpdateMode(const ZrfHeader& header) {
  FlashReply& reply = link_.reply;
  reply.clear();
  reply.PromptSeen = false;
  window_.setStatus("Status: Entering update mode...");
  if (header.FullUpdate && header.ControllerFailed) {
    showBox(
        "Critical Upgrade must use Partial upgrade files only. Please re-try the update with the "
        "Partial Upgrade file. Exiting...",
        box::kInformation + box::kExclamation);
    return false;
  }
  link_.sendFlashtoMV(command((header.FullUpdate ? "]" : "[") + kAccessCode));
  link_.WaitOutputDrained();
  if (!link_.waitFor(reply.PromptSeen, kPromptTimeoutMs)) {
    showBox(" 20 Unrecognized response from Unit, Exiting");
    return false;
  }
  if (reply.contains("?")) return true;
  showBox("Response: '" + shownAnswer(trimBlanks(reply.UpdateRxBuffer())) + "'. Exiting...",
          box::kInformation + box::kExclamation);
  return false;
}

void FirmwareUpdate::transmit(const ZrfHeader& header, const std::string& image) {
  link_.reply.clear();
  window_.setStatus("Status: Transmitting data...");
  window_.setProgress(20);
  window_.enablePause(true);
  std::size_t position = payloadStart(header);
  std::size_t since_step = position;
  link_.pause(kStartPauseMs);
  link_.reply.clear();

  // A piece that would start at the very last byte is not sent: units expect it so.
  for (int pieces = 0; position < image.size(); ++pieces) {
    if (link_.AbortTransfer) return;
    if (!deliver(pieceAt(image, position))) return;
    position += kPieceLength;
    since_step += kPieceLength;
    if (pieces % kPiecesPerSpin == 0) ShowSpinner(pieces);
    const double share = static_cast<double>(since_step) / static_cast<double>(image.size()) * 100;
    if (share >= kProgressShare) {
      window_.setProgress(window_.progress() + kProgressStep);
      since_step = 0;
    }
  }
  window_.setStatus("Status: Transfer complete...");
  window_.setSpinner(" ");
  window_.setStatus("Status: OK");
}

bool FirmwareUpdate::deliver(const std::string& piece) {
  link_.sendPiece(piece);
  if (!link_.waitForAcknowledgement(kPieceTimeoutMs)) {
    showBox(" 5 Timeout waiting for response, Exiting");
    return false;
  }
  if (link_.reply.contains("Error")) {
    window_.setStatus("Status: " + shownAnswer(link_.reply.UpdateRxBuffer()) + "!");
    return false;
  }
  link_.reply.clear();
  return true;
}

void FirmwareUpdate::ShowSpinner(int number) {
  static constexpr const char* kPositions[] = {"-", "\\", "|", "/"};
  window_.setSpinner(kPositions[number % 4]);
  link_.yield();
}

BoxButton FirmwareUpdate::showBox(const std::string& text, int style) {
  const BoxButton button = dialogs_.messageBox(text, style);
  link_.throwIfOver();
  return button;
}

std::string FirmwareUpdate::command(const std::string& text) const {
  std::string command{'/', address_};
  command += text;
  command += '\r';
  return command;
}

}  // namespace mvdirigo

#include "update/update_run.h"

#include <algorithm>
#include <utility>

#include "platform/runtime_error.h"
#include "platform/text.h"
#include "update/controller_version.h"

namespace mvdirigo {
namespace {

// The waits and the access code are those of the table in docs/PROTOCOLS.md.

/// For the carriage return or the number that ends a unit's answer to a command.
constexpr int kAnswerTimeoutMs = 5000;
/// Between the end of an answer and the prompt behind it: one character at 9600 bit/s takes 1 ms,
/// and common adapters hold it back for up to 16 ms.
constexpr int kRestOfAnswerMs = 20;
/// A unit needs it to change its rate.
constexpr int kSettlePauseMs = 5000;
/// A unit erases its old firmware before it prompts for the new.
constexpr int kPromptTimeoutMs = 20000;
constexpr int kStartPauseMs = 10;
/// For the acknowledgement of one piece.
constexpr int kPieceTimeoutMs = 12000;

constexpr int kMostValidations = 10;
constexpr std::size_t kPieceLength = 6;
constexpr int kPiecesPerSpin = 7;

/// In percent, what the progress bar shows when a step begins.
constexpr int kNegotiatingProgress = 5;
constexpr int kValidatingProgress = 2;
constexpr int kEnteringProgress = 10;
constexpr int kTransmittingProgress = 20;
/// The progress bar moves by so much per this share of the file, instead of with every piece.
constexpr int kProgressStep = 5;
constexpr double kProgressShare = 6.7;

/// Wakes a unit that sleeps.
const std::string kWakeByte = "\xAA";
/// Lets a unit enter its update mode.
const std::string kAccessCode = "40617";

/// The piece that starts at `position`, counted from 1; blanks stand for bytes past the end.
std::string pieceAt(const std::string& image, std::size_t position) {
  std::string piece = image.substr(position - 1, kPieceLength);
  piece.resize(kPieceLength, ' ');
  return piece;
}

/// How many bytes are sent of an image whose first is at `start`, counted from 1. A last byte that
/// would be a piece of its own is not among them.
std::size_t sentBytesOf(std::size_t image_size, std::size_t start) {
  const std::size_t payload = image_size - std::min(start - 1, image_size);
  return payload % kPieceLength == 1 ? payload - 1 : payload;
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

UpdateRun::UpdateRun(Dialogs& dialogs, Window& window, FlashLink& link, std::string file)
    : dialogs_(dialogs), window_(window), link_(link), file_(std::move(file)) {}

bool UpdateRun::update() {
  const Outcome outcome = run();
  report(outcome);
  return outcome == Outcome::kComplete;
}

UpdateRun::Outcome UpdateRun::run() {
  window_.enableUpdate(false);
  link_.startAnew();
  if (window_.verbose()) window_.enlarge();
  link_.yield();
  if (const End end = confirm()) return *end;
  wake();
  if (const End end = terminateCommands()) return *end;
  negotiateBaudRate();
  if (const End end = validate()) return *end;
  const std::string image = readImage();
  if (const End end = enterUpdateMode()) return *end;
  return transmit(image);
}

void UpdateRun::report(Outcome outcome) {
  switch (outcome) {
    case Outcome::kComplete:
      window_.setStatus("Status: Transfer complete...");
      window_.setSpinner(" ");
      window_.setStatus("Status: OK");
      return;
    case Outcome::kDeclined:
      window_.setStatus("Status: None");
      return;
    case Outcome::kGivenUp:
    case Outcome::kAborted:
      return;
    case Outcome::kNoResponse:
      showBox(std::string("No response from Terminate command. Verify unit is powered up, "
                          "connected and the address switch is set to ") +
              address_ + ".");
      return;
    case Outcome::kNotValidated:
      window_.setStatus("Status: Invalid ZRF update file...");
      return;
    case Outcome::kPartialOnly:
      showBox(
          "Critical Upgrade must use Partial upgrade files only. Please re-try the update with the "
          "Partial Upgrade file. Exiting...",
          box::kInformation + box::kExclamation);
      return;
    case Outcome::kNoPrompt:
      showBox(" 20 Unrecognized response from Unit, Exiting");
      return;
    case Outcome::kNoUpdateMode:
      showBox(
          "Response: '" + shownAnswer(trimBlanks(link_.reply().UpdateRxBuffer())) + "'. Exiting...",
          box::kInformation + box::kExclamation);
      return;
    case Outcome::kPieceTimeout:
      showBox(" 5 Timeout waiting for response, Exiting");
      return;
    case Outcome::kPieceRefused:
      window_.setStatus("Status: " + shownAnswer(link_.reply().UpdateRxBuffer()) + "!");
      return;
  }
}

UpdateRun::End UpdateRun::confirm() {
  const BoxButton answer = showBox(
      "Are you sure you want to continue? \r\n\r\n"
      "- Disconnect all other devices from serial bus.\r\n"
      "- Terminate connections for high baud rates.\r\n\r\n"
      "- DO NOT POWER OFF DEVICE until update is complete.",
      box::kYesNo + box::kInformation);
  if (answer != BoxButton::kYes) return Outcome::kDeclined;
  confirmed_ = true;
  address_ = addressCharacter(window_.unitNumber());
  baud_ = window_.baudText();
  return {};
}

void UpdateRun::wake() {
  link_.sendFlashtoMV(kWakeByte);
  // A unit that is awake may stay silent.
  static_cast<void>(link_.waitForReply(kAnswerTimeoutMs));
}

UpdateRun::End UpdateRun::terminateCommands() {
  window_.setStatus("Status: Terminating Commands...");
  link_.sendFlashtoMV(command("T"));
  if (!link_.waitForReply(kAnswerTimeoutMs)) return Outcome::kNoResponse;
  return {};
}

void UpdateRun::negotiateBaudRate() {
  // A unit that waits for an update prompts right behind its answer. So the prompt stands in the
  // buffer from the carriage return on, or is still to be read.
  link_.pause(kRestOfAnswerMs);
  const std::string_view answer = link_.reply().UpdateRxBuffer();
  const std::string rest(answer.substr(std::min(answer.find('\r'), answer.size())));
  const std::string unread = link_.getRXBuffer(0);
  // A unit that prompts for an update understands no other command, and listens at 9600.
  if ((rest + unread).find('?') == std::string::npos) {
    window_.setStatus("Status: Negotiating baud rate...");
    window_.setProgress(kNegotiatingProgress);
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

UpdateRun::End UpdateRun::validate() {
  window_.setStatus("Status: Validating ZRF update file...");
  window_.setProgress(kValidatingProgress);
  int attempt = 1;
  for (; attempt <= kMostValidations; ++attempt) {
    const Validation result = validUpdateFile();
    if (result == Validation::kAccepted) break;
    if (!tryAgain(result)) return Outcome::kGivenUp;
  }
  // Even a success at the last attempt is too late, while ten failures that the user waved through
  // count as validated.
  if (attempt == kMostValidations) return Outcome::kNotValidated;
  return {};
}

bool UpdateRun::tryAgain(Validation result) {
  std::string text = "Unable to validate ZRF file!";
  int icon = box::kExclamation;
  if (result == Validation::kNoVersion) {
    text = "Unable to get a valid version string from " + header_.Model +
           " controller. Got: " + shownAnswer(link_.reply().UpdateRxBuffer());
    icon = box::kInformation;
  } else if (result == Validation::kWrongModel) {
    text = "This ZRF update file does not work with this " + header_.Model +
           " model or this model can not be field upgraded.";
    icon = box::kInformation;
  }
  return showBox(text, box::kOkCancel + icon) == BoxButton::kOk;
}

UpdateRun::Validation UpdateRun::validUpdateFile() {
  try {
    window_.setStatus("Status: Validating ZRF file...");
    checked_header_ = headerText(readStartOfFile(file_, kHeaderLength));
    recogniseHeader(checked_header_, header_, dialogs_);
    link_.throwIfOver();
    return validateAgainstUnit();
  } catch (const RuntimeError& error) {
    showBox(errorReport("validUpdateFile", error), box::kInformation);
    return Validation::kNotValidated;
  }
}

UpdateRun::Validation UpdateRun::validateAgainstUnit() {
  link_.clearReply();
  link_.wantNumber(false);
  link_.sendFlashtoMV(command("&"));
  link_.WaitOutputDrained();
  if (!link_.waitForReply(kAnswerTimeoutMs)) return Validation::kNotValidated;

  header_.ControllerFailed = link_.reply().contains("?");
  if (header_.ControllerFailed) {
    window_.setStatus("Status: Unable to validate file for this controller state...");
    showBox(
        "Unable to validate file for this controller state.\r\r"
        "The controller has not passed self-validation.\r"
        "Take care to ensure this is the correct update for this particular " +
            header_.Model + " controller.",
        box::kExclamation);
    return Validation::kAccepted;
  }

  const std::string version = ExtractVersion(link_.reply().UpdateRxBuffer());
  if (version.empty()) return Validation::kNoVersion;
  link_.clearReply();
  const CpuIdQuery query = cpuIdQueryOf(version);
  if (query == CpuIdQuery::kUnknown) return Validation::kNotValidated;
  if (query == CpuIdQuery::kAnswered) {
    const Validation result = checkCpuId();
    if (result != Validation::kAccepted) return result;
  }
  link_.clearReply();
  window_.setStatus(header_.FullUpdate ? "Status: ***FULL UPDATE*** ZRF file OK..."
                                       : "Status: ZRF file OK...");
  return Validation::kAccepted;
}

UpdateRun::Validation UpdateRun::checkCpuId() {
  // `NumericSeen` stays set from one validation to the next; a later one takes what is there.
  link_.wantNumber(true);
  link_.sendFlashtoMV(command("!"));
  link_.WaitOutputDrained();
  if (!link_.waitForNumber(kAnswerTimeoutMs)) return Validation::kNotValidated;
  const std::string answer = lowerCase(trimBlanks(link_.reply().UpdateRxBuffer()));
  const bool fits = answer.find(lowerCase(header_.CpuIdText)) != std::string::npos;
  return fits ? Validation::kAccepted : Validation::kWrongModel;
}

std::string UpdateRun::readImage() {
  window_.setProgress(kEnteringProgress);
  std::string image = readUpdateFile(file_);
  // Another file in its place would be sent on the word of the one that was checked.
  if (headerText(image) != checked_header_) throw RuntimeError(Fault::kPathFileAccess);
  return image;
}

UpdateRun::End UpdateRun::enterUpdateMode() {
  link_.clearReply();
  link_.forgetPrompt();
  window_.setStatus("Status: Entering update mode...");
  if (header_.FullUpdate && header_.ControllerFailed) return Outcome::kPartialOnly;
  link_.sendFlashtoMV(command((header_.FullUpdate ? "]" : "[") + kAccessCode));
  link_.WaitOutputDrained();
  if (!link_.waitForPrompt(kPromptTimeoutMs)) return Outcome::kNoPrompt;
  if (!link_.reply().contains("?")) return Outcome::kNoUpdateMode;
  return {};
}

UpdateRun::Outcome UpdateRun::transmit(const std::string& image) {
  link_.clearReply();
  window_.setStatus("Status: Transmitting data...");
  window_.setProgress(kTransmittingProgress);
  window_.enablePause(true);
  const std::size_t start = payloadStart(header_);
  const std::size_t all = sentBytesOf(image.size(), start);
  std::size_t position = start;
  std::size_t since_step = position;
  link_.pause(kStartPauseMs);
  link_.clearReply();
  window_.startTransfer(all);

  // A piece that would start at the very last byte is not sent: units expect it so.
  for (int pieces = 0; position < image.size(); ++pieces) {
    if (link_.AbortTransfer()) return Outcome::kAborted;
    if (const End end = deliver(pieceAt(image, position))) return *end;
    position += kPieceLength;
    since_step += kPieceLength;
    window_.setSent(std::min(position - start, all));
    if (pieces % kPiecesPerSpin == 0) ShowSpinner(pieces);
    const double share = static_cast<double>(since_step) / static_cast<double>(image.size()) * 100;
    if (share >= kProgressShare) {
      window_.setProgress(window_.progress() + kProgressStep);
      since_step = 0;
    }
  }
  return Outcome::kComplete;
}

UpdateRun::End UpdateRun::deliver(const std::string& bytes) {
  FlashLink::Piece piece(link_);
  piece.send(bytes);
  if (!piece.waitForAcknowledgement(kPieceTimeoutMs)) return Outcome::kPieceTimeout;
  if (link_.reply().contains("Error")) return Outcome::kPieceRefused;
  link_.clearReply();
  return {};
}

void UpdateRun::ShowSpinner(int number) {
  static constexpr const char* kPositions[] = {"-", "\\", "|", "/"};
  window_.setSpinner(kPositions[number % 4]);
  link_.yield();
}

BoxButton UpdateRun::showBox(const std::string& text, int style) {
  const BoxButton button = dialogs_.messageBox(text, style);
  link_.throwIfOver();
  return button;
}

std::string UpdateRun::command(const std::string& text) const {
  std::string command{'/', address_};
  command += text;
  command += '\r';
  return command;
}

}  // namespace mvdirigo

#include "update/update_file.h"

#include <algorithm>

#include "platform/handler_edge.h"
#include "platform/input_file.h"
#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

int hexDigit(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  return -1;
}

char hexDigitOf(std::int32_t value) { return "0123456789ABCDEF"[value & 0xF]; }

}  // namespace

std::int32_t hexLiteral(std::string_view text) {
  std::uint32_t value = 0;
  for (const char character : text) {
    const int digit = hexDigit(character);
    if (digit < 0) break;
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  return static_cast<std::int32_t>(value);
}

std::string headerText(std::string_view file) {
  std::string text(file.substr(0, kHeaderLength));
  text.resize(kHeaderLength, ' ');
  return text;
}

void recogniseHeader(const std::string& text, ZrfHeader& header, Dialogs& dialogs) {
  header.NoHeader = true;
  header.Model.clear();
  const std::string_view digits = text;
  if (hexLiteral(digits.substr(0, 1)) <= 5 && hexLiteral(digits.substr(1, 1)) == 0) {
    header.NoHeader = false;
    getZRFHeader(text, header, dialogs);
  }
}

bool getZRFHeader(const std::string& text, ZrfHeader& header, Dialogs& dialogs) {
  return atHandlerEdge(dialogs, "getZRFHeader", [&] {
    const std::int32_t number = hexLiteral(text);
    header.FullUpdate = (number & 0x10000) != 0;
    // The masked bit is 0x100 when set, never 2, so every file counts as one for a stepper. The
    // model only words messages; the controller's own answer decides what a file fits.
    const std::int32_t model = number & 0x100;
    header.IsServo = model == 2;
    header.Model = header.IsServo ? "servo" : "stepper";
    header.CpuId = number & 0xFFF;
    header.CpuIdText = {hexDigitOf((number & 0xF00) / 256), hexDigitOf((header.CpuId & 0xF0) / 16),
                        hexDigitOf(header.CpuId & 0xF)};
  });
}

std::size_t payloadStart(const ZrfHeader& header) {
  return header.NoHeader ? 1 : kHeaderLength + 1;
}

UpdateFileFacts inspectUpdateFile(const std::string& path, Dialogs& dialogs) {
  UpdateFileFacts facts{.path = path};
  try {
    const InputFile file(path);
    facts.size = file.size();
    const std::string start = file.start(std::min(facts.size, kHeaderLength));
    recogniseHeader(headerText(start), facts.header, dialogs);
  } catch (const RuntimeError& error) {
    facts.obstacle = error.description();
  }
  return facts;
}

std::string readStartOfFile(const std::string& path, std::size_t most) {
  const InputFile file(path);
  return file.start(std::min(file.size(), most));
}

std::string readUpdateFile(const std::string& path) {
  return InputFile(path).whole(kLargestUpdateFile);
}

}  // namespace mvdirigo

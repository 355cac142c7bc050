#include "update/update_file.h"

#include <sys/mman.h>

#include "property.h"
#include "simulator/model/update_image.h"
#include "simulator/virtual/scripted_dialogs.h"
#include "support/files.h"

using namespace mvdirigo;

static std::uint32_t hexNumber(std::string_view text) {
  text = text.substr(0, text.find_first_not_of("0123456789abcdefABCDEF"));
  const std::string last(text.substr(text.size() - std::min<std::size_t>(text.size(), 8)));
  return last.empty() ? 0 : static_cast<std::uint32_t>(std::stoul(last, nullptr, 16));
}

/// A file says what its first five bytes do, and what is sent of it is what a unit expects.
void mvdirigo::check(std::string_view input) {
  static ScriptedDialogs dialogs;
  static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("input", 0));
  writeFile(path, std::string(input));
  static ZrfHeader header;  // of the file before
  const auto [name, obstacle, size, looked_at] = inspectUpdateFile(path, dialogs);
  const std::string start = headerText(input);
  recogniseHeader(start, header, dialogs);
  require(obstacle.empty() && size == input.size(), "any file can be looked at");
  require(readUpdateFile(path) == input && dialogs.problems().empty(), "and read, without a fault");
  const std::uint32_t number = hexNumber(start);
  require(static_cast<std::uint32_t>(hexLiteral(input)) == hexNumber(input), "digits are a number");
  const auto payload = input.substr(std::min(input.size(), payloadStart(header) - 1), 6);
  require(payload.size() < 2 || imageOfUpdateFile(input).starts_with(payload), "what is sent fits");
  const std::string id = {"0123456789ABCDEF"[number >> 8 & 15],
                          "0123456789ABCDEF"[number >> 4 & 15], "0123456789ABCDEF"[number & 15]};
  const bool is_header = hexNumber(start.substr(0, 1)) <= 5 && hexNumber(start.substr(1, 1)) == 0;
  require(header.NoHeader != is_header, "two digits tell a header");
  require(looked_at.NoHeader != is_header && looked_at.CpuId == (is_header ? header.CpuId : 0),
          "it is the one that is looked at");
  require(header.Model == (is_header ? "stepper" : "") && !header.IsServo, "all are for steppers");
  if (!is_header) return;
  require(header.CpuIdText == id && header.CpuId == static_cast<int>(number & 0xFFF),
          "the last three digits are the ID");
  require(header.FullUpdate == ((number >> 16 & 1) != 0), "full is told");
}

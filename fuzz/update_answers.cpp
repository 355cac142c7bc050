#include <regex>

#include "platform/text.h"
#include "property.h"
#include "support/fault_number.h"
#include "update/controller_version.h"
#include "update/flash_reply.h"

using namespace mvdirigo;

/// Whether a number stood two characters behind a "0" at any time since the first CR came in.
static bool holdsNumber(const std::string& bytes) {
  const std::size_t cr = bytes.find('\r');
  for (std::size_t at = 2; cr < bytes.size() && at < bytes.size(); ++at) {
    for (std::size_t length = 1; bytes[at - 2] == '0' && length <= 3; ++length) {
      const bool seen = at + length <= bytes.size() && (length == 3 || at + length > cr);
      if (seen && faultNumber([&] { textToNumber(bytes.substr(at, length)); }) == 0) return true;
    }
  }
  return false;
}

/// What a unit answers is kept and searched as it comes in; a version says what its words do.
void mvdirigo::check(std::string_view input) {
  const std::string bytes = sometimesFlooding(input);
  FlashReply reply;
  reply.WantNumeric = true;
  for (const char byte : bytes) {
    reply.ReplyDone = reply.ReplyDone || byte == '\r';
    reply.append(byte);
  }
  const std::size_t kept = std::min<std::size_t>(bytes.size(), 65536);
  require(reply.UpdateRxBuffer() == bytes.substr(bytes.size() - kept), "the newest is kept");
  require(reply.NumericSeen == holdsNumber(bytes), "a number behind a \"0\" is found");
  std::string version;
  for (std::string_view rest = bytes; !rest.empty() && version.empty();) {
    const std::string word(takeUntil(' ', rest));
    if (word.find('.') < word.size() && word.find_first_of("vV") < word.size()) version = word;
  }
  require(ExtractVersion(bytes) == version, "the first word with \"v\" and \".\" is the version");
  static const std::regex form(".(\\d{1,2})\\.(\\d)(\\d?)");
  std::smatch digits;
  CpuIdQuery query{};
  const int fault = faultNumber([&] { query = cpuIdQueryOf(version); });
  if (version.size() > 6 || !std::regex_match(version, digits, form)) return;
  const bool late = std::stoi(digits[1]) > 7 || digits[2] != "0" || digits[3] > "1";
  require(fault == 0 && late == (query == CpuIdQuery::kAnswered), "late versions tell their ID");
}

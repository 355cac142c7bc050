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
  require(reply.WantNumeric != reply.NumericSeen, "one number is enough");
  std::string version;
  for (std::string_view rest = bytes; !rest.empty() && version.empty();) {
    const std::string word(takeUntil(' ', rest));
    if (word.find('.') < word.size() && word.find_first_of("vV") < word.size()) version = word;
  }
  require(ExtractVersion(bytes) == version, "the first word with \"v\" and \".\" is the version");
  CpuIdQuery query{};
  const int fault = faultNumber([&] { query = cpuIdQueryOf(version); });
  const std::size_t point = version.find('.');
  if (point != 2 && point != 3) {
    return require(fault == 0 && query == CpuIdQuery::kUnknown, "a point elsewhere tells nothing");
  }
  int major = 0, minor = 0;
  const int misspelt = faultNumber([&] {
    major = textToInt16(version.substr(1, point - 1));
    minor = textToInt16(version.substr(point + 1, 1));
  });
  require(fault == misspelt, "numbers are around the point");
  if (misspelt) return;
  const char last = (version + " ")[point + 2];
  const bool late = major > 7 || minor != 0 || (last >= '2' && last <= '9');
  require(late == (query == CpuIdQuery::kAnswered), "late versions tell their ID");
}

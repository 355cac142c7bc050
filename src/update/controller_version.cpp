#include "update/controller_version.h"

#include <algorithm>

#include "platform/text.h"

namespace mvdirigo {
namespace {

/// The characters of `text` from `position`; fewer, or none, at its end.
std::string_view middle(std::string_view text, std::size_t position, std::size_t length) {
  return text.substr(std::min(position, text.size()), length);
}

bool isDigit(std::string_view character) {
  return character.size() == 1 && character[0] >= '0' && character[0] <= '9';
}

}  // namespace

std::string ExtractVersion(std::string_view reply) {
  while (!reply.empty()) {
    const std::string_view word = reply.substr(0, reply.find(' '));
    const bool is_version = word.find_first_of("vV") != std::string_view::npos &&
                            word.find('.') != std::string_view::npos;
    if (is_version) return std::string(word);
    reply.remove_prefix(std::min(word.size() + 1, reply.size()));
  }
  return {};
}

CpuIdQuery cpuIdQueryOf(std::string_view version) {
  const std::size_t point = version.find('.');
  if (point != 2 && point != 3) return CpuIdQuery::kUnknown;
  const int major = textToInt16(middle(version, 1, point - 1));
  const int first_minor = textToInt16(middle(version, point + 1, 1));
  const std::string_view second = middle(version, point + 2, 1);
  const int second_minor = isDigit(second) ? textToInt16(second) : 0;
  // So 7.02, 8.00 and also 6.10 answer; 7.01, 7.00 and 5.01 do not.
  const bool answered = major > 7 || first_minor != 0 || second_minor > 1;
  return answered ? CpuIdQuery::kAnswered : CpuIdQuery::kNotAnswered;
}

}  // namespace mvdirigo

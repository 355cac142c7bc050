#include "update/flash_reply.h"

#include <algorithm>
#include <string_view>

#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

constexpr std::size_t kNumberOffset = 2;
constexpr std::size_t kNumberLength = 3;

bool isNumber(std::string_view text) {
  return skipOnError([&] { textToNumber(text); });
}

}  // namespace

void FlashReply::clear() {
  buffer_.clear();
  searched_ = 0;
  ReplyDone = false;
}

void FlashReply::append(char character) {
  buffer_.append(character);
  if (ReplyDone && WantNumeric) lookForNumber();
}

void FlashReply::lookForNumber() {
  const std::string_view text = UpdateRxBuffer();
  const std::size_t before_text = buffer_.length() - text.size();
  for (std::size_t i = std::max(searched_, before_text) - before_text;
       i + kNumberOffset < text.size(); ++i) {
    if (text[i] == '0' && isNumber(text.substr(i + kNumberOffset, kNumberLength))) {
      NumericSeen = true;
      WantNumeric = false;
      return;
    }
  }
  // Only what reaches the end of the buffer reads differently once more characters have come.
  constexpr std::size_t kReach = kNumberOffset + kNumberLength - 1;
  searched_ = buffer_.length() - std::min(buffer_.length(), kReach);
}

}  // namespace mvdirigo

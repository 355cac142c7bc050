#include "protocol/reply_decoding.h"

namespace mvdirigo {
namespace {

/// The character at `position`, 1-based; none outside the reply.
std::optional<char> characterAt(std::string_view reply, std::size_t position) {
  if (position < 1 || position > reply.size()) return std::nullopt;
  return reply[position - 1];
}

/// The characters from `first` to the last but one, which is ETX, carriage returns left out.
std::string dataFrom(std::string_view reply, std::size_t first) {
  if (reply.size() <= first) return {};
  std::string data(reply.substr(first - 1, reply.size() - first));
  // Mostly there is none, and looking for one is much cheaper than taking them out.
  if (data.find('\r') != std::string::npos) std::erase(data, '\r');
  return data;
}

}  // namespace

const std::array<const char*, 17> ErrorTable = {
    " No Error",        " Initialization Error",
    " Invalid Command", " Invalid Operand",
    " Error 4",         " Error 5",
    " Error 6",         " Error 7",
    " Error 8",         " Error 9",
    " Error 10",        " Error 11",
    " Error 12",        " Error 13",
    "Flash CRC Error",  " Device is already executing a command",
    " Error 16",
};

DecodedReply decodeDt(std::string_view reply) {
  // A "0" as the last character has no status after it, like no "0" at all.
  const std::size_t zero = reply.find('0');
  std::optional<char> status;
  if (zero != std::string_view::npos) status = characterAt(reply, zero + 2);
  return {status, dataFrom(reply, 5)};
}

DecodedReply decodeOem(std::string_view reply) {
  return {characterAt(reply, 2), dataFrom(reply, 3)};
}

}  // namespace mvdirigo

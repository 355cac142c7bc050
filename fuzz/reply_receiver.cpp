#include <vector>

#include "core/serial_link.h"
#include "property.h"
#include "protocol/reply_decoding.h"
#include "simulator/model/simulated_bus.h"
#include "simulator/virtual/virtual_platform.h"
#include "support/chosen_settings.h"

using namespace mvdirigo;

/// Looks at every reply that the console's line finds.
struct Receiver : SerialLink::Listener {
  void DecodeResponse() override {
    heard += link.takeRawReply();
    const bool oem = settings.oem;
    const std::string text(link.reply());
    std::string_view frame = heard;
    frame.remove_prefix(frame.substr(0, frame.size() - 1).rfind(oem ? '\x02' : '\r') + 1);
    require(!oem || sumOf(frame) == 2, "a frame with a wrong checksum is no reply");
    frame.remove_suffix(1);
    require(text.size() == 65536 || text.ends_with(frame), "a reply is what was received");
    const DecodedReply reply = (oem ? decodeOem : decodeDt)(text);
    const std::size_t status = (oem ? 0 : text.find('0')) + 1, start = oem ? 2 : 4;
    const bool has_status = status > 0 && status < text.size();
    std::string data = text.size() > start ? text.substr(start, text.size() - start - 1) : "";
    std::erase(data, '\r');
    require(has_status ? reply.status == text[status] : !reply.status,
            "its status is in its place");
    require(reply.data == data, "its data are all between");
    link.keepData(data);
    replies.push_back(data);
  }
  void communicationsFailed() override { require(false, "no bytes are a failure of the line"); }
  void lineChanged() override {}

  static inline VirtualPlatform machine;
  ChosenSettings settings;
  SerialLink link{machine, [this]() -> LiveSettings& { return settings; }, *this};
  std::string heard;
  std::vector<std::string> replies;
};

/// What is told of `bytes` that come in `piece` by piece.
static std::vector<std::string> repliesIn(const std::string& bytes, std::size_t piece, bool oem) {
  Receiver receiver;
  receiver.settings.oem = oem;
  receiver.link.openOnDemand();
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    receiver.machine.socket(3).deliver(bytes.substr(at, piece));
    receiver.machine.runFor(0);
    receiver.heard += receiver.link.takeRawReply();
    require(receiver.link.reply().size() <= 65536, "what is gathered is bounded");
  }
  require(receiver.heard == bytes, "all that was received is told");
  return receiver.replies;
}

/// In whatever pieces bytes come in, good frames are replies, and nothing else is. Behind each line
/// of the input comes a good frame of what the line holds.
void mvdirigo::check(std::string_view input) {
  static SimulatedBus silence({});
  Receiver::machine.attach(3, silence);
  const std::string lines = sometimesFlooding(input);
  std::string bytes;
  std::vector<std::string> framed;
  for (std::string_view rest = lines; !rest.empty();) {
    const std::string_view line = takeUntil('\n', rest);
    std::string& data = framed.emplace_back(line.substr(0, 2000));
    std::erase_if(data, [](char byte) { return byte == 2 || byte == 3 || byte == '\r'; });
    const std::string frame = "\x02\x30`" + data + '\x03';
    bytes.append(line).append(frame) += sumOf(frame);
  }
  for (const bool oem : {false, true}) {
    const auto replies = repliesIn(bytes, 1 + input.size() % 9, oem);
    require(replies == repliesIn(bytes, 4096, oem), "pieces make no difference");
    if (!oem) {
      require(std::ssize(replies) == std::ranges::count(bytes, '\r'), "every CR ends a reply");
      continue;
    }
    auto reply = replies.begin();
    for (const std::string& data : framed) {
      const auto holds = [&data](const std::string& told) { return told.ends_with(data); };
      reply = std::find_if(reply, replies.end(), holds);
      require(reply != replies.end(), "every good frame is a reply");
      ++reply;
    }
  }
}

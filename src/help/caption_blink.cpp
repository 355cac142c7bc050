#include "help/caption_blink.h"

#include <utility>

#include "platform/handler_edge.h"

namespace mvdirigo {
namespace {

constexpr int kLongMs = 1000;
constexpr int kShortMs = 500;

}  // namespace

CaptionBlink::CaptionBlink(Platform& platform,
                           std::function<void(const std::string& caption)> set_caption)
    : set_caption_(std::move(set_caption)), Timer1_(platform.makeTimer([this, &platform] {
        atHandlerEdge(platform.dialogs(), "Timer1_Timer", [this] { Timer1_Timer(); });
      })) {}

void CaptionBlink::start() {
  showLong();
  Timer1_->setEnabled(true);
}

void CaptionBlink::stop() {
  Timer1_->setEnabled(false);
  showShort();
}

void CaptionBlink::Timer1_Timer() {
  if (long_shown_) {
    showShort();
  } else {
    showLong();
  }
}

void CaptionBlink::showLong() {
  set_caption_("Dirigo Help - Click a control for its description.");
  long_shown_ = true;
  Timer1_->setInterval(kLongMs);
}

void CaptionBlink::showShort() {
  set_caption_("Dirigo Help");
  long_shown_ = false;
  Timer1_->setInterval(kShortMs);
}

}  // namespace mvdirigo

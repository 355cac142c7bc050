#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "help/caption_blink.h"
#include "help/help_texts.h"
#include "support/virtual_test.h"

namespace mvdirigo {
namespace {

class CaptionBlinkTest : public VirtualTest {};

TEST_F(CaptionBlinkTest, ShowsTheLongCaptionTwiceAsLongUntilItIsStopped) {
  using Shown = std::vector<std::pair<std::int64_t, std::string>>;  // (ms, caption)
  const std::string long_caption = "Dirigo Help - Click a control for its description.";
  const std::string short_caption = "Dirigo Help";
  EventLoop& clock = platform_.eventLoop();
  const std::int64_t start = clock.nowMs();
  Shown shown;
  CaptionBlink blink(platform_, [&](const std::string& caption) {
    shown.emplace_back(clock.nowMs() - start, caption);
  });
  blink.start();
  platform_.runFor(2600);
  EXPECT_EQ(
      shown,
      (Shown{
          {0, long_caption}, {1000, short_caption}, {1500, long_caption}, {2500, short_caption}}));
  shown.clear();
  blink.stop();
  platform_.runFor(5000);
  EXPECT_EQ(shown, (Shown{{2600, short_caption}}));
  shown.clear();
  blink.start();
  platform_.runFor(1100);
  EXPECT_EQ(shown, (Shown{{7600, long_caption}, {8600, short_caption}}));
}

TEST(HelpTexts, DescribeTheBarsEightButtonsOnly) {
  EXPECT_EQ(helpOnLoadButton(7), "This opens the Help Window.");
  EXPECT_EQ(helpOnLoadButton(8), "");
  EXPECT_EQ(helpOnLoadButton(-1), "");
}

}  // namespace
}  // namespace mvdirigo

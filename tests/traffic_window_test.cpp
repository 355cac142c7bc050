#include "support/update_window.h"

using namespace mvdirigo;

class LineTrafficTest : public UpdateWindow {
 protected:
  void open() {
    startWithUnit();
    program_->showLineTraffic();
    platform_.runFor(0);
  }
  LineTrafficWindow& window() { return *program_->lineTraffic(); }
  QListView& view() { return find<QListView>(window(), "LineTrafficView"); }
  int rows() { return view().model()->rowCount(); }
  std::string row(int row) { return view().model()->index(row, 0).data().toString().toStdString(); }
  std::string topRow() { return view().indexAt({5, 5}).data().toString().toStdString(); }
  bool isInView(int row) {
    return view().viewport()->rect().contains(
        view().visualRect(view().model()->index(row, 0)).topLeft());
  }
  void tell(const std::string& bytes) {
    platform_.lineTraffic().tell({{}, 2, LineTransfer::Direction::kOut}, bytes);
  }
  /// So many numbered writes happen, and the window shows them.
  void tellNumbers(int first, int count) {
    for (int i = first; i < first + count; ++i) tell(std::to_string(i));
    platform_.runFor(200);
  }
  static std::string told(const std::string& text) { return "00:00:00.000 COM2 > " + text; }
  static std::string clipboard() { return QApplication::clipboard()->text().toStdString(); }
};

TEST_F(LineTrafficTest, ShowsWritesAndReadsAsPlainText) {
  open();
  onConsole<QLineEdit>("StringToSend(0)").setText("/1<b>&");
  platform_.runFor(1234);
  press("SendCommand(0)");
  receive("\x02<b>");
  receive("\xB5\n", 200);
  EXPECT_EQ(row(0), "08:00:01.234 COM1 > /1<b>&\\r");
  EXPECT_EQ(row(1), "08:00:01.234 COM1 < \\x02<b>\u00B5\\n\u00FF/0b\\x03\\r\\n") << "one burst";
  find<QCheckBox>(window(), "Hex").click();
  EXPECT_EQ(row(1), "08:00:01.234 COM1 < 02 3C 62 3E B5 0A FF 2F 30 62 03 0D 0A");
}

TEST_F(LineTrafficTest, KeepsTheNewestAndFollowsThemUnlessScrolledBack) {
  open();
  tellNumbers(0, 10'050);
  EXPECT_EQ(rows(), 10'000);
  EXPECT_EQ(row(0), told("50"));
  EXPECT_TRUE(isInView(9999));

  // The current row is dropped while it is far from what the user looks at.
  view().setCurrentIndex(view().model()->index(5, 0));
  view().verticalScrollBar()->setValue(5000);
  const std::string seen = topRow();
  tellNumbers(10'050, 1000);
  EXPECT_EQ(topRow(), seen);
  view().scrollToBottom();
  tellNumbers(20'000, 30'000);
  EXPECT_EQ(row(0), told("40000"));
  EXPECT_TRUE(isInView(9999));

  tell(std::string(4096, '\x01') + "cut");
  platform_.runFor(200);
  EXPECT_TRUE(row(9999).ends_with("\\x01\u2026 (4099 bytes)"));
  view().horizontalScrollBar()->setValue(view().horizontalScrollBar()->maximum());
  const int width = view().fontMetrics().horizontalAdvance(row(9999).c_str());
  EXPECT_LE(view().visualRect(view().model()->index(9999, 0)).left() + width,
            view().viewport()->width())
      << "the end of the longest row can be seen";
}

TEST_F(LineTrafficTest, ShowsAStreamThatNeverEndsWhileItRuns) {
  open();
  for (int i = 0; i < 100; ++i) {
    const LineTransfer read{std::chrono::milliseconds(10 * i), 2, LineTransfer::Direction::kIn};
    platform_.lineTraffic().tell(read, std::string(100, 'x'));
    platform_.runFor(10);
  }
  EXPECT_GT(rows(), 20);
}

TEST_F(LineTrafficTest, WatchesNothingWhileItIsClosedAndKeepsWhatItHeld) {
  open();
  EXPECT_FALSE(view().model()->data({}, Qt::DisplayRole).isValid()) << "the list asks on Ctrl+C";
  tell("held");
  QTest::keyClick(&view(), Qt::Key_Escape);
  EXPECT_FALSE(window().isVisible() || platform_.lineTraffic().watched());
  EXPECT_EQ(platform_.queue().describe().find("timer tick, ms: 100"), std::string::npos);
  tell("missed");
  program_->showLineTraffic();
  platform_.runFor(200);
  EXPECT_EQ(rows(), 1);
  window().setWindowState(Qt::WindowMinimized);
  tell("seen later");
  platform_.runFor(200);
  EXPECT_EQ(rows(), 2);
  press(window(), "Clear");
  EXPECT_EQ(rows(), 0);
}

TEST_F(LineTrafficTest, CopiesAndSavesWhatIsThere) {
  open();
  for (const char* bytes : {"1", "2", "\xB5"}) tell(bytes);
  const std::string first_two = told("1\n") + told("2\n"), all = first_two + told("\u00B5\n");
  press(window(), "Copy");
  EXPECT_EQ(clipboard(), all) << "also what came a moment ago";
  view().setCurrentIndex(view().model()->index(1, 0));
  QTest::keyClick(&view(), Qt::Key_Up, Qt::ShiftModifier);
  QTest::keyClick(&view(), Qt::Key_C, Qt::ControlModifier);
  EXPECT_EQ(clipboard(), first_two);

  const std::string file = folder_.path / "traffic.txt", none = folder_.path / "none/file";
  const std::string fault =
      "Error Writing File: " + none + "\r\n" + qt_error_string(ENOENT).toStdString();
  for (const auto& chosen : std::vector<std::optional<std::string>>{none, file, {}}) {
    platform_.script().expectSaveFile(chosen);
    if (chosen == none) expectBox(fault, box::kExclamation);
    press(window(), "Save");
  }
  EXPECT_EQ(bytesOf(file), all);
}

// Clicks through the windowing system, which withholds them from a window that another one blocks.
TEST_F(LineTrafficTest, StaysUsableBesideTheUpdateDialogWhichBlocksTheOthers) {
  const auto click = [](const QWidget& window, const std::string& name) {
    const auto& button = find<QAbstractButton>(window, name);
    QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {},
                      button.mapTo(&window, QPoint(5, button.height() / 2)));
  };
  openWithImage(600);
  program_->showLineTraffic();
  const auto& record = onConsole<QPushButton>("LoadButton(2)");
  auto& save = find<QPushButton>(window(), "Save");
  after(std::chrono::milliseconds(10'500), [&] {
    window().close();
    program_->showLineTraffic();
    click(window(), "Hex");
    EXPECT_FALSE(save.isEnabled());
    click(console(), "LoadButton(2)");
    EXPECT_EQ(record.text(), "Record");
  });
  update();
  platform_.runFor(200);
  EXPECT_TRUE(row(rows() - 2).ends_with(" COM1 > 78 78 78 78 78 78")) << row(rows() - 2);
  press(dialog(), "cmdClose");
  EXPECT_TRUE(window().isVisible() && save.isEnabled());
  click(console(), "LoadButton(2)");
  EXPECT_NE(record.text(), "Record");
}

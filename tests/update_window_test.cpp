#include "support/update_window.h"

using namespace mvdirigo;
using namespace std::chrono_literals;

TEST_F(UpdateWindow, UpdatesAUnitUndisturbed) {
  openWithImage(600);
  EXPECT_EQ(tabOrder(dialog()),
            "cboID cboBaud CrashUpdate Verbose cmdLoadImage cmdUpdate cmdPause cmdClose Traffic ");
  auto& status = display("txtStatus");
  EXPECT_EQ(status.cursorPosition(), status.text().size()) << "the file's name is to be seen";
  find<QAbstractButton>(dialog(), "Verbose").click();
  after(10500ms, [&] {
    EXPECT_EQ(status.text(), "Status: Transmitting data...");
    EXPECT_FALSE(enabled("cboID") || enabled("cboBaud") || enabled("cmdLoadImage"));
    EXPECT_EQ(dialog().focusWidget(), &status) << "not \"Close\"";
    EXPECT_TRUE(toolTip("cmdClose").startsWith("Ends the update at once."));
    QTest::keyClick(&dialog(), Qt::Key_Escape);
    status.window()->close();
  });
  update();
  ASSERT_NE(program_->update(), nullptr);
  EXPECT_EQ(status.text(), "Status: OK");
  EXPECT_EQ(dialog().size(), QSize(666, 300));
  EXPECT_EQ(toolTip("cmdClose"), "");
  EXPECT_EQ(toolTip("cmdUpdate"), "For another update, close this dialog and open it again.");

  auto& traffic = find<QPlainTextEdit>(dialog(), "Traffic");
  receive(std::string(600, 'x') + "\r", 100);
  EXPECT_TRUE(traffic.toPlainText().endsWith("\n< " + QString(500, 'x')));
  receive(std::string(1500, '\r'), 100);
  EXPECT_EQ(traffic.toPlainText().size() / 1024, 255);
}

TEST_F(UpdateWindow, TakesTheLineFromAPlaybackAndTurnsTheSpinnerNoFasterThanOneSees) {
  openWithImage(30000);
  console().LoadButton_Click(2);
  console().SendCommand_Click(1);
  platform_.runFor(100);
  console().LoadButton_Click(2);
  console().LoadButton_Click(0);
  find<QComboBox>(dialog(), "cboBaud").setCurrentText("57600");
  int turns = 0, texts = 0;
  SimTime next_turn{}, next_text{};
  QString tenth_text;
  QObject::connect(&display("TransferProgress"), &QLineEdit::textChanged, [&](const QString& text) {
    if (!text.contains("left")) return;
    EXPECT_GE(platform_.now(), next_text);
    next_text = platform_.now() + 250ms;
    if (++texts == 10) tenth_text = text;
  });
  QObject::connect(&display("txtSpinner"), &QLineEdit::textChanged, [&](const QString& position) {
    turns += position != " ";
    EXPECT_TRUE(position == " " || platform_.now() >= next_turn);
    next_turn = platform_.now() + 130ms;
  });
  update([this] {
    platform_.runFor(2000);
    EXPECT_TRUE(portOpen()) << "the playback holds it until the confirmation";
  });
  platform_.runFor(1000);
  EXPECT_EQ(display("txtSpinner").text(), " ");
  EXPECT_GT(turns, 30);

  // A piece and its answer are seven bytes of ten bits.
  EXPECT_EQ(tenth_text, QStringLiteral("12,342 of 30,000 bytes \u00B7 0:03 left"));
  EXPECT_EQ(bar(), "Done");
  update({}, BoxButton::kNo);
  EXPECT_EQ(bar() + display("TransferProgress").text(), "90%");
}

TEST_F(UpdateWindow, TellsWhatItIsAboutToSendAndNeverMindsAFileThatCannotBeRead) {
  openWithImage(1000);
  const std::pair<std::string, QString> cases[] = {
      {"103A7", QStringLiteral("12,345 bytes \u00B7 full update \u00B7 ID 3A7")},
      {"00b12", QStringLiteral("12,345 bytes \u00B7 partial update \u00B7 ID B12")},
      {"603A7", QStringLiteral("12,345 bytes \u00B7 no header")}};
  for (const auto& [header, facts] : cases) {
    writeFile(image_, header + std::string(12340, 'x'));
    load(image_);
    EXPECT_EQ(summary()[1], facts);
  }
  find<QComboBox>(dialog(), "cboID").setCurrentText("15");
  find<QComboBox>(dialog(), "cboBaud").setCurrentText("57600");
  EXPECT_EQ(summary()[2], QStringLiteral("Unit 15 \u00B7 COM1 \u00B7 57600 baud"));

  const std::string name = "<b>begin\n" + std::string(150, 'x') + ".zrf";
  load(folder_.path / name);
  EXPECT_EQ(summary().size(), 3);
  EXPECT_LT(summary()[0].size(), 100);
  EXPECT_EQ(summary()[1], "Can't be read: File not found");
  EXPECT_TRUE(toolTip("Summary").contains(QString::fromStdString(folder_.path).left(10)));
  std::filesystem::remove(image_);
  load(image_);
  writeFile(image_, "11");
  update({}, BoxButton::kNo);
  EXPECT_TRUE(summary()[1].startsWith("2 bytes")) << "it was written since";
}

TEST_F(UpdateWindow, StaysTheOnlyOneAndComesAloneToItsEndWhateverIsPressedWhileItCloses) {
  openWithImage(600);
  after(0s, [this] {
    press("LoadButton(3)");
    press(settings(), "cmdUpdate");
  });
  press(dialog(), "cmdClose");
  EXPECT_TRUE(program_->update() == nullptr && settings().isVisible());
  press(settings(), "cmdUpdate");
  after(0s, [this] { console().close(); });
  press(dialog(), "cmdClose");
  EXPECT_TRUE(ended_ && !settings().isVisible());
}

#include "help/string_fun_help.h"

#include <algorithm>

#include <QMouseEvent>
#include <QVBoxLayout>

#include "help/help_texts.h"
#include "platform/handler_edge.h"

namespace mvdirigo {
namespace {

constexpr int kRows = 5;

}  // namespace

StringFunHelp::StringFunHelp(Platform& platform, QWidget* owner)
    : QWidget(owner, Qt::Window),
      platform_(platform),
      screen_(new ConsoleScreen(kRows, nullptr, this)),
      blink_(platform, [this](const std::string& caption) {
        setWindowTitle(QString::fromStdString(caption));
      }) {
  setObjectName("StringFunHelp");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSizeConstraint(QLayout::SetFixedSize);
  layout->addWidget(screen_);

  for (int index = 0; index < ConsoleScreen::kBarButtons; ++index) {
    connect(screen_->LoadButton[static_cast<std::size_t>(index)], &QPushButton::clicked, this,
            [this, index] { LoadButton_Click(index); });
  }
  for (QPushButton* button : screen_->SendCommand) {
    connect(button, &QPushButton::clicked, this,
            [this] { explainRowControl("SendCommand_Click", kHelpOnSendCommand); });
  }
  const auto watch = [this](QLineEdit* field) {
    field->setReadOnly(true);
    field->installEventFilter(this);
  };
  std::ranges::for_each(screen_->StringToSend, watch);
  std::ranges::for_each(screen_->ReceiveString, watch);
}

void StringFunHelp::Form_Load() {
  SetupHelpScreen();
  blink_.start();
}

void StringFunHelp::SetupHelpScreen() {
  screen_->layOutRows(kRows);
  for (StatusLight* light : screen_->ButtonShape) light->hide();
}

void StringFunHelp::Form_Unload() {
  life_.leave();
  blink_.stop();
  hide();
}

void StringFunHelp::closeEvent(QCloseEvent*) {
  blink_.stop();
  hide();
}

void StringFunHelp::LoadButton_Click(int Index) {
  atHandlerEdge(platform_.dialogs(), "LoadButton_Click", [&] {
    const std::string text = helpOnLoadButton(Index);
    if (text.empty()) return;
    blink_.stop();
    platform_.dialogs().messageBox(text);
  });
}

void StringFunHelp::explainRowControl(const std::string& procedure, const std::string& text) {
  atHandlerEdge(platform_.dialogs(), procedure, [&] {
    platform_.dialogs().messageBox(text);
    if (!life_.leaving()) blink_.stop();
  });
}

bool StringFunHelp::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::MouseButtonRelease &&
      static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
    const auto& strings = screen_->StringToSend;
    const bool string = std::find(strings.begin(), strings.end(), watched) != strings.end();
    string ? explainRowControl("StringToSend_Click", kHelpOnStringToSend)
           : explainRowControl("ReceiveString_Click", kHelpOnReceiveString);
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace mvdirigo

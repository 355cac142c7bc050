#include "help/string_fun_help.h"

#include <algorithm>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QVBoxLayout>

#include "console/screen_room.h"
#include "console/window_role.h"
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
  installWindowRole();
  setCursor(Qt::WhatsThisCursor);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
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
    field->setCursor(Qt::WhatsThisCursor);
    field->installEventFilter(this);
  };
  std::ranges::for_each(screen_->StringToSend, watch);
  std::ranges::for_each(screen_->ReceiveString, watch);
  describeControls();
}

/// Lets the keyboard reach every control that has an explanation, and a screen reader read it.
void StringFunHelp::describeControls() {
  for (std::size_t row = 0; row < kRows; ++row) {
    screen_->SendCommand[row]->setAccessibleDescription(kHelpOnSendCommand);
    screen_->StringToSend[row]->setAccessibleDescription(kHelpOnStringToSend);
    screen_->ReceiveString[row]->setAccessibleDescription(kHelpOnReceiveString);
    screen_->ReceiveString[row]->setFocusPolicy(Qt::StrongFocus);
    setTabOrder(screen_->SendCommand[row], screen_->ReceiveString[row]);
  }
  for (std::size_t index = 0; index < screen_->LoadButton.size(); ++index) {
    screen_->LoadButton[index]->setAccessibleDescription(
        QString::fromStdString(helpOnLoadButton(static_cast<int>(index))));
  }
}

void StringFunHelp::Form_Load() {
  SetupHelpScreen();
  blink_.start();
}

void StringFunHelp::SetupHelpScreen() {
  screen_->layOutRows(kRows);
  for (StatusLight* light : screen_->ButtonShape) light->hide();
  fitToScreen();
}

void StringFunHelp::fitToScreen() {
  setMaximumSize(screen_->sizeHint());
  resize(screen_->sizeWithin(roomOnScreen(*this)));
}

// Another font or style changes the size of the controls.
bool StringFunHelp::event(QEvent* event) {
  const bool handled = QWidget::event(event);
  if (event->type() == QEvent::LayoutRequest && screen_->sizeHint() != maximumSize()) fitToScreen();
  return handled;
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

void StringFunHelp::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Escape:
      close();
      return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_F1:
      // A key held down would close the box that it opened.
      if (!event->isAutoRepeat()) explainFocusedControl();
      return;
    default:
      QWidget::keyPressEvent(event);
  }
}

void StringFunHelp::explainFocusedControl() {
  QWidget* focused = focusWidget();
  if (auto* button = qobject_cast<QPushButton*>(focused)) {
    button->click();
  } else if (qobject_cast<QLineEdit*>(focused) != nullptr) {
    explainField(focused);
  }
}

void StringFunHelp::explainField(const QObject* field) {
  const auto& strings = screen_->StringToSend;
  const bool string = std::find(strings.begin(), strings.end(), field) != strings.end();
  if (string) {
    explainRowControl("StringToSend_Click", kHelpOnStringToSend);
  } else {
    explainRowControl("ReceiveString_Click", kHelpOnReceiveString);
  }
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
    explainField(watched);
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace mvdirigo

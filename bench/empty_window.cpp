// What a start costs that no program of this toolkit can avoid: a window with nothing in it, or,
// with an argument, with a button and a text field, for which the toolkit loads fonts.
#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  QWidget window;
  window.setWindowTitle("Empty window");
  window.resize(850, 560);
  if (argc > 1) {
    auto* column = new QVBoxLayout(&window);
    column->addWidget(new QPushButton("Send String 0"));
    column->addWidget(new QLineEdit("/1?0"));
  }
  window.show();
  return QApplication::exec();
}

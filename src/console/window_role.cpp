#include "console/window_role.h"

#include <QAccessibleWidget>
#include <QWidget>

namespace mvdirigo {
namespace {

class AccessibleWindow : public QAccessibleWidget {
 public:
  using QAccessibleWidget::QAccessibleWidget;

  /// A widget may get a parent only later.
  QAccessible::Role role() const override {
    return widget()->isWindow() ? QAccessible::Window : QAccessibleWidget::role();
  }
};

QAccessibleInterface* accessibleWindow(const QString& class_name, QObject* object) {
  if (class_name != QLatin1String("QWidget")) return nullptr;
  auto* widget = qobject_cast<QWidget*>(object);
  return widget->isWindow() ? new AccessibleWindow(widget) : nullptr;
}

}  // namespace

void installWindowRole() { QAccessible::installFactory(accessibleWindow); }

}  // namespace mvdirigo

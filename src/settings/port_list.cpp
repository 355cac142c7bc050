#include "settings/port_list.h"

#include <utility>

#include "console/colours.h"
#include "console/tool_tip.h"

namespace mvdirigo {

PortRow::PortRow(int port, bool available, std::function<QString()> tool_tip)
    : QListWidgetItem(QStringLiteral("COM%1").arg(port) +
                      (available ? "  available" : "  (not available or no such port)")),
      available_(available),
      tool_tip_(std::move(tool_tip)) {}

QVariant PortRow::data(int role) const {
  if (role == Qt::ToolTipRole) return plainToolTip(tool_tip_());
  if (role == Qt::AccessibleDescriptionRole) return tool_tip_();
  if (role == Qt::ForegroundRole && !available_) return quietColour(listWidget()->palette());
  return QListWidgetItem::data(role);
}

PortList::PortList(std::function<void(int row)> pick) : pick_(std::move(pick)) {}

void PortList::keyPressEvent(QKeyEvent* event) {
  const auto highlight = [this] { return std::pair(currentRow(), selectedItems()); };
  const auto before = highlight();
  QListWidget::keyPressEvent(event);
  // With Ctrl the list would move its focus alone, or take the highlight off.
  if (highlight() != before && currentRow() >= 0) pick_(currentRow());
}

}  // namespace mvdirigo

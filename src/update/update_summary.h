#pragma once

#include <QLabel>

#include "update/update_file.h"

namespace mvdirigo {

/// What an update is about to send, and to whom: the file, what it says of itself, and the unit.
/// Texts are shown letter by letter. The file's name stays visible in a narrow summary too; its
/// whole path is in the tool tip.
class UpdateSummary : public QLabel {
 public:
  UpdateSummary();

  void showFile(const UpdateFileFacts& file);
  /// The unit, its port and the rate, as one text.
  void showTarget(const QString& target);

  /// As wide as there is room, however long the texts are.
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  /// Puts as much of the texts into the label as its width has room for.
  void fit();

  QString path_, facts_, target_;
};

}  // namespace mvdirigo

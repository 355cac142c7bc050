#pragma once

#include <QString>

#include "platform/dialogs.h"

namespace mvdirigo {

class QtDialogs : public Dialogs {
 public:
  QtDialogs() = default;
  QtDialogs(const QtDialogs&) = delete;
  QtDialogs& operator=(const QtDialogs&) = delete;

  BoxButton messageBox(const std::string& text, int style = box::kOkOnly) override;
  std::string openFile(const FileRequest& request) override;
  std::string saveFile(const FileRequest& request) override;

 private:
  enum class Purpose { kOpen, kSave };

  std::string askForFile(const FileRequest& request, Purpose purpose);

  /// Where the user last chose a file.
  QString folder_;
};

}  // namespace mvdirigo

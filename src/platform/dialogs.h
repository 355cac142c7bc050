#pragma once

#include <string>

namespace mvdirigo {

/// A message box's style: a button code plus an icon code, as the callers' sums have them.
namespace box {
inline constexpr int kOkOnly = 0;
inline constexpr int kOkCancel = 1;
inline constexpr int kYesNo = 4;
inline constexpr int kStop = 16;
inline constexpr int kExclamation = 48;
inline constexpr int kInformation = 64;
}  // namespace box

enum class BoxButton { kOk = 1, kCancel = 2, kYes = 6, kNo = 7 };

/// What an open or save dialog is asked for.
struct FileRequest {
  std::string title;
  /// Files offered, as "Description (*.ext)|*.ext"; empty for all files.
  std::string filter;
  /// Without a dot. Added to a typed name that has no extension and names no file; empty for none.
  std::string default_extension;
  bool file_must_exist = false;
  bool ask_before_overwriting = false;
  /// A cancel throws `kCancelled`; otherwise it returns an empty path.
  bool cancel_is_error = false;
};

/// Boxes and file dialogs that stop the user until answered. All texts and paths are UTF-8.
class Dialogs {
 public:
  virtual ~Dialogs() = default;

  /// Shows `text` under the application's name and returns the button pressed. Closing the box by
  /// other means counts as its Cancel, its No, or its only button.
  virtual BoxButton messageBox(const std::string& text, int style = box::kOkOnly) = 0;

  [[nodiscard]] virtual std::string openFile(const FileRequest& request) = 0;
  [[nodiscard]] virtual std::string saveFile(const FileRequest& request) = 0;
};

}  // namespace mvdirigo

#include "update/firmware_update.h"

#include "platform/handler_edge.h"
#include "platform/runtime_error.h"

namespace mvdirigo {

FirmwareUpdate::FirmwareUpdate(Platform& platform, Window& window, const WindowLife& life)
    : dialogs_(platform.dialogs()), window_(window), life_(life), link_(platform, window, life) {}

void FirmwareUpdate::Form_Load(LiveSettings& settings) {
  try {
    link_.setUp(settings);
  } catch (const RuntimeError&) {
    dialogs_.messageBox(
        "Communication Settings are incompatible with update mode. Please lower the baud rate.");
  }
}

void FirmwareUpdate::cmdLoadImage_Click() {
  atHandlerEdge(dialogs_, "cmdLoadImage_Click", [this] {
    const std::string name = dialogs_.openFile({.title = "Firmware Update",
                                                .filter = "MVUpdate (*.zrf)|*.zrf",
                                                .default_extension = "hex",
                                                .file_must_exist = true,
                                                .cancel_is_error = true});
    if (name.empty() || life_.leaving()) return;
    chosen_file_ = name;
    window_.setStatus("Status: Loaded " + name);
    window_.showEndOfStatus();
    window_.showFile(inspectUpdateFile(chosen_file_, dialogs_));
    window_.enableUpdate(true);
  });
}

void FirmwareUpdate::cmdUpdate_Click() {
  if (running_) return;
  running_ = true;
  complete_ = false;
  // What is told stays true of a file that was written anew since it was chosen.
  if (!chosen_file_.empty()) window_.showFile(inspectUpdateFile(chosen_file_, dialogs_));
  UpdateRun run(dialogs_, window_, link_, chosen_file_);
  try {
    atHandlerEdge(dialogs_, "cmdUpdate_Click", [&] { complete_ = run.update(); });
  } catch (const FlashLink::Over&) {
  }
  running_ = false;
  confirmed_before_ |= run.confirmed();
  if (life_.leaving()) return;
  window_.enablePause(false);
  window_.enableUpdate(true);
}

}  // namespace mvdirigo

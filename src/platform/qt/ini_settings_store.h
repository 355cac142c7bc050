#pragma once

#include <filesystem>
#include <map>
#include <string>

#include <QTimer>

#include "platform/settings_store.h"

namespace mvdirigo {

/// The settings store as INI files, one an application, in the user's configuration folder:
/// `$XDG_CONFIG_HOME/<application>.ini` with one group a section. A file is read at the first
/// use of its application, and again when another program has written it. Saved values reach it in
/// the next turn of the event loop, all together, and at the latest when the store is destroyed;
/// what else stands in it then stays.
class IniSettingsStore : public SettingsStore {
 public:
  IniSettingsStore();
  ~IniSettingsStore() override { flush(); }

  [[nodiscard]] std::string get(const std::string& application, const std::string& section,
                                const std::string& key, const std::string& default_value) override;
  void save(const std::string& application, const std::string& section, const std::string& key,
            const std::string& value) override;

  /// Writes what was saved and not written yet, without the event loop. Waits at most half a second
  /// for another program that writes. What can't be written is told in the log and kept.
  void flush();

 private:
  struct File {
    /// By "section/key".
    std::map<std::string, std::string> values;
    std::map<std::string, std::string> unwritten;
    std::filesystem::file_time_type read_as_of;
  };

  File& file(const std::string& application);

  std::map<std::string, File> files_;
  QTimer flush_soon_;
};

}  // namespace mvdirigo

#pragma once

#include <map>
#include <memory>
#include <string>

#include <QSettings>

#include "platform/settings_store.h"

namespace mvdirigo {

/// The settings store as INI files, one an application, in the user's configuration folder:
/// `$XDG_CONFIG_HOME/<application>.ini` with one group a section. Saved values reach the file in
/// the next turn of the event loop, all together, and at the latest when the store is destroyed.
class IniSettingsStore : public SettingsStore {
 public:
  ~IniSettingsStore() override;

  std::string get(const std::string& application, const std::string& section,
                  const std::string& key, const std::string& default_value) override;
  void save(const std::string& application, const std::string& section, const std::string& key,
            const std::string& value) override;

 private:
  /// Null for a file that can be neither used nor set aside.
  QSettings* file(const std::string& application);

  std::map<std::string, std::unique_ptr<QSettings>> files_;
};

}  // namespace mvdirigo

#pragma once

#include <functional>
#include <string>

#include "platform/settings_store.h"

namespace mvdirigo {

/// The application name of every key, which is also the application's title.
inline constexpr const char* kApplicationName = "Tolvaris MVDirigo";

/// Command rows that the store keeps; the console may show fewer.
inline constexpr int kStoredRows = 26;

/// One value of section "Settings" and what it is when the store has no such key.
struct StoredSetting {
  const char* key;
  const char* default_value;
};

namespace stored {
inline constexpr StoredSetting kMaxStrings{"MaxStrings", "11"};
inline constexpr StoredSetting kCommPortSetting{"CommPortSetting", "1"};
/// Index of the chosen row of the baud rates.
inline constexpr StoredSetting kBaudRate{"BaudRate", "0"};
/// Reply time-out in ms.
inline constexpr StoredSetting kRCVTimeout{"RCVTimeout", "1000"};
/// "1" after a search that found a controller or was stopped, "0" after one that found none.
inline constexpr StoredSetting kFirstTimeStartup{"FirstTimeStartup", ""};
}  // namespace stored

[[nodiscard]] std::string readSetting(SettingsStore& store, const StoredSetting& setting);
void writeSetting(SettingsStore& store, const StoredSetting& setting, const std::string& value);

/// Reads the rows 0 to 25 in order; a row that was never saved has its built-in default.
void readRows(SettingsStore& store, const std::function<void(int, const std::string&)>& set_row);
void writeRows(SettingsStore& store, const std::function<std::string(int)>& row_text);

}  // namespace mvdirigo

#include "core/stored_settings.h"

#include <array>

namespace mvdirigo {
namespace {

constexpr const char* kStringsSection = "Strings";
constexpr const char* kSettingsSection = "Settings";

/// A demonstration set for unit address 1: the version query, a status query, motion examples, and
/// the unit's other queries.
constexpr std::array<const char*, kStoredRows> kDefaultRows = {
    "/1&",
    "/1?0",
    "/1A1000A0R",
    "/1P1000D500R",
    "/1Z10000R",
    "/1V2000R",
    "/1gA1000M500A0M500G5R",
    "/1H01A1000H01A0R",
    "/1J1M500J2M500J3M500J0R",
    "/1F",
    "/1?2",
    "/1?3",
    "/1?4",
    "/1?5",
    "/1?6",
    "/1?7",
    "/1?8",
    "/1?9",
    "/1?10",
    "/1?11",
    "/1?0",
    "/1?0",
    "/1?0",
    "/1?0",
    "/1?0",
    "/1?0",
};

std::string rowKey(int row) { return "StringToSend" + std::to_string(row); }

}  // namespace

std::string readSetting(SettingsStore& store, const StoredSetting& setting) {
  return store.get(kApplicationName, kSettingsSection, setting.key, setting.default_value);
}

void writeSetting(SettingsStore& store, const StoredSetting& setting, const std::string& value) {
  store.save(kApplicationName, kSettingsSection, setting.key, value);
}

void readRows(SettingsStore& store, const std::function<void(int, const std::string&)>& set_row) {
  for (int row = 0; row < kStoredRows; ++row) {
    set_row(row, store.get(kApplicationName, kStringsSection, rowKey(row),
                           kDefaultRows[static_cast<std::size_t>(row)]));
  }
}

void writeRows(SettingsStore& store, const std::function<std::string(int)>& row_text) {
  for (int row = 0; row < kStoredRows; ++row) {
    store.save(kApplicationName, kStringsSection, rowKey(row), row_text(row));
  }
}

}  // namespace mvdirigo

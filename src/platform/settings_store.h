#pragma once

#include <string>

namespace mvdirigo {

/// The per-user store of named texts (UTF-8), addressed by application, section and key.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;

  [[nodiscard]] virtual std::string get(const std::string& application, const std::string& section,
                                        const std::string& key,
                                        const std::string& default_value) = 0;
  /// Saves for good or, when the store can't be written, not at all and without a report.
  virtual void save(const std::string& application, const std::string& section,
                    const std::string& key, const std::string& value) = 0;
};

}  // namespace mvdirigo

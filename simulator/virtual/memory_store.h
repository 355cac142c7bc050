#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/settings_store.h"

namespace mvdirigo {

/// A settings store in memory that tests can fill and look into.
class MemoryStore : public SettingsStore {
 public:
  struct Address {
    std::string application, section, key;
    bool operator<(const Address& other) const {
      return std::tie(application, section, key) <
             std::tie(other.application, other.section, other.key);
    }
  };
  struct Saved {
    Address address;
    std::string value;
  };

  MemoryStore() = default;
  /// A copy would learn of no save.
  MemoryStore(const MemoryStore&) = delete;
  MemoryStore& operator=(const MemoryStore&) = delete;

  [[nodiscard]] std::string get(const std::string& application, const std::string& section,
                                const std::string& key, const std::string& default_value) override {
    const auto found = values.find({application, section, key});
    return found == values.end() ? default_value : found->second;
  }

  void save(const std::string& application, const std::string& section, const std::string& key,
            const std::string& value) override {
    const Address address{application, section, key};
    saves.push_back({address, value});
    values[address] = value;
  }

  std::map<Address, std::string> values;
  /// Every save that was asked for, in order.
  std::vector<Saved> saves;
};

}  // namespace mvdirigo

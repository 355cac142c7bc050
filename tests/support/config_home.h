#pragma once

#include <filesystem>
#include <string>

#include <QApplication>
#include <QTemporaryDir>

namespace mvdirigo {

/// A configuration folder of a test's own, in force while it exists.
class ConfigHome {
 public:
  ConfigHome() : before_(qgetenv("XDG_CONFIG_HOME")) {
    qputenv("XDG_CONFIG_HOME", folder_.path().toUtf8());
  }
  ~ConfigHome() { qputenv("XDG_CONFIG_HOME", before_); }

  std::filesystem::path path() const { return folder_.path().toStdString(); }

  /// Lets port `comm_port` stand for `device`.
  void link(int comm_port, const std::filesystem::path& device) const {
    const auto ports = path() / QApplication::applicationName().toStdString() / "ports";
    const auto link = ports / ("com" + std::to_string(comm_port));
    std::filesystem::create_directories(ports);
    std::filesystem::remove(link);
    std::filesystem::create_symlink(device, link);
  }

 private:
  QByteArray before_;
  QTemporaryDir folder_;
};

}  // namespace mvdirigo

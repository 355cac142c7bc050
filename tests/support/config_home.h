#pragma once

#include <filesystem>
#include <string>

#include <QApplication>

#include "support/files.h"

namespace mvdirigo {

/// A configuration folder of a test's own, in force while it exists.
class ConfigHome {
 public:
  ConfigHome() : before_(qgetenv("XDG_CONFIG_HOME")) {
    qputenv("XDG_CONFIG_HOME", folder_.path.c_str());
  }
  ~ConfigHome() { qputenv("XDG_CONFIG_HOME", before_); }

  const std::filesystem::path& path() const { return folder_.path; }

  /// The link that says which device a port stands for.
  std::filesystem::path portLink(int comm_port) const {
    const std::string application = QApplication::applicationName().toStdString();
    return path() / application / "ports" / ("com" + std::to_string(comm_port));
  }
  void link(int comm_port, const std::filesystem::path& device) const {
    std::filesystem::create_directories(portLink(comm_port).parent_path());
    std::filesystem::remove(portLink(comm_port));
    std::filesystem::create_symlink(device, portLink(comm_port));
  }

 private:
  QByteArray before_;
  TemporaryFolder folder_;
};

}  // namespace mvdirigo

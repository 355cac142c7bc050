#pragma once

#include <filesystem>

namespace mvdirigo {

/// The link that stands for a numbered port. What is not left by a simulator that has ended is
/// somebody's own and stays as it is; so does a link that was replaced meanwhile.
class PortLink {
 public:
  /// Throws std::runtime_error when something of somebody's own stands at `path`.
  explicit PortLink(std::filesystem::path path);
  /// Removes the link.
  ~PortLink();
  PortLink(const PortLink&) = delete;
  PortLink& operator=(const PortLink&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  void leadTo(const std::filesystem::path& device);
  /// Dangles, so that the port's number isn't another device's meanwhile.
  void leadNowhere();

 private:
  bool isOurs() const;

  std::filesystem::path path_;
  /// Empty while there is no link of ours.
  std::filesystem::path target_;
};

}  // namespace mvdirigo

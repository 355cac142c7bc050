#include "platform/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/runtime_error.h"

namespace mvdirigo {
namespace {

struct stat statusOf(const Descriptor& descriptor) {
  struct stat status {};
  if (::fstat(descriptor.number(), &status) != 0) throw RuntimeError(fileFault(errno));
  return status;
}

}  // namespace

InputFile::InputFile(const std::string& path)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {
  if (!descriptor_.isOpen()) throw RuntimeError(fileFault(errno));
  if (!S_ISREG(statusOf(descriptor_).st_mode)) throw RuntimeError(Fault::kPathFileAccess);
}

std::size_t InputFile::size() const {
  return static_cast<std::size_t>(statusOf(descriptor_).st_size);
}

std::size_t InputFile::readAt(std::int64_t offset, std::span<char> buffer) const {
  ssize_t count = 0;
  do {
    count = ::pread(descriptor_.number(), buffer.data(), buffer.size(), offset);
  } while (count < 0 && errno == EINTR);
  if (count < 0) throw RuntimeError(fileFault(errno));
  return static_cast<std::size_t>(count);
}

std::string InputFile::start(std::size_t length) const {
  std::string bytes(length, '\0');
  for (std::size_t done = 0; done < length;) {
    const std::size_t count =
        readAt(static_cast<std::int64_t>(done), std::span(bytes).subspan(done));
    if (count == 0) throw RuntimeError(Fault::kInputPastEndOfFile);
    done += count;
  }
  return bytes;
}

std::string InputFile::whole(std::size_t most) const {
  const std::size_t length = size();
  if (length > most) throw RuntimeError(Fault::kOutOfMemory);
  return start(length);
}

}  // namespace mvdirigo

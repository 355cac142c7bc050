// The time from starting the console to the first picture of its window, and its memory a second
// later, against an empty window of the same toolkit, and against
// one with a button and a text field. They are watched from outside, on a display
// of the benchmark's own.
#include <unistd.h>
#include <xcb/xcb.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include <QCoreApplication>
#include <QProcess>

#include "core/stored_settings.h"
#include "support.h"

namespace mvdirigo::bench {
namespace {

using namespace std::chrono_literals;

constexpr int kStarts = 40;
constexpr auto kSettled = 1s;
/// Between two looks at a window that is not painted yet.
constexpr auto kGlance = 200us;

/// What the X library hands over is freed as C does.
struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

/// A virtual X display without a window manager, so that nothing but the program decides when its
/// window appears.
class Display {
 public:
  Display() {
    server_.setProcessChannelMode(QProcess::SeparateChannels);
    server_.start("Xvfb", {"-displayfd", "1", "-screen", "0", "1280x1024x24", "-nolisten", "tcp"});
    require(server_.waitForReadyRead(), "Xvfb");
    const QByteArray name = ":" + server_.readLine().trimmed();
    qputenv("DISPLAY", name);
    qputenv("QT_QPA_PLATFORM", "xcb");
    connection_ = xcb_connect(name.constData(), nullptr);
    require(xcb_connection_has_error(connection_) == 0, "connection to Xvfb");
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    const Owned<xcb_generic_error_t> error(xcb_request_check(
        connection_,
        xcb_change_window_attributes_checked(connection_, root, XCB_CW_EVENT_MASK, &events)));
    require(error == nullptr, "watching the display");
  }
  ~Display() {
    xcb_disconnect(connection_);
    server_.terminate();
    server_.waitForFinished();
  }
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  /// Returns when the next window is on the screen and has been painted.
  void waitForWindow() {
    const auto event = waitFor(XCB_MAP_NOTIFY);
    const auto window = reinterpret_cast<xcb_map_notify_event_t*>(event.get())->window;
    while (!isPainted(window)) std::this_thread::sleep_for(kGlance);
  }
  /// Returns when the next window went away for good.
  void waitForWindowsEnd() { waitFor(XCB_DESTROY_NOTIFY); }

 private:
  Owned<xcb_generic_event_t> waitFor(int type) {
    constexpr int kTypeMask = 0x7F;
    for (;;) {
      Owned<xcb_generic_event_t> event(xcb_wait_for_event(connection_));
      require(event != nullptr, "display");
      if ((event->response_type & kTypeMask) == type) return event;
    }
  }

  /// Whether a pixel near the window's corner is no longer the display's black.
  bool isPainted(xcb_window_t window) {
    constexpr std::uint32_t kAllPlanes = ~0U;
    const Owned<xcb_get_image_reply_t> pixel(xcb_get_image_reply(
        connection_,
        xcb_get_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, window, 2, 2, 1, 1, kAllPlanes),
        nullptr));
    return pixel != nullptr && xcb_get_image_data(pixel.get())[0] != 0;
  }

  QProcess server_;
  xcb_connection_t* connection_ = nullptr;
};

/// Adds up the fields of a file of /proc that are named `field`, in MB.
double memory(qint64 process, const std::string& file, const std::string& field) {
  std::ifstream lines("/proc/" + std::to_string(process) + "/" + file);
  std::string name;
  double kilobytes = 0;
  for (double value = 0; lines >> name; lines.ignore(256, '\n')) {
    if (name.starts_with(field) && lines >> value) kilobytes += value;
    lines.clear();
  }
  return kilobytes / 1024;
}

/// A program and what its starts took.
struct Candidate {
  const char* name;
  const char* path;
  QStringList arguments{};
  Durations until_painted{};
  double resident_mb = 0;
  double private_mb = 0;
};

void startOnce(Display& display, Candidate& candidate, bool measured) {
  QProcess program;
  program.setProcessChannelMode(QProcess::ForwardedChannels);
  const auto begin = Clock::now();
  program.start(candidate.path, candidate.arguments);
  display.waitForWindow();
  const Microseconds duration = Clock::now() - begin;
  if (measured) {
    candidate.until_painted.add(duration);
  } else {
    std::this_thread::sleep_for(kSettled);
    candidate.resident_mb = memory(program.processId(), "status", "VmRSS:");
    candidate.private_mb = memory(program.processId(), "smaps_rollup", "Private_");
  }
  program.terminate();
  program.waitForFinished();
  display.waitForWindowsEnd();
}

/// Prints the figures of `candidate`, and those of `console` as their multiples.
void report(Candidate& candidate, Candidate& console) {
  candidate.until_painted.print(candidate.name);
  std::printf("  resident %.1f MB, of it private %.1f MB\n", candidate.resident_mb,
              candidate.private_mb);
  if (&candidate == &console) return;
  std::printf("  the console: %.2f times the median, %.2f the resident, %.2f the private memory\n",
              console.until_painted.median() / candidate.until_painted.median(),
              console.resident_mb / candidate.resident_mb,
              console.private_mb / candidate.private_mb);
}

}  // namespace
}  // namespace mvdirigo::bench

int main(int argc, char** argv) {
  using namespace mvdirigo::bench;
  const QCoreApplication application(argc, argv);
  const Desk desk;
  desk.unplug();
  qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(desk.file("")));
  Display display;
  std::array candidates{Candidate{"empty window", EMPTY_WINDOW},
                        Candidate{"window with a button and a field", EMPTY_WINDOW, {"row"}},
                        Candidate{"console", MVDIRIGO}};
  // The first starts fetch the files from the disk; they tell the memory only.
  for (Candidate& candidate : candidates) startOnce(display, candidate, false);
  for (int start = 0; start < kStarts; ++start) {
    for (Candidate& candidate : candidates) startOnce(display, candidate, true);
  }
  for (Candidate& candidate : candidates) report(candidate, candidates.back());
  return 0;
}

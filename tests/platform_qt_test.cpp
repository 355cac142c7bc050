#include <sys/resource.h>

#include <chrono>
#include <csignal>

#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <gtest/gtest.h>

#include "platform/qt/qt_platform.h"
#include "simulator/virtual/virtual_platform.h"
#include "support/config_home.h"
#include "support/files.h"
#include "support/real_time.h"

using namespace mvdirigo;

/// What both machines promise: the real one and the one in virtual time.
class TimerTest : public ::testing::TestWithParam<const char*> {
 protected:
  std::unique_ptr<Timer> start(int interval_ms, std::function<void()> on_tick) {
    auto timer = platform_->makeTimer(std::move(on_tick));
    timer->setInterval(interval_ms);
    timer->setEnabled(true);
    return timer;
  }
  std::unique_ptr<Timer> log(int interval_ms, const std::string& name) {
    return start(interval_ms, [this, name] { log_ += name; });
  }
  void expectLog(const std::string& expected) {
    runUntil(*platform_, [&] { return log_.size() >= expected.size(); });
    EXPECT_EQ(log_.substr(0, expected.size()), expected);
  }

  const std::unique_ptr<Platform> platform_ = GetParam() == std::string("Real")
                                                  ? std::unique_ptr<Platform>(new QtPlatform)
                                                  : std::make_unique<VirtualPlatform>();
  std::string log_;
};

// Timers tick in the order of their due times, however late the machine is: the tests look at that.

TEST_P(TimerTest, OnlyANewIntervalOrANewStartBeginsTheCountdownAfresh) {
  const auto kept = log(60, "kept ");
  const auto changed = log(50, "changed ");
  const auto restarted = log(60, "restarted ");
  const std::unique_ptr<Timer> once = start(40, [&] {
    once->setEnabled(false);
    kept->setEnabled(true);
    kept->setInterval(60);
    changed->setInterval(55);
    restarted->setEnabled(false);
    restarted->setEnabled(true);
  });
  const auto between = log(80, "between ");
  expectLog("kept between changed restarted ");
}

TEST_P(TimerTest, TicksUntilItIsDisabledOrDestroyedAndNeverWithoutAnInterval) {
  int ticks = 0;
  std::unique_ptr<Timer> own = start(1, [&] {
    if (++ticks == 3) own.reset();
  });
  const std::unique_ptr<Timer> disabled = start(1, [&] {
    log_ += "x";
    disabled->setEnabled(false);
  });
  const auto zero = log(0, "zero");
  const auto negative = log(-5, "negative");
  const auto emptied = start(5, [&] { log_ += "emptied"; });
  emptied->setInterval(0);
  EXPECT_TRUE(emptied->Enabled());
  EXPECT_TRUE(runUntil(*platform_, [&] { return !own; }));
  loadDuring(*platform_, 30);
  EXPECT_EQ(ticks, 3);
  EXPECT_EQ(log_, "x");
}

TEST_P(TimerTest, SaysWhyAWaitInATickEndedAlsoWhenItWasNested) {
  WindowLife outer, inner;
  bool outer_done = false, inner_ended = false;
  const std::unique_ptr<Timer> nested = start(1, [&] {
    nested->setEnabled(false);
    EXPECT_EQ(platform_->eventLoop().waitUntil([] { return false; }, inner),
              WaitResult::kWindowGone);
    inner_ended = outer_done;
  });
  const auto step = start(10, [&] { outer_done ? inner.leave() : void(outer_done = true); });
  EXPECT_EQ(platform_->eventLoop().waitUntil([&] { return outer_done; }, outer), WaitResult::kDone);
  EXPECT_TRUE(inner_ended) << "after the outer was due";
}

INSTANTIATE_TEST_SUITE_P(Machine, TimerTest, ::testing::Values("Real", "Virtual"),
                         [](const auto& test) { return test.param; });

TEST(EventLoopTest, EndsEveryWaitWithTheEventThatItWaitsForAndNeedsNoOther) {
  QtPlatform platform;
  int events = 0;
  const auto post = [&] {
    QMetaObject::invokeMethod(
        qApp, [&] { ++events; }, Qt::QueuedConnection);
  };
  const auto waitFor = [&](int count) {
    EXPECT_TRUE(wakesFor(platform, [&] { return events >= count; }));
  };
  const auto nest = [&] {
    post();
    waitFor(1);
    // An event that comes while nothing else is there to be handled.
    QTimer::singleShot(20, qApp, post);
    waitFor(2);
    QTimer::singleShot(20, qApp, [&] { ++events; });
    waitFor(3);
    QTimer::singleShot(20, qApp, post);
  };
  QTimer::singleShot(20, qApp, nest);
  waitFor(4);
}

TEST(EventLoopTest, SleepsWhileItWaitsAndWhileABoxKeepsAWaitThatIsOver) {
  QtPlatform platform;
  bool over = false;
  QTimer::singleShot(300, [&] {
    over = true;
    QEventLoop box;
    QTimer::singleShot(300, &box, &QEventLoop::quit);
    box.exec();
  });
  const std::clock_t before = std::clock();
  EXPECT_EQ(platform.eventLoop().waitUntil([&] { return over; }, WindowLife()), WaitResult::kDone);
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC * 6 / 100);
}

TEST(EventLoopTest, EndsEveryWaitWhenTheApplicationExits) {
  QtPlatform platform;
  const WindowLife window;
  int ended = 0;
  const auto wait = [&] {
    ended +=
        platform.eventLoop().waitUntil([] { return false; }, window) == WaitResult::kWindowGone;
  };
  QTimer::singleShot(0, wait);
  QTimer::singleShot(5, wait);
  QTimer::singleShot(10, [] { QApplication::exit(7); });
  EXPECT_EQ(QApplication::exec(), 7);
  EXPECT_EQ(ended, 2);
}

/// A store, which needs no room among the temporary files.
class StoreTest : public ::testing::Test {
 protected:
  StoreTest() { qputenv("TMPDIR", "/dev/null"); }
  ~StoreTest() override { qunsetenv("TMPDIR"); }
  static std::string get(const std::string& key) {
    return IniSettingsStore().get("app", "Strings", key, "default");
  }
  static void save(const std::string& key, const std::string& value) {
    IniSettingsStore().save("app", "Strings", key, value);
  }

  ConfigHome home_;
  std::filesystem::path file_ = home_.path() / "app.ini";
};

TEST_F(StoreTest, TakesWhatWasTypedByHandAndKeepsWhatItDoesNotKnow) {
  for (const std::string byte_order_mark : {"", "\xEF\xBB\xBF"}) {
    writeFile(file_, byte_order_mark + "[Strings]\nRow=/1A1000,P20,R\n[Other]\nkey=kept\n");
    save("Plain", "/2&");
    EXPECT_EQ(get("Row") + get("Plain") + get("Missing"), "/1A1000,P20,R/2&default");
    EXPECT_NE(bytesOf(file_).find("[Other]\nkey=kept\n"), std::string::npos);
  }
}

TEST_F(StoreTest, SetsAFileThatIsNoStoreAsideBeforeItWrites) {
  const std::string aside = file_.string() + ".corrupt";
  const std::pair<std::string, std::string> spoilt[] = {
      {aside, "[Strings\nRow"},
      {aside + ".1", std::string("[Strings]\nRow=\0\0", 16)},
      {aside + ".2", "[Strings]\nRow=\xB5\n"}};
  for (const auto& [place, content] : spoilt) {
    writeFile(file_, content);
    EXPECT_EQ(get("Row"), "default");
    EXPECT_EQ(bytesOf(place), content);
    save("Row", "new");
    EXPECT_EQ(get("Row"), "new");
  }
  IniSettingsStore store;
  store.save("app", "Strings", "Row", "newer");
  writeFile(file_, "spoilt meanwhile");
  store.flush();
  EXPECT_EQ(bytesOf(aside + ".3"), "spoilt meanwhile");
  std::filesystem::resize_file(file_, std::uintmax_t{1} << 40);
  EXPECT_EQ(get("Row"), "default") << "a store of 1 TiB";
}

TEST_F(StoreTest, LeavesTheFileAsItIsWhenTheDiskHasNoRoomForTheNewOne) {
  save("Row", "old");
  const std::string before = bytesOf(file_), long_text(8000, 'x');
  std::signal(SIGXFSZ, SIG_IGN);
  IniSettingsStore store;
  for (const rlim_t room : {0U, 30U, 4096U}) {
    const rlimit full{room, RLIM_INFINITY}, empty{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &full);
    store.save("app", "Strings", "Row", long_text);
    setrlimit(RLIMIT_FSIZE, &empty);
    EXPECT_EQ(bytesOf(file_), before) << room;
  }
  store.flush();
  EXPECT_EQ(get("Row"), long_text) << "it was not taken for saved";
}

TEST_F(StoreTest, WaitsForItsLockNoLongerThanHalfASecond) {
  static std::string log;
  const auto log_before =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext& context, const QString& text) {
        log += std::string(context.category) + ": " + text.toStdString() + '\n';
      });
  const std::filesystem::path lock = file_.string() + ".lock";
  const auto start = std::chrono::steady_clock::now();
  for (const std::string content : {"garbage", ""}) {
    std::filesystem::remove(lock);
    content.empty() ? void(std::filesystem::create_directory(lock)) : writeFile(lock, content);
    log.clear();
    save("Row", "in spite of " + content);
    EXPECT_EQ(log, "mvdirigo.store: goes on without the store's lock, which can't be had: " +
                       lock.string() + '\n');
    EXPECT_EQ(get("Row"), "in spite of " + content);
    EXPECT_TRUE(std::filesystem::exists(lock));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  qInstallMessageHandler(log_before);
}

TEST_F(StoreTest, KeepsWhatSeveralConsolesWrite) {
  IniSettingsStore first, second;
  EXPECT_EQ(first.get("app", "Strings", "Row", ""), "");
  second.save("app", "Strings", "Own", "second's");
  second.save("app", "Strings", "Row", "second's");
  second.flush();
  EXPECT_EQ(first.get("app", "Strings", "Own", ""), "second's");
  first.save("app", "Strings", "Row", "first's");
  first.flush();
  EXPECT_EQ(get("Row") + get("Own"), "first'ssecond's");
}

TEST_F(StoreTest, GoesOnWithoutAFileThatCanNotBeWritten) {
  writeFile(file_, "");
  qputenv("XDG_CONFIG_HOME", file_.c_str());
  IniSettingsStore store;
  store.save("app", "Strings", "Row", "value");
  EXPECT_EQ(store.get("app", "Strings", "Row", "default"), "value");
  // QSettings would work in the present folder then, and wait for its lock without end.
  const auto folder_before = std::filesystem::current_path();
  std::filesystem::current_path(home_.path());
  writeFile(".lock", std::to_string(getppid()));
  store.flush();
  EXPECT_TRUE(std::filesystem::exists(".lock")) << "not even taken for a lock left behind";
  std::filesystem::current_path(folder_before);
}

class DialogTest : public ::testing::Test {
 protected:
  /// Lets `answer` use the next dialog that stands open.
  template <class Dialog>
  static void whenShown(std::function<void(Dialog&)> answer) {
    QTimer::singleShot(0, [answer] {
      auto* dialog = dynamic_cast<Dialog*>(QApplication::activeModalWidget());
      dialog ? answer(*dialog) : whenShown<Dialog>(answer);
    });
  }
  /// Presses `button` of a box of `style`, or closes it.
  BoxButton answer(int style, QMessageBox::Icon icon, QMessageBox::StandardButton button) {
    whenShown<QMessageBox>([&](QMessageBox& box) {
      EXPECT_EQ(box.icon(), icon);
      EXPECT_EQ(box.windowTitle(), "Tolvaris MVDirigo");
      EXPECT_EQ(box.textFormat(), Qt::PlainText);
      button == QMessageBox::NoButton ? void(box.close()) : box.button(button)->click();
    });
    return dialogs_.messageBox("<b>5</b> & 6", style);
  }

  QtDialogs dialogs_;
};

TEST_F(DialogTest, BoxesHaveTheIconAndButtonsOfTheirStyleAndAClosingCountsAsCancelOrNo) {
  using Box = QMessageBox;
  EXPECT_EQ(answer(0, Box::NoIcon, Box::NoButton), BoxButton::kOk);
  EXPECT_EQ(answer(16, Box::Critical, Box::Ok), BoxButton::kOk);
  EXPECT_EQ(answer(49, Box::Warning, Box::NoButton), BoxButton::kCancel);
  EXPECT_EQ(answer(68, Box::Information, Box::Yes), BoxButton::kYes);
  EXPECT_EQ(answer(68, Box::Information, Box::NoButton), BoxButton::kNo);
  EXPECT_EQ(answer(112, Box::Warning, Box::Ok), BoxButton::kOk);

  auto window = std::make_unique<QWidget>();
  window->show();
  whenShown<Box>([&](Box&) { window.reset(); });
  EXPECT_EQ(dialogs_.messageBox("goes with its window", box::kYesNo), BoxButton::kNo);
}

TEST_F(DialogTest, FileDialogsReturnThePathOrReportTheCancelAsAsked) {
  const ConfigHome folder;
  const auto choose = [&](auto ask, const std::string& name, const FileRequest& request) {
    whenShown<QFileDialog>([&](QFileDialog& dialog) {
      EXPECT_EQ(dialog.nameFilters(), QStringList{"Update (*.zrf)"});
      dialog.findChild<QLineEdit*>("fileNameEdit")->setText((folder.path() / name).c_str());
      static_cast<QDialog&>(dialog).accept();
    });
    return std::filesystem::path((dialogs_.*ask)(request)).filename();
  };
  constexpr auto save = &QtDialogs::saveFile;
  constexpr auto open = &QtDialogs::openFile;
  FileRequest request;
  request.filter = "Update (*.zrf)|*.zrf";
  EXPECT_EQ(choose(save, "image", request), "image");
  request.default_extension = "zrf";
  EXPECT_EQ(choose(save, "image", request), "image.zrf");
  EXPECT_EQ(choose(save, "image.bin", request), "image.bin");
  request.file_must_exist = true;
  for (const char* name : {"as-typed", "image.zrf"}) writeFile(folder.path() / name, "");
  EXPECT_EQ(choose(open, "as-typed", request), "as-typed");
  EXPECT_EQ(choose(open, "image", request), "image.zrf");

  writeFile(folder.path() / "<b>x", "");
  request.ask_before_overwriting = true;
  whenShown<QMessageBox>([](QMessageBox& question) {
    EXPECT_EQ(question.textFormat(), Qt::PlainText);
    question.button(QMessageBox::Yes)->click();
  });
  EXPECT_EQ(choose(save, "<b>x", request), "<b>x");

  const auto cancel = [](QFileDialog& dialog) { dialog.reject(); };
  whenShown<QFileDialog>(cancel);
  EXPECT_EQ(dialogs_.openFile(request), "");
  request.cancel_is_error = true;
  whenShown<QFileDialog>(cancel);
  EXPECT_THROW(static_cast<void>(dialogs_.openFile(request)), RuntimeError);
}

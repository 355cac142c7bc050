#include "platform/qt/ini_settings_store.h"

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QStringList>
#include <QTemporaryDir>

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

Q_LOGGING_CATEGORY(storeLog, "mvdirigo.store")

constexpr int kLongestWaitForLockMs = 500;

/// By "section/key".
using Values = std::map<std::string, std::string>;

QString pathOf(const std::string& application) {
  return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + '/' +
         QString::fromStdString(application) + ".ini";
}

QByteArray bytesOf(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Another console, or a hand, may write the file while this program runs.
fs::file_time_type lastWritten(const QString& path) {
  std::error_code error;
  return fs::last_write_time(path.toStdString(), error);
}

/// A copy of a store's file. QSettings works on it without the real one's lock, which it would wait
/// for without end, and without the byte order mark, a broken line to it.
class WorkingCopy {
 public:
  explicit WorkingCopy(QByteArray bytes) {
    if (bytes.startsWith("\xEF\xBB\xBF")) bytes.remove(0, 3);
    QFile file(path_);
    made_ = folder_.isValid() && file.open(QIODevice::WriteOnly) &&
            file.write(bytes) == bytes.size() && file.flush();
  }

  bool made() const { return made_; }
  const QString& path() const { return path_; }

 private:
  QTemporaryDir folder_;
  const QString path_ = folder_.filePath("store.ini");
  bool made_ = false;
};

/// The values in `path`, which may not exist yet; none when it holds what can't be read as a store.
/// QSettings reads bytes that are not UTF-8 as other characters and would write those back, so they
/// count as such.
std::optional<Values> read(const QString& path) {
  const fs::path file = path.toStdString();
  std::error_code error;
  if (!fs::exists(fs::symlink_status(file, error))) return Values();
  // Opening a pipe would wait for its other end.
  if (!fs::is_regular_file(file, error)) return std::nullopt;

  QFile stored(path);
  if (!stored.open(QIODevice::ReadOnly)) return std::nullopt;
  const QByteArray bytes = stored.readAll();
  QStringDecoder utf8(QStringDecoder::Utf8);
  const QString text = utf8(bytes);
  if (utf8.hasError() || text.contains(QChar::Null)) return std::nullopt;

  const WorkingCopy copy(bytes);
  const QSettings settings(copy.made() ? copy.path() : path, QSettings::IniFormat);
  Values values;
  for (const QString& key : settings.allKeys()) {
    const QVariant value = settings.value(key);
    // A text with commas that was typed into the file without quotes comes in pieces.
    if (value.isValid()) values[key.toStdString()] = value.toStringList().join(',').toStdString();
  }
  if (settings.status() != QSettings::NoError) return std::nullopt;
  return values;
}

/// Moves `path` out of the way, so that nothing of it is overwritten, nor what was moved before.
bool setAside(const QString& path) {
  const std::string name = path.toStdString() + ".corrupt";
  fs::path aside = name;
  std::error_code error;
  for (int number = 1; fs::exists(fs::symlink_status(aside, error)); ++number) {
    aside = name + '.' + std::to_string(number);
  }
  fs::rename(path.toStdString(), aside, error);
  if (error) {
    qCWarning(storeLog).noquote() << "can't read or set aside" << path;
  } else {
    qCWarning(storeLog).noquote() << "could not be read and was set aside:" << aside.c_str();
  }
  return !error;
}

/// Writes `values` into the store at `path`, all or none of them, and keeps the others.
bool write(const QString& path, const Values& values) {
  if (!read(path) && !setAside(path)) return false;
  const WorkingCopy copy(bytesOf(path));
  if (!copy.made()) return false;
  QSettings settings(copy.path(), QSettings::IniFormat);
  for (const auto& [key, value] : values) {
    settings.setValue(QString::fromStdString(key), QString::fromStdString(value));
  }
  settings.sync();
  if (settings.status() != QSettings::NoError) return false;
  const QByteArray bytes = bytesOf(copy.path());
  QSaveFile file(path);
  file.setDirectWriteFallback(true);
  return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

/// Takes the lock that keeps two programs from losing each other's values. A lock that nobody gives
/// back stops nothing: without it no more can happen than that one of two loses.
void waitForLock(QLockFile& lock) {
  const QFileInfo file(lock.fileName());
  // Reading a pipe would wait for its other end.
  const bool readable = !file.exists() || file.isFile();
  if (readable && lock.tryLock(kLongestWaitForLockMs)) return;
  qCWarning(storeLog).noquote() << "goes on without the store's lock, which can't be had:"
                                << lock.fileName();
}

}  // namespace

IniSettingsStore::IniSettingsStore() {
  flush_soon_.setSingleShot(true);
  QObject::connect(&flush_soon_, &QTimer::timeout, [this] { flush(); });
}

std::string IniSettingsStore::get(const std::string& application, const std::string& section,
                                  const std::string& key, const std::string& default_value) {
  const auto& values = file(application).values;
  const auto found = values.find(section + '/' + key);
  return found == values.end() ? default_value : found->second;
}

void IniSettingsStore::save(const std::string& application, const std::string& section,
                            const std::string& key, const std::string& value) {
  File& stored = file(application);
  const std::string name = section + '/' + key;
  stored.values[name] = value;
  stored.unwritten[name] = value;
  flush_soon_.start();
}

void IniSettingsStore::flush() {
  for (auto& [application, file] : files_) {
    if (file.unwritten.empty()) continue;
    const QString path = pathOf(application);
    QDir().mkpath(QFileInfo(path).path());
    QLockFile lock(path + ".lock");
    waitForLock(lock);
    if (write(path, file.unwritten)) {
      file.unwritten.clear();
    } else {
      qCWarning(storeLog).noquote() << "can't be written:" << path;
    }
  }
}

IniSettingsStore::File& IniSettingsStore::file(const std::string& application) {
  const auto [entry, is_new] = files_.try_emplace(application);
  File& file = entry->second;
  const QString path = pathOf(application);
  const auto written = lastWritten(path);
  if (!is_new && written == file.read_as_of) return file;
  file.read_as_of = written;
  if (auto stored = read(path)) {
    file.values = std::move(*stored);
    for (const auto& [key, value] : file.unwritten) file.values[key] = value;
  } else if (is_new) {
    setAside(path);
  }
  return file;
}

}  // namespace mvdirigo

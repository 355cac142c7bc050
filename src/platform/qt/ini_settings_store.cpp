#include "platform/qt/ini_settings_store.h"

#include <algorithm>
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
#include <QStringList>
#include <QTemporaryDir>

#include "platform/input_file.h"
#include "platform/runtime_error.h"
#include "platform/text.h"

namespace mvdirigo {
namespace {

namespace fs = std::filesystem;

Q_LOGGING_CATEGORY(storeLog, "mvdirigo.store")

constexpr int kLongestWaitForLockMs = 500;
/// More than the rows at their longest take up. What is larger is no store.
constexpr std::size_t kLargestStore = 16 * 1024 * 1024;

/// By "section/key".
using Values = std::map<std::string, std::string>;

QString pathOf(const std::string& application) {
  return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + '/' +
         QString::fromStdString(application) + ".ini";
}

/// Another console, or a hand, may write the file while this program runs.
fs::file_time_type lastWritten(const QString& path) {
  std::error_code error;
  return fs::last_write_time(path.toStdString(), error);
}

/// The whole store at `path`, which may not exist yet; none when there is something else, or it
/// can't be read to its end.
std::optional<QByteArray> readBytes(const QString& path) {
  const fs::path file = path.toStdString();
  std::error_code error;
  if (fs::symlink_status(file, error).type() == fs::file_type::not_found) return QByteArray();
  try {
    return QByteArray::fromStdString(InputFile(file).whole(kLargestStore));
  } catch (const RuntimeError&) {
    return std::nullopt;
  }
}

/// A copy of the store at `path`, made in `folder`. QSettings works on it without the real one's
/// lock, which it would wait for without end, and without the byte order mark, a broken line to it.
class WorkingCopy {
 public:
  WorkingCopy(QByteArray bytes, const QString& folder) : folder_(folder + "/mvdirigo-XXXXXX") {
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

/// Where a copy of the store at `path` can be made. Temporary files often have a disk of their own,
/// and a full one is no reason to lose what the store has room for.
QStringList foldersForCopies(const QString& path) {
  return {QDir::tempPath(), QFileInfo(path).path()};
}

/// What stands in the store's file at `path`; none when QSettings can't make sense of it.
std::optional<Values> parse(const QString& path) {
  const QSettings settings(path, QSettings::IniFormat);
  Values values;
  for (const QString& key : settings.allKeys()) {
    const QVariant value = settings.value(key);
    // A text with commas that was typed into the file without quotes comes in pieces.
    if (value.isValid()) values[key.toStdString()] = value.toStringList().join(',').toStdString();
  }
  if (settings.status() != QSettings::NoError) return std::nullopt;
  return values;
}

/// The values among the `bytes` of the store at `path`; none when these can't be read as a store.
/// QSettings reads bytes that are not UTF-8 as other characters and would write those back, so they
/// count as such.
std::optional<Values> valuesIn(const QByteArray& bytes, const QString& path) {
  if (!isUtf8(bytes.toStdString()) || bytes.contains('\0')) return std::nullopt;
  for (const QString& folder : foldersForCopies(path)) {
    const WorkingCopy copy(bytes, folder);
    if (copy.made()) return parse(copy.path());
  }
  return parse(path);
}

std::optional<Values> read(const QString& path) {
  const auto bytes = readBytes(path);
  return bytes ? valuesIn(*bytes, path) : std::nullopt;
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

/// Whether `all` is in `found`. Keys that QSettings spells anew, as in a group "[%GENERAL]" that a
/// hand wrote, need only be as many; some, as of a group without a name, it reads only then.
bool holds(const Values& found, const Values& all) {
  return found.size() >= all.size() && std::ranges::all_of(all, [&](const auto& expected) {
           const auto value = found.find(expected.first);
           return value == found.end() || value->second == expected.second;
         });
}

/// A store's `bytes` with `values` put in; none when `folder` has no room for the work. QSettings
/// doesn't always tell that a disk was full: what it left may be the old file or a part of the new.
std::optional<QByteArray> merged(const QByteArray& bytes, const Values& values, const Values& all,
                                 const QString& folder) {
  const WorkingCopy copy(bytes, folder);
  if (!copy.made()) return std::nullopt;
  QSettings settings(copy.path(), QSettings::IniFormat);
  for (const auto& [key, value] : values) {
    settings.setValue(QString::fromStdString(key), QString::fromStdString(value));
  }
  settings.sync();
  auto whole = readBytes(copy.path());
  if (settings.status() != QSettings::NoError || !whole) return std::nullopt;
  const WorkingCopy written(*whole, folder);
  const auto found = written.made() ? parse(written.path()) : std::nullopt;
  return found && holds(*found, all) ? std::move(whole) : std::nullopt;
}

/// Puts `bytes` in place of the store at `path`, all or none of them; only where the folder takes
/// no new file they are written over the old ones.
bool replace(const QString& path, const QByteArray& bytes) {
  QSaveFile file(path);
  file.setDirectWriteFallback(true);
  return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
         reachedDisk(file.handle()) && file.commit();
}

/// Writes `values` into the store at `path` and keeps the others.
bool write(const QString& path, const Values& values) {
  auto bytes = readBytes(path);
  auto all = bytes ? valuesIn(*bytes, path) : std::nullopt;
  if (!all) {
    if (!setAside(path)) return false;
    bytes = QByteArray();
    all = Values();
  }
  for (const auto& [key, value] : values) (*all)[key] = value;
  for (const QString& folder : foldersForCopies(path)) {
    if (const auto whole = merged(*bytes, values, *all, folder)) return replace(path, *whole);
  }
  return false;
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

#include "platform/qt/ini_settings_store.h"

#include <filesystem>
#include <system_error>

#include <QFile>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QStringList>

namespace mvdirigo {
namespace {

Q_LOGGING_CATEGORY(storeLog, "mvdirigo.store")

QString pathOf(const std::string& application) {
  return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + '/' +
         QString::fromStdString(application) + ".ini";
}

QString keyOf(const std::string& section, const std::string& key) {
  return QString::fromStdString(section) + '/' + QString::fromStdString(key);
}

/// Whether `path` holds something that can't be read as a store. QSettings reads bytes that are not
/// UTF-8 as other characters and would write those back, so they count as well.
bool isUnusable(const QString& path) {
  const std::filesystem::path file = path.toStdString();
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file, error))) return false;
  // Opening a pipe would wait for its other end.
  if (!std::filesystem::is_regular_file(file, error)) return true;

  QFile stored(path);
  if (!stored.open(QIODevice::ReadOnly)) return true;
  QStringDecoder utf8(QStringDecoder::Utf8);
  const QString text = utf8(stored.readAll());
  if (utf8.hasError() || text.contains(QChar::Null)) return true;
  QSettings settings(path, QSettings::IniFormat);
  settings.allKeys();  // Groups are parsed when they are asked for.
  return settings.status() != QSettings::NoError;
}

/// Moves `path` out of the way, so that nothing of it is overwritten.
bool setAside(const QString& path) {
  const std::filesystem::path file = path.toStdString();
  std::error_code error;
  std::filesystem::rename(file, file.string() + ".corrupt", error);
  if (error) {
    qCWarning(storeLog).noquote() << "can't read or set aside" << path;
  } else {
    qCWarning(storeLog).noquote() << "could not be read and was set aside:" << path + ".corrupt";
  }
  return !error;
}

}  // namespace

IniSettingsStore::~IniSettingsStore() {
  for (const auto& [application, file] : files_) {
    if (!file) continue;
    file->sync();
    if (file->status() != QSettings::NoError) {
      qCWarning(storeLog).noquote() << "can't be written:" << file->fileName();
    }
  }
}

std::string IniSettingsStore::get(const std::string& application, const std::string& section,
                                  const std::string& key, const std::string& default_value) {
  const QSettings* stored = file(application);
  const QVariant value = stored ? stored->value(keyOf(section, key)) : QVariant();
  if (!value.isValid()) return default_value;
  // A text with commas that was typed into the file without quotes comes in pieces.
  return value.toStringList().join(',').toStdString();
}

void IniSettingsStore::save(const std::string& application, const std::string& section,
                            const std::string& key, const std::string& value) {
  if (QSettings* stored = file(application)) {
    stored->setValue(keyOf(section, key), QString::fromStdString(value));
  }
}

QSettings* IniSettingsStore::file(const std::string& application) {
  const auto [entry, is_new] = files_.try_emplace(application);
  if (is_new) {
    const QString path = pathOf(application);
    if (!isUnusable(path) || setAside(path)) {
      entry->second = std::make_unique<QSettings>(path, QSettings::IniFormat);
    }
  }
  return entry->second.get();
}

}  // namespace mvdirigo

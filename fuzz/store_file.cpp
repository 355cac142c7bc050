#include <QCoreApplication>
#include <QLoggingCategory>

#include "platform/qt/ini_settings_store.h"
#include "platform/text.h"
#include "property.h"
#include "support/config_home.h"

/// One that is saved, and one that is not.
using Values = std::pair<std::string, std::string>;
static Values valuesIn(mvdirigo::SettingsStore& store) {
  return {store.get("store", "Settings", "BaudRate", "?"),
          store.get("store", "Settings", "x", "?")};
}

/// A store's file is read or set aside as it stands; what is saved and what it held read back.
void mvdirigo::check(std::string_view input) {
  static int no_arguments = 0;
  static const QCoreApplication application(no_arguments, nullptr);
  static const ConfigHome home;
  QLoggingCategory::setFilterRules("mvdirigo.store=false");
  const auto file = home.path() / "store.ini", aside = home.path() / "store.ini.corrupt";
  std::filesystem::remove(aside);
  writeFile(file, std::string(input));
  auto store = std::make_unique<IniSettingsStore>();
  auto values = valuesIn(*store);
  const bool corrupt = !std::filesystem::exists(file);
  require(bytesOf(corrupt ? aside : file) == input, "reading changes no byte");
  require(corrupt || isUtf8(input), "what is no text is set aside");
  require(!corrupt || values == Values("?", "?"), "it has no values then");
  values.first = utf8FromLatin1(input.substr(input.size() / 2));
  store->save("store", "Settings", "BaudRate", values.first);
  store = nullptr;
  IniSettingsStore later;
  // QSettings spoils files with some names, which therefore stay as they are.
  const bool odd = input.find_first_of("/\\%") < input.size() || input.find("[]") < input.size();
  const bool stays = odd && bytesOf(file) == input;
  require(stays || valuesIn(later) == values, "what is saved reads back, and all else is kept");
}

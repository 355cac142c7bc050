#include "console/command_file.h"

#include <sys/mman.h>

#include <vector>

#include "platform/text.h"
#include "property.h"
#include "support/fault_number.h"
#include "support/files.h"

using namespace mvdirigo;

static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("input", 0));
static RecordTable table;

/// What strings and cells that were zeros are after loading `file`; `fault` ended it, or 0.
static std::vector<std::string> loaded(const std::string& file, int& fault) {
  std::vector<std::string> fields;
  const auto take = [&](int, const std::string& text) { fields.push_back(text); };
  table.clear();
  writeFile(path, file);
  fault = faultNumber([&] { readCommandFile(path, take, table); });
  require(fault == 0 || fault == 6 || fault == 62, "a field is too long, or the file too short");
  fields.resize(kCommandFileStrings, "0");
  for (int row = 0; row < RecordTable::kPresses; ++row) {
    fields.insert(fields.end(), {table.button(row).text(), table.delay(row).text()});
  }
  for (const auto& field : fields) require(field.size() <= 2 * kCommandFieldLimit, "it is bounded");
  return fields;
}

/// What stands before a fault is loaded; and what was loaded is the same after saving and loading.
void mvdirigo::check(std::string_view input) {
  const std::string file = sometimesFlooding(input);
  int fault = 0;
  const auto start = loaded(file, fault);
  auto all = loaded(file + std::string(1025, '\n'), fault);
  const auto [end, more] = std::ranges::mismatch(start, all);
  const bool ends = std::all_of(end, start.end(), [](auto& field) { return field == "0"; });
  const bool is_whole = std::all_of(more, all.end(), [](auto& field) { return field.empty(); });
  require(!isUtf8(file) || (fault == 0 ? ends && is_whole : start == all), "a start is loaded");
  if (fault != 0) return;
  table.setButton(499, Cell::ofNumber(-7));
  table.setDelay(499, Cell());
  all[1023] = "-7", all[1024] = "";
  writeCommandFile(
      path, [&](int row) { return all[static_cast<std::size_t>(row)]; }, table);
  require(loaded(bytesOf(path), fault) == all && fault == 0, "what is saved can be loaded");
}

#include "simulator/program/sim_options.h"

#include <iostream>
#include <set>

#include "property.h"

/// A command line, in lines, is refused, or asks for what can be.
void mvdirigo::check(std::string_view input) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);
  std::vector<std::string> words = {"movane-sim"};
  while (!input.empty()) words.emplace_back(std::string(takeUntil('\n', input)).c_str());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  SimOptions options;
  try {
    options = parseSimOptions(static_cast<int>(arguments.size()), arguments.data());
  } catch (const NothingToRun& nothing) {
    return require(nothing.exit_code == 0 || nothing.exit_code == 2, "a refusal has its code");
  }
  std::set<std::pair<int, char>> places;
  for (const PlacedUnit& placed : options.units) {
    const auto& [port, unit] = placed;
    const std::string told = unitText(placed);
    require(unitText(parseUnit(told)) == told, "a unit reads back from its text");
    require(port >= 1 && port <= 16 && places.emplace(port, unit.address).second, "one at a place");
    require(std::ranges::count(unitRates(), unit.baud) == 1, "a unit has a rate that there is");
  }
  for (const LineFault& fault : options.bus.faults) {
    const bool percent = fault.kind == FaultKind::kDrop || fault.kind == FaultKind::kLostEtx;
    require(fault.amount <= (percent ? 100 : 10'000'000), "an amount is possible");
    const std::string told = describeFault(fault), answer = "\x02\x30`\x03Q";
    require(describeFault(parseFault(told)) == told, "a fault reads back from its description");
    static_cast<void>(LineFaults({fault}, 1).apply(answer, fault.piece));
  }
  words.erase(words.begin(), std::ranges::find(words, "--"));
  if (!words.empty()) words.erase(words.begin());
  require(options.command == words, "the command is what follows the dashes");
}

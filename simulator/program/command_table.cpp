#include "simulator/program/command_table.h"

#include <algorithm>

#include "simulator/model/motion.h"
#include "simulator/model/simulated_unit.h"

namespace mvdirigo {
namespace {

constexpr std::size_t kFirstColumn = 20;

std::string row(std::string what, const char* help) {
  what.resize(std::max(kFirstColumn, what.size() + 2), ' ');
  return "  " + what + help + "\n";
}

std::string operandOf(const Instruction& instruction) {
  if (!instruction.takes_operand) return {};
  return " " + std::to_string(instruction.least) + " to " + std::to_string(instruction.most);
}

}  // namespace

std::string commandTable() {
  std::string table = "Commands, behind \"/\" and the unit's address, as in /1&:\n";
  for (const SimulatedUnit::Command& command : SimulatedUnit::commands()) {
    const bool nothing = command.name.empty();
    const std::string form = std::string(command.name).append(command.operand);
    table += row(nothing ? "(nothing)" : form, command.help);
  }
  table += "\nValues of ?N:\n";
  for (int index = 0; const Query& query : Motion::queries()) {
    table += row("?" + std::to_string(index++), query.help);
  }
  table +=
      "\nPrograms, as /1gA1000M500A0M500G5R, of steps in a row; R at the end runs it, and R alone\n"
      "the one that came last. While one runs, the unit takes no other:\n";
  for (const Instruction& instruction : Motion::instructions()) {
    table += row(instruction.letter + operandOf(instruction), instruction.help);
  }
  return table;
}

}  // namespace mvdirigo

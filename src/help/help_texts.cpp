#include "help/help_texts.h"

#include <array>
#include <cstddef>

namespace mvdirigo {
namespace {

constexpr std::array kLoadButtonHelp{
    "This Plays the sequence of recorded command button presses endlessly.",
    "This Plays the sequence of recorded command button presses.",
    "This Records a sequence of command button presses. It allows you to create command sequences "
    "that can be looped.",
    "This opens the settings window where you set the COM port, baud rate and number of strings to "
    "display.",
    "This allows you to Save your Command Strings.",
    "This allows you to load previously saved Command Strings.",
    "This loads the default set of Command Strings.",
    "This opens the Help Window.",
};

}  // namespace

std::string helpOnLoadButton(int Index) {
  const auto index = static_cast<std::size_t>(Index);
  return Index >= 0 && index < kLoadButtonHelp.size() ? kLoadButtonHelp[index] : "";
}

}  // namespace mvdirigo

#include <iterator>
#include <random>
#include <sstream>

#include "chaos_walk.h"

namespace mvdirigo {
namespace {

constexpr std::size_t kStepsOfALife = 300;
/// How often acts come, alone or in a row with what a person does on purpose and chance would
/// seldom bring about. Where a box is open, "yes" agrees to it.
constexpr std::pair<int, const char*> kActs[] = {
    {450, "use"},
    {80, "key"},
    {15, "close"},
    {1, "end"},
    {40, "plug"},
    {10, "unplug"},
    {6, "refuse"},
    {60, "hear"},
    {15, "file"},
    {100, "1"},
    {50, "10"},
    {50, "50"},
    {50, "120"},
    {40, "500"},
    {10, "3000"},
    {5, "12000"},
    {30, "SendCommand(0) 50 SendCommand(1) 1000"},
    {10, "LoadButton(2) SendCommand(0) 500 SendCommand(1) 500 LoadButton(2) LoadButton(1) 1000"},
    {10, "LoadButton(0) 3000"},
    {10, "LoadButton(5) yes LoadButton(1) 3000"},
    {10, "LoadButton(3) AutoSetup 3000 5000"},
    {15, "LoadButton(3) cmdUpdate cmdLoadImage yes cmdUpdate yes 12000 3000"},
    {10,
     "LoadButton(3) LoadButton(2) SendCommand(0) 120 LoadButton(2) LoadButton(0) cmdUpdate "
     "cmdLoadImage yes cmdUpdate yes 12000 3000"},
};

}  // namespace

Steps drawSteps(std::uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<double> weights;
  for (const auto& [weight, acts] : kActs) weights.push_back(weight);
  std::discrete_distribution<std::size_t> any(weights.begin(), weights.end());
  Steps steps;
  while (steps.size() < kStepsOfALife) {
    std::istringstream acts(kActs[any(random)].second);
    for (std::string act; acts >> act;) {
      steps.push_back({act, act == "yes" ? 0 : static_cast<std::uint32_t>(random())});
    }
  }
  return steps;
}

}  // namespace mvdirigo

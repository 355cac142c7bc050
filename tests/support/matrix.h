#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace mvdirigo {

/// What comes out when a line goes wrong in one way in one state.
struct MatrixCell {
  std::string state, fault, outcome;
};

/// The cells of a table that is written as text: a line of faults that ends in "while", then lines
/// of as many outcomes, each followed by the states in which they come out. Those that start with
/// "-" can't happen and are left out.
inline std::vector<MatrixCell> cellsOf(const std::string& table) {
  std::istringstream lines(table);
  std::vector<std::string> faults;
  std::vector<MatrixCell> cells;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::vector<std::string> outcomes;
    for (std::string word; words >> word;) {
      if (word == "while") {
        faults = std::move(outcomes);
      } else if (faults.empty() || outcomes.size() < faults.size()) {
        outcomes.push_back(word);
      } else {
        for (std::size_t i = 0; i < faults.size(); ++i) {
          if (outcomes[i][0] != '-') cells.push_back({word, faults[i], outcomes[i]});
        }
      }
    }
  }
  return cells;
}

}  // namespace mvdirigo

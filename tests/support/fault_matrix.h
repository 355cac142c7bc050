#pragma once

#include "support/update_window.h"

namespace mvdirigo {

/// What comes out when a line goes wrong in one way in one state.
struct MatrixCell {
  std::string state, fault, outcome;
};

/// The cells of a table that is written as text: a line of faults that ends in "while", then lines
/// of as many outcomes, each followed by the states in which they come out. Those that start with
/// "-" can't happen and are left out.
inline std::vector<MatrixCell> cellsOf(const QString& table) {
  QStringList faults;
  std::vector<MatrixCell> cells;
  for (const QString& line : table.split('\n', Qt::SkipEmptyParts)) {
    const QStringList words = line.simplified().split(' ');
    if (words.last() == "while") faults = words.first(words.size() - 1);
    for (const QString& state : words.mid(faults.size())) {
      for (int i = 0; i < faults.size() && state != "while"; ++i) {
        if (words[i].startsWith('-')) continue;
        cells.push_back({state.toStdString(), faults[i].toStdString(), words[i].toStdString()});
      }
    }
  }
  return cells;
}

/// Lets one fault after the other strike. A fault is one that a simulated line knows, such as
/// "late=1500", or that the device vanishes for good ("vanish") or is back after 50 ms ("back"),
/// that another program takes the port as soon as it is closed ("taken"), which the time-out of a
/// silent unit makes happen ("seized"), or that the user closes the update ("close") or the console
/// ("quit").
class FaultMatrixTest : public UpdateWindow {
 protected:
  virtual void expectCell() = 0;

  void expectEveryCell(const char* table, const std::string& protocol) {
    for (const MatrixCell& cell : cellsOf(table)) {
      SCOPED_TRACE(protocol + ", " + cell.state + " x " + cell.fault);
      cell_ = cell;
      protocol_ = protocol;
      program_.reset();
      platform_.detach(1);
      platform_.store().saves.clear();
      expectCell();
      for (const std::string& problem : platform_.takeProblems()) ADD_FAILURE() << problem;
    }
  }

  void strike() {
    const std::string& fault = cell_.fault;
    bus_->setFaults({});
    if (fault == "vanish" || fault == "back") {
      platform_.detach(1);
      if (fault == "back") comeBack(std::chrono::milliseconds(50));
    } else if (fault == "taken" || fault == "seized") {
      platform_.socket(1).refusal = Fault::kPortAlreadyOpen;
      if (fault == "seized") bus_->setFaults({parseFault("silent")});
    } else if (fault == "close") {
      press(dialog(), "cmdClose");
    } else if (fault == "quit") {
      console().close();
    } else {
      bus_->setFaults({parseFault(fault)});
    }
  }
  void heal() {
    platform_.socket(1).refusal.reset();
    bus_->setFaults({});
    if (cell_.fault == "vanish") comeBack({});
    platform_.runFor(10);  // What is on the line still arrives.
  }

  MatrixCell cell_;
  std::string protocol_;

 private:
  void comeBack(SimTime delay) {
    after(delay, [this] { platform_.attach(1, *bus_); });
  }
};

}  // namespace mvdirigo

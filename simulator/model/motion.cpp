#include "simulator/model/motion.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace mvdirigo {
namespace {

constexpr long kFarthest = 2'147'483'647;

constexpr Instruction kInstructions[] = {
    {'A', true, 0, kFarthest, "move to a position, in steps"},
    {'P', true, 0, kFarthest, "move forward, in steps"},
    {'D', true, 0, kFarthest, "move back, in steps"},
    {'Z', true, 0, kFarthest, "move home to 0, in steps at most"},
    {'M', true, 0, 30'000, "wait, in ms"},
    {'H', true, 0, 14, "wait for a switch; each closes by itself after 500 ms"},
    {'g', false, 0, 0, "begin a loop"},
    {'G', true, 0, 30'000, "end it after so many rounds; 0 for no end"},
    {'V', true, 1, 1'000'000, "set the velocity, in steps/s"},
    {'v', true, 1, 1'000'000, "set the start velocity; kept only"},
    {'L', true, 0, 65'000, "set the acceleration; kept only"},
    {'j', true, 1, 256, "set the microsteps of a step; kept only"},
    {'m', true, 0, 100, "set the current while moving, in percent; kept only"},
    {'h', true, 0, 100, "set the current at rest, in percent; kept only"},
    {'F', true, 0, 1, "set the direction of counting; kept only"},
    {'J', true, 0, 3, "set the outputs, a bit each; kept only"},
};

// What isn't a setting's letter.
constexpr char kPosition = 0;
constexpr char kTarget = 1;
constexpr char kInputs = 2;
constexpr Query kQueries[] = {
    {kPosition, "the position"},
    {'v', "the start velocity"},
    {'V', "the velocity"},
    {'L', "the acceleration"},
    {kInputs, "the inputs, a bit each; all open"},
    {'J', "the outputs, a bit each"},
    {'j', "the microsteps of a step"},
    {'m', "the current while moving, in percent"},
    {'h', "the current at rest, in percent"},
    {'F', "the direction of counting"},
    {kPosition, "the position, as an encoder tells it"},
    {kTarget, "where the last move ended"},
};

constexpr std::size_t kLongestProgram = 100;

// Nobody presses a switch here, so it closes by itself.
constexpr SimTime kSwitchCloses = std::chrono::milliseconds(500);
// So that an endless loop of steps that take no time lets time go on.
constexpr SimTime kLoopTurns = std::chrono::milliseconds(1);

constexpr long kInputsAllOpen = 15;

bool isMove(char letter) { return std::string_view("APDZ").find(letter) != std::string_view::npos; }

}  // namespace

std::span<const Instruction> Motion::instructions() { return kInstructions; }

std::span<const Query> Motion::queries() { return kQueries; }

ReplyCode Motion::command(std::string_view text, SimTime now) {
  if (busy(now)) return ReplyCode::kBusy;
  const bool run = text.ends_with('R');
  if (run) text.remove_suffix(1);
  std::vector<Step> program;
  if (const ReplyCode code = parse(text, program); code != ReplyCode::kNoError) return code;
  if (!text.empty()) program_ = std::move(program);
  running_ = run && !program_.empty();
  next_step_ = 0;
  loops_.clear();
  step_start_ = now;
  return ReplyCode::kNoError;
}

ReplyCode Motion::parse(std::string_view text, std::vector<Step>& program) {
  int open_loops = 0;
  while (!text.empty()) {
    const char letter = text.front();
    text.remove_prefix(1);
    const auto* instruction =
        std::find_if(std::begin(kInstructions), std::end(kInstructions),
                     [&](const auto& known) { return known.letter == letter; });
    if (instruction == std::end(kInstructions)) return ReplyCode::kInvalidCommand;
    long operand = 0;
    if (instruction->takes_operand) {
      const auto number = std::from_chars(text.data(), text.data() + text.size(), operand);
      if (number.ec != std::errc() || operand < instruction->least || operand > instruction->most) {
        return ReplyCode::kInvalidOperand;
      }
      text.remove_prefix(static_cast<std::size_t>(number.ptr - text.data()));
    }
    if (letter == 'g') ++open_loops;
    if (letter == 'G') --open_loops;
    if (open_loops < 0) return ReplyCode::kInvalidOperand;
    program.push_back({letter, operand});
  }
  const bool fits = open_loops == 0 && program.size() <= kLongestProgram;
  return fits ? ReplyCode::kNoError : ReplyCode::kInvalidOperand;
}

void Motion::terminate(SimTime now) {
  advance(now);
  position_ = positionAt(now);
  running_ = false;
}

bool Motion::busy(SimTime now) {
  advance(now);
  return running_;
}

std::optional<long> Motion::query(long index, SimTime now) {
  if (index < 0 || index >= std::ssize(kQueries)) return std::nullopt;
  advance(now);
  switch (const char source = kQueries[index].source) {
    case kPosition:
      return positionAt(now);
    case kTarget:
      return target_;
    case kInputs:
      return kInputsAllOpen;
    default:
      return settings_.at(source);
  }
}

void Motion::advance(SimTime now) {
  while (running_) {
    const Step& step = program_[next_step_];
    const SimTime end = step_start_ + duration(step);
    if (end > now) return;
    step_start_ = end;
    ++next_step_;
    finish(step);
    running_ = next_step_ < program_.size();
  }
}

long Motion::target(const Step& step) const {
  switch (step.letter) {
    case 'A':
      return step.operand;
    case 'P':
      return std::min(position_ + step.operand, kFarthest);
    case 'D':
      return std::max(position_ - step.operand, -kFarthest);
    case 'Z':
      return position_ - std::clamp(position_, -step.operand, step.operand);
    default:
      return position_;
  }
}

SimTime Motion::duration(const Step& step) const {
  switch (step.letter) {
    case 'M':
      return std::chrono::milliseconds(step.operand);
    case 'H':
      return kSwitchCloses;
    case 'G':
      return kLoopTurns;
    default:
      return std::chrono::microseconds(std::abs(target(step) - position_) * 1'000'000 /
                                       settings_.at('V'));
  }
}

long Motion::positionAt(SimTime now) const {
  if (!running_) return position_;
  const Step& step = program_[next_step_];
  const SimTime whole = duration(step);
  if (!isMove(step.letter) || whole.count() == 0) return position_;
  const double part =
      static_cast<double>((now - step_start_).count()) / static_cast<double>(whole.count());
  return position_ + static_cast<long>(part * static_cast<double>(target(step) - position_));
}

void Motion::finish(const Step& step) {
  if (isMove(step.letter)) {
    target_ = target(step);
    position_ = target_;
  } else if (step.letter == 'g') {
    loops_.push_back({next_step_, 0});
  } else if (step.letter == 'G') {
    Loop& loop = loops_.back();
    ++loop.rounds_done;
    const bool endless = step.operand == 0;
    if (endless || loop.rounds_done < step.operand) {
      next_step_ = loop.first_step;
    } else {
      loops_.pop_back();
    }
  } else if (settings_.contains(step.letter)) {
    settings_[step.letter] = step.operand;
  }
}

}  // namespace mvdirigo

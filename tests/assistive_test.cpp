#include <QAccessible>
#include <QMetaEnum>

#include "support/window_test.h"

using namespace mvdirigo;

using Assistive = WindowTest;

/// Adds the controls from `node` on that have no name, by role and class; returns how many it saw.
static int findNameless(QAccessibleInterface& node, std::string& nameless) {
  if (node.state().invisible) return 0;
  // What only holds others together, or is a line, needs no name.
  const bool control = node.role() != QAccessible::Client && node.role() != QAccessible::Border &&
                       node.role() != QAccessible::Separator;
  if (control && node.text(QAccessible::Name).isEmpty()) {
    nameless += QMetaEnum::fromType<QAccessible::Role>().valueToKey(node.role());
    if (node.object()) nameless += std::string(" ") + node.object()->metaObject()->className();
    nameless += ", ";
  }
  int seen = 1;
  for (int child = 0; child < node.childCount(); ++child) {
    seen += findNameless(*node.child(child), nameless);
  }
  return seen;
}

TEST_F(Assistive, SeesNoNamelessControlInAnyWindow) {
  int seen = 0;
  const auto look = [&](QWidget& window) {
    std::string nameless;
    seen += findNameless(*QAccessible::queryAccessibleInterface(&window), nameless);
    EXPECT_EQ(nameless, "") << window.windowTitle().toStdString();
  };
  startWithUnit();
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&console())->role(), QAccessible::Window);
  console().resize(500, 400);  // with scroll bars
  look(console());
  press("LoadButton(7)");
  auto& help = find<QWidget>(console(), "StringFunHelp");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&help)->role(), QAccessible::Window);
  look(help);
  press("LoadButton(3)");
  look(settings());
  press(settings(), "cmdUpdate");
  look(*program_->update());
  program_->showLineTraffic();
  look(*program_->lineTraffic());
  EXPECT_GT(seen, 120) << "so there was something to name";
}

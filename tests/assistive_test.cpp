#include <QAccessible>
#include <QMetaEnum>

#include "support/window_test.h"

using namespace mvdirigo;

class Assistive : public WindowTest {
 protected:
  /// The controls of `window` that have no name, by role and class.
  static std::string nameless(QWidget& window) {
    std::string found;
    walk(*QAccessible::queryAccessibleInterface(&window), found);
    return found;
  }

 private:
  static void walk(QAccessibleInterface& node, std::string& nameless) {
    if (node.state().invisible) return;
    ++seen;
    // What only holds others together, or is a line, needs no name.
    const bool control = node.role() != QAccessible::Client && node.role() != QAccessible::Border &&
                         node.role() != QAccessible::Separator;
    if (control && node.text(QAccessible::Name).isEmpty()) {
      nameless += QMetaEnum::fromType<QAccessible::Role>().valueToKey(node.role());
      if (node.object()) nameless += std::string(" ") + node.object()->metaObject()->className();
      nameless += ", ";
    }
    for (int child = 0; child < node.childCount(); ++child) walk(*node.child(child), nameless);
  }

 protected:
  static inline int seen = 0;
};

TEST_F(Assistive, SeesNoNamelessControlInAnyWindow) {
  startWithUnit();
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&console())->role(), QAccessible::Window);
  console().resize(500, 400);
  EXPECT_EQ(nameless(console()), "") << "with scroll bars";
  press("LoadButton(7)");
  auto& help = find<QWidget>(console(), "StringFunHelp");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&help)->role(), QAccessible::Window);
  EXPECT_EQ(nameless(help), "");
  press("LoadButton(3)");
  EXPECT_EQ(nameless(settings()), "");
  press(settings(), "cmdUpdate");
  EXPECT_EQ(nameless(*program_->update()), "");
  program_->showLineTraffic();
  EXPECT_EQ(nameless(*program_->lineTraffic()), "");
  EXPECT_GT(seen, 120) << "so there was something to name";
}

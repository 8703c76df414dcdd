#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "trace.h"

extern Logger earlyChild, earlyParent;

// Built before the root, so destroyed after it, while the early loggers, destroyed later still,
// walk the list from it: the sanitizer's vtable check would take that for a use outside the
// root's lifetime. A root that came up first would still be here, with the test's record.
static struct AfterRootCheck {
    __attribute__((no_sanitize("vptr"))) ~AfterRootCheck() {
        const Logger* root = Logger::getRootLogger();
        if (root->getNext() == &earlyParent && !root->getImpl()) return;
        std::fputs("root: gone too late, early loggers cut off, or record kept\n", stderr);
        std::_Exit(1);
    }
} afterRootCheck;

TEST(LoggerOrder, LoggersBuiltBeforeTheRootStayInTheList) {
    EXPECT_EQ(earlyParent.getParent(), Logger::getRootLogger());
    EXPECT_EQ(earlyChild.getParent(), &earlyParent);
    // The oldest ends the list, and is found by name.
    EXPECT_EQ(earlyChild.getNext(), nullptr);
    EXPECT_EQ(Logger::getClassLogger("early.child"), &earlyChild);
    // The root gets a record, which it must drop when it goes.
    earlyChild.setClassLevel(LOG_ERROR, false);
    EXPECT_TRUE(Logger::getRootLogger()->started());
}

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "trace.h"

extern Logger earlyChild, earlyParent;
extern const bool rootUnbuiltAtStart;

namespace {

// Also called after the root's destruction, which the sanitizer's vtable check would flag.
__attribute__((no_sanitize("vptr"))) bool inList(const Logger* wanted) {
    for (const Logger* l = Logger::getRootLogger(); l; l = l->getNext())
        if (l == wanted) return true;
    return false;
}

// Destroyed after the root and before the early loggers, which still walk the list from it.
struct AfterRootCheck {
    __attribute__((no_sanitize("vptr"))) ~AfterRootCheck() {
        if (!rootUnbuiltAtStart) return;  // the test reports it; nothing here to check then
        if (inList(&earlyParent) && inList(&earlyChild) && !Logger::getRootLogger()->getImpl())
            return;
        std::fputs("the root's destruction broke the list or left its record\n", stderr);
        std::_Exit(1);
    }
} afterRootCheck;

TEST(LoggerOrder, LoggersBuiltBeforeTheRootStayInTheList) {
    ASSERT_TRUE(rootUnbuiltAtStart) << "link order no longer builds the early loggers first";
    const Logger* root = Logger::getRootLogger();
    EXPECT_EQ(root->getName(), "main");
    EXPECT_EQ(root->getParent(), root);
    EXPECT_TRUE(inList(&earlyParent));
    EXPECT_EQ(earlyParent.getParent(), root);
    EXPECT_EQ(earlyChild.getParent(), &earlyParent);
    // The oldest logger ends the list and is still found by name.
    EXPECT_EQ(earlyChild.getNext(), nullptr);
    EXPECT_EQ(Logger::getClassLogger("early.child"), &earlyChild);
    EXPECT_EQ(Logger::getClassLogger("early.parent"), &earlyParent);

    earlyChild.setClassLevel(LOG_ERROR, false);  // the root gets a record to drop at exit
    EXPECT_TRUE(root->started());
}

}  // namespace

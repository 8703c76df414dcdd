// Loggers are process-wide, so the logging tests have a binary of their own.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <new>
#include <regex>

#include "../common/table.h"
#include "trace.h"

// Class loggers the way a source file has them, built before the root (this file is linked
// ahead of the library): the child names a parent that comes up after it.
extern Logger earlyParent;
Logger earlyChild("early.child", &earlyParent);
Logger earlyParent("early.parent", nullptr);

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

namespace {

TEST(Logger, BuiltBeforeTheRootStayInTheList) {
    EXPECT_EQ(earlyParent.getParent(), Logger::getRootLogger());
    EXPECT_EQ(earlyChild.getParent(), &earlyParent);
    EXPECT_EQ(earlyChild.getNext(), nullptr);  // the oldest ends the list, and is found by name
    EXPECT_EQ(Logger::getClassLogger("early.child"), &earlyChild);
    earlyChild.setClassLevel(LOG_ERROR, false);  // the root gets a record, which it must drop
    EXPECT_TRUE(Logger::getRootLogger()->started());
}

TEST(Logger, ListLookupAndDestruction) {
    Logger* root = Logger::getRootLogger();
    // Room for a and b, each the other's parent; child names a before a is built, as statics may.
    alignas(Logger) unsigned char room[2][sizeof(Logger)];
    Logger* a = reinterpret_cast<Logger*>(room[0]);
    Logger child("tree.child", a);
    new (room[0]) Logger("tree.twin", reinterpret_cast<Logger*>(room[1]));
    Logger* b = new (room[1]) Logger("tree.twin", a);
    EXPECT_EQ(Logger::getClassLogger("tree.twin"), b);
    EXPECT_EQ(Logger::getClassLogger("tree.twi"), root);
    b->~Logger();  // b's children go to b's parent; a is its own parent then
    EXPECT_EQ(a->getParent(), a);
    root->setClassLevel(LOG_LEVEL(0), true);  // walks up from child must still end
    a->~Logger();  // a logger that is its own parent leaves its children to the root
    EXPECT_EQ(child.getParent(), root);
    EXPECT_EQ(root->getNext(), &child);
}

// The class level and the flags of function f; nothing while the logger isn't started.
std::string levelsOf(Logger& l) {
    if (!l.started()) return "";
    return std::to_string(l.getImpl()->classLevel) + " " +
           std::to_string(l.getFunctor<Logger::QId>("f").getMask());
}

TEST(Logger, StartsSettersAndEffectiveFlags) {
    for (const Row& row : readTable("levels.tsv")) {
        Logger top("levels.top", nullptr), child("levels.child", &top),
            grandchild("levels.grandchild", &child), other("levels.other", nullptr);
        Logger* family[] = {&top, &child, &grandchild, &other};
        for (const std::string& step : parts(row[0])) {
            std::istringstream in(step);
            std::size_t who = 0, level = 0;
            std::string what, recursive;
            in >> who >> what >> level >> recursive;
            if (what == "start") family[who]->start();
            if (what == "trace") family[who]->trace("f", LOG_LEVEL(0), "");
            if (what == "class") family[who]->setClassLevel(LOG_LEVEL(level), recursive == "r");
            if (what == "f") family[who]->setFunctionLevel("f", LOG_LEVEL(level), recursive == "r");
        }
        EXPECT_EQ(Row({levelsOf(top), levelsOf(child), levelsOf(grandchild), levelsOf(other)}),
                  Row(row.begin() + 1, row.end()))
            << row[0];
    }
}

// Makes one call of the table; "id" leaves a traced function by an exception.
void call(Logger& logger, const std::string& dir, const std::string& what, unsigned int number,
          const std::string& text) {
    auto level = LOG_LEVEL(number);
    if (what == "trace" || what == "quiet") logger.trace(what, level, text);
    if (what == "sf") logger.getFunctor<Logger::Sf>("f")(level, text);
    if (what == "output") Logger::output(text);
    if (what == "console") Logger::setConsoleLogging(level);
    if (what == "file") Logger::setLogFile(dir + text, level);
    if (what == "old") std::ofstream(dir + text) << "old\n";
    if (what == "read") std::cout << std::ifstream(dir + text).rdbuf();
    if (what == "strip") std::cout << strip_func(text) << ';';
    if (what == "replace")
        std::cout << Logger::Functor<Logger::QId>::replace(text, "a", "1", "c", "d", "e") << ';';
    if (what == "parse") std::cout << Logger::parseLogLevel(text, level) << ' ' << level << ';';
    if (what != "id") return;
    try {
        auto log = logger.getFunctor<Logger::Id>("Worker::work() const");
        log(level, text);
        throw text;
    } catch (const std::string&) {
    }
}

// Log files can't be unregistered: the test's files go with its directory, and later lines
// to them fail quietly.
TEST(Logger, WritesWhatTheTableSays) {
    std::string dir = testing::TempDir() + "logtest.XXXXXX";
    ASSERT_TRUE(mkdtemp(dir.data()));
    Logger logger("calls", nullptr);
    logger.setClassLevel(LOG_LEVEL(127), false);
    logger.setFunctionLevel("quiet", LOG_LEVEL(0), false);
    static const std::regex stamp(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] )");
    for (const Row& row : readTable("calls.tsv")) {
        std::ostringstream out;
        std::streambuf* console = std::cout.rdbuf(out.rdbuf());
        for (const std::string& level : row[1].empty() ? Row{"0"} : parts(row[1]))
            for (const std::string& text : row[2].empty() ? Row{""} : parts(row[2]))
                call(logger, dir, row[0], std::stoul(level), text == "-" ? "" : text);
        std::cout.rdbuf(console);
        std::cout.clear();  // reading a missing file sets failbit
        EXPECT_EQ(std::regex_replace(out.str(), stamp, ""), row[3]) << row[0] << " " << row[2];
    }
    std::filesystem::remove_all(dir);
}

}  // namespace

// Loggers are process-wide, so the logging tests have binaries of their own. No logger of this
// one lives at namespace scope: a test's first logger ends the list.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <regex>
#include <sstream>

#include "../common/table.h"
#include "trace.h"

namespace {

// What run() writes to std::cout, each time stamp and the blank behind it cut.
template <class Run>
std::string linesOf(Run run) {
    static const std::regex stamp(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] )");
    std::ostringstream out;
    std::streambuf* old = std::cout.rdbuf(out.rdbuf());
    run();
    std::cout.rdbuf(old);
    std::cout.clear();  // reading a missing or empty file sets failbit
    return std::regex_replace(out.str(), stamp, "");
}

TEST(LoggerTree, ListLookupAndDestruction) {
    Logger* root = Logger::getRootLogger();
    // Room for a and b, each the other's parent; child names a before a is built, as statics may.
    alignas(Logger) unsigned char room[2][sizeof(Logger)];
    Logger* a = reinterpret_cast<Logger*>(room[0]);
    Logger child("tree.child", a);
    new (room[0]) Logger("tree.twin", reinterpret_cast<Logger*>(room[1]));
    Logger* b = new (room[1]) Logger("tree.twin", a);
    EXPECT_EQ(Logger::getClassLogger("tree.twin"), b);
    EXPECT_EQ(Logger::getClassLogger("tree.twi"), root);
    // b's children go to b's parent; a is its own parent then.
    b->~Logger();
    EXPECT_EQ(a->getParent(), a);
    // Walks up from child must still end.
    root->setClassLevel(LOG_LEVEL(0), true);
    // A logger that is its own parent leaves its children to the root.
    a->~Logger();
    EXPECT_EQ(child.getParent(), root);
    EXPECT_EQ(root->getNext(), &child);
}

// The class level and the flags of function f; nothing while the logger isn't started.
std::string levelsOf(Logger& l) {
    if (!l.started()) return "";
    return std::to_string(l.getImpl()->classLevel) + " " +
           std::to_string(l.getFunctor<Logger::QId>("f").getMask());
}

TEST(LoggerLevels, StartsSettersAndEffectiveFlags) {
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

// Makes one call of the table, with the files in dir; "id" leaves a traced function by an
// exception.
void call(Logger& logger, const std::string& dir, const Row& row) {
    const std::string &call = row[0], &text = row[2];
    auto level = LOG_LEVEL(std::atoi(row[1].c_str()));
    if (call == "trace" || call == "quiet") logger.trace(call, level, text);
    if (call == "sf") logger.getFunctor<Logger::Sf>("f")(level, text);
    if (call == "output") Logger::output(text);
    if (call == "console") Logger::setConsoleLogging(level);
    if (call == "file") Logger::setLogFile(dir + text, level);
    if (call == "old") std::ofstream(dir + text) << "old\n";
    if (call == "read") std::cout << std::ifstream(dir + text).rdbuf();
    if (call == "strip") std::cout << strip_func(text);
    if (call == "replace")
        std::cout << Logger::Functor<Logger::QId>::replace(text, "a", "1", "c", "d", "e");
    if (call == "parse") std::cout << Logger::parseLogLevel(text, level) << ' ' << level;
    if (call != "id") return;
    try {
        auto log = logger.getFunctor<Logger::Id>("Worker::work() const");
        log(level, text);
        throw text;
    } catch (const std::string&) {
    }
}

// Log files can't be unregistered: the test's files go with its directory, and later lines
// to them fail quietly.
TEST(LoggerCalls, WriteWhatTheTableSays) {
    std::string dir = testing::TempDir() + "logtest.XXXXXX";
    ASSERT_TRUE(mkdtemp(dir.data()));
    Logger logger("calls", nullptr);
    logger.setClassLevel(LOG_LEVEL(127), false);
    logger.setFunctionLevel("quiet", LOG_LEVEL(0), false);
    for (const Row& row : readTable("calls.tsv"))
        EXPECT_EQ(linesOf([&] { call(logger, dir, row); }), row[3])
            << row[0] << " " << row[1] << " \"" << row[2] << '"';
    std::filesystem::remove_all(dir);
}

}  // namespace

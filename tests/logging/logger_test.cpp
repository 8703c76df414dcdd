// Loggers are process-wide: the logging tests have a binary of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <regex>

#include "../common/table.h"
#include "trace.h"

// Class loggers as a source file has them, built before the root (this file is linked ahead of
// the library): the child names a parent that comes up after it.
extern Logger earlyParent;
Logger earlyChild("early.child", &earlyParent);
Logger earlyParent("early.parent", nullptr);

namespace {

TEST(Logger, TreeListAndLookup) {
    Logger* root = Logger::getRootLogger();
    EXPECT_TRUE(earlyParent.getParent() == root && earlyChild.getParent() == &earlyParent);
    EXPECT_TRUE(earlyChild.getNext() == nullptr &&
                Logger::getClassLogger("early.child") == &earlyChild);
    // Room for a and b, each the other's parent; child names a before a is built, as statics may.
    alignas(Logger) unsigned char room[2][sizeof(Logger)];
    Logger* a = reinterpret_cast<Logger*>(room[0]);
    Logger child("tree.child", a);
    new (room[0]) Logger("tree.twin", reinterpret_cast<Logger*>(room[1]));
    Logger* b = new (room[1]) Logger("tree.twin", a);
    EXPECT_TRUE(Logger::getClassLogger("tree.twin") == b &&
                Logger::getClassLogger("tree.twi") == root);
    b->~Logger();  // b's children go to b's parent; a is its own parent then
    EXPECT_EQ(a->getParent(), a);
    root->setClassLevel(LOG_LEVEL(0), true);  // walks up from child must still end
    a->~Logger();  // a logger that is its own parent leaves its children to the root
    EXPECT_TRUE(child.getParent() == root && root->getNext() == &child);
}

// Steps on a family of fresh loggers (levels.tsv), then each one's class level and the flags
// of function f, or nothing while it isn't started.
TEST(Logger, StartsSettersAndEffectiveFlags) {
    for (const Row& row : readTable("levels.tsv")) {
        Logger top("top", nullptr), child("child", &top), grandchild("grandchild", &child),
            other("other", nullptr);
        Logger* family[] = {&top, &child, &grandchild, &other};
        Row levels;
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
        for (Logger* l : family)
            levels.push_back(!l->started()
                                 ? ""
                                 : std::to_string(l->getImpl()->classLevel) + " " +
                                       std::to_string(l->getFunctor<Logger::QId>("f").getMask()));
        EXPECT_EQ(levels, Row(row.begin() + 1, row.end())) << row[0];
    }
}

// The calls of calls.tsv on a logger with every flag but none for function "quiet", once for
// each level and text; what they write to the console, time stamps cut.
TEST(Logger, WritesWhatTheTableSays) {
    const std::string dir = testing::TempDir() + "xpath-log-" + std::to_string(getpid()) + "/";
    std::filesystem::create_directories(dir);
    Logger logger("calls", nullptr);
    logger.setClassLevel(LOG_LEVEL(127), false);
    logger.setFunctionLevel("quiet", LOG_LEVEL(0), false);
    for (const Row& row : readTable("calls.tsv")) {
        std::ostringstream out;
        std::streambuf* console = std::cout.rdbuf(out.rdbuf());
        for (const std::string& number : row[1].empty() ? Row{"0"} : parts(row[1]))
            for (std::string text : row[2].empty() ? Row{""} : parts(row[2])) {
                const std::string& what = row[0];
                auto level = LOG_LEVEL(std::stoul(number));
                text = text == "-" ? "" : text;
                if (what == "trace" || what == "quiet") logger.trace(what, level, text);
                if (what == "sf") logger.getFunctor<Logger::Sf>("f")(level, text);
                if (what == "output") Logger::output(text);
                if (what == "console") Logger::setConsoleLogging(level);
                if (what == "file") Logger::setLogFile(dir + text, level);
                if (what == "old") std::ofstream(dir + text) << "old\n";
                if (what == "read") std::cout << std::ifstream(dir + text).rdbuf();
                if (what == "strip") std::cout << strip_func(text) << ';';
                if (what == "replace")
                    std::cout << Logger::Functor<Logger::QId>::replace(text, "a", "1", "c", "d",
                                                                       "e")
                              << ';';
                if (what == "parse")
                    std::cout << Logger::parseLogLevel(text, level) << ' ' << level << ';';
                if (what != "id") continue;
                try {  // an Id functor's function, left by an exception
                    auto log = logger.getFunctor<Logger::Id>("Worker::work() const");
                    log(level, text);
                    throw text;
                } catch (const std::string&) {
                }
            }
        std::cout.rdbuf(console);
        std::cout.clear();  // reading a missing file sets failbit
        static const std::regex stamp(R"(\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] )");
        EXPECT_EQ(std::regex_replace(out.str(), stamp, ""), row[3]) << row[0] << " " << row[2];
    }
    std::filesystem::remove_all(dir);
}

}  // namespace

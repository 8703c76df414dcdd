#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "store_fixture.h"

namespace {

// Raises the store's levels and captures the lines, without time stamp and tag; "...starting"
// and "...exiting" are left out unless asked for. Puts everything back afterwards.
struct StoreLog {
    std::ostringstream captured;
    std::streambuf* console;
    explicit StoreLog(unsigned int levels) : console(std::cout.rdbuf(captured.rdbuf())) {
        XMLLoader::getLogger().setClassLevel(static_cast<LOG_LEVEL>(levels), true);
    }
    ~StoreLog() {
        XMLLoader::getLogger().setClassLevel(LOG_SEVERE, true);
        std::cout.rdbuf(console);
    }
    std::vector<std::string> lines(bool withEntryAndExit = false) const {
        std::vector<std::string> out;
        std::istringstream in(captured.str());
        for (std::string line; std::getline(in, line);) {
            std::string text = line.size() > 30 ? line.substr(30) : "";
            if (withEntryAndExit || (text != "...starting" && text != "...exiting"))
                out.push_back(text);
        }
        return out;
    }
};

TEST(StoreLog, TraceOfBuildingAPathOnAnEmptyDocument) {
    Doc doc("");
    StoreLog log(LOG_TRACE);
    ASSERT_TRUE(doc.impl.setOrCreateVector(XString("/a/b/c"), {XString("1")}, {true}));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "Counting: /a/b", "Creating node: /a/b", "Counting: /a",
                               "Creating node: /a", "Creating new root node: a", "Counting: /a",
                               "Counting: /a", "Adding 'b' nodes to: /a", "Counting: /a/b",
                               "Counting: /a/b", "Adding 'c' nodes to: /a/b"}));
}

// The node there takes the value, by the road of making the condition's element beside it
// and removing that as the surplus, with those lines.
TEST(StoreLog, TraceOfATrailingConditionThatSelectsOneNode) {
    Doc doc("<a><b id=\"2\">o</b></a>");
    StoreLog log(LOG_TRACE);
    ASSERT_TRUE(doc.impl.setOrCreateVector(XString("/a/b[@id=\"2\"]"), {XString("x")}, {true}));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"Creating node: /a/b[@id=\"2\"]", "--node is conditional",
                                        "Counting: /a", "Removing nodes from: /a/b"}));
    EXPECT_EQ(doc.text(), "<a><b id=\"2\">x</b></a>");
}

TEST(StoreLog, LinesByLevelAndFunction) {
    Doc doc("<a/>");
    {
        StoreLog log(LOG_TRACE | LOG_ERROR);
        XMLLoaderImpl::logger.setFunctionLevel("evalToContextAndObj", LOG_ERROR, false);
        doc.impl.countNodes(XString("/a"));
        EXPECT_EQ(log.lines(true),
                  (std::vector<std::string>{"...starting", "Counting: /a", "...exiting"}));
    }
    {
        StoreLog log(LOG_ERROR);  // failures only, and no entry or exit lines
        std::vector<XString> values;
        doc.impl.getVector(XString("/a["), values, 0);
        XString parent, node;
        XMLLoaderImpl::splitPath(XString("abc"), parent, node);
        EXPECT_EQ(log.lines(true), (std::vector<std::string>{"Failed to evaluate expression /a[",
                                                             "'/' not found in string: abc"}));
    }
}

TEST(StoreLog, TheLibraryStartsWithTheFirstLoaderAndStopsWithTheLast) {
    StoreLog log(LOG_TRACE);
    { XMLLoader first, second; }
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"First instance, initialising parser",
                                                     "Last instance, cleaning up parser"}));
}

TEST(StoreLog, SilentAtTheDefaultLevelsYetEveryFunctionIsLookedUp) {
    std::ostringstream captured;
    std::streambuf* console = std::cout.rdbuf(captured.rdbuf());
    Doc doc("");
    doc.impl.setOrCreateVector(XString("/a/b[@k=\"1\"]/@v"), {XString("x")}, {true});
    doc.impl.setOrCreateVector(XString("a["), {XString("x")}, {true});
    std::cout.rdbuf(console);
    EXPECT_EQ(captured.str(), "");
    const LoggerImpl* levels = XMLLoaderImpl::logger.getImpl();
    ASSERT_NE(levels, nullptr);
    for (const char* function : {"setOrCreateVector", "createNode", "countNodes",
                                 "evalToContextAndObj", "splitCondition", "splitPath"})
        EXPECT_EQ(levels->functionLevels.count(function), 1u) << function;
}

}  // namespace

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <optional>
#include <regex>
#include <sstream>

#include "trace.h"

// No logger of this binary lives at namespace scope: a test's first logger ends the list.

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// Holds what goes to std::cout while it lives.
class CoutCapture {
  public:
    CoutCapture() : old(std::cout.rdbuf(buffer.rdbuf())) {}
    ~CoutCapture() { std::cout.rdbuf(old); }
    std::string take() {
        std::string text = buffer.str();
        buffer.str("");
        return text;
    }

  private:
    std::ostringstream buffer;
    std::streambuf* old;
};

// Each line behind its time stamp and blank; a line without a valid stamp is marked.
Lines bodies(const std::string& text) {
    static const std::regex stamp(
        R"(\[(0[1-9]|[12]\d|3[01])\.(0[1-9]|1[0-2])\.\d{4} (0[1-9]|1[0-2]):[0-5]\d:[0-5]\d\] )");
    Lines result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::smatch m;
        const bool ok = std::regex_search(line, m, stamp, std::regex_constants::match_continuous);
        result.push_back(ok ? m.suffix().str() : "NO STAMP: " + line);
    }
    return result;
}

unsigned int maskOf(Logger& logger, const std::string& function) {
    return logger.getFunctor<Logger::QId>(function).getMask();
}

TEST(LoggerTree, LookupAndListOrder) {
    Logger* root = Logger::getRootLogger();
    EXPECT_EQ(Logger::getClassLogger("main"), root);
    EXPECT_EQ(root->getParent(), root);
    Logger first("tree.first", nullptr), older("tree.twin", nullptr), younger("tree.twin", nullptr);
    EXPECT_EQ(first.getParent(), root);
    EXPECT_EQ(root->getNext(), &younger);
    EXPECT_EQ(younger.getNext(), &older);
    EXPECT_EQ(Logger::getClassLogger("tree.twin"), &younger);
    EXPECT_EQ(Logger::getClassLogger("tree.first"), &first);
    EXPECT_EQ(Logger::getClassLogger("tree.twi"), root);
    EXPECT_EQ(Logger::getClassLogger("tree.twins"), root);
}

TEST(LoggerTree, StartCoversThisAndOlderLoggersOnce) {
    Logger oldest("start.oldest", nullptr), middle("start.middle", nullptr),
        newest("start.newest", nullptr);
    middle.start();
    EXPECT_TRUE(oldest.started());
    EXPECT_FALSE(newest.started());
    middle.setClassLevel(LOG_DEBUG, false);
    const LoggerImpl* record = middle.getImpl();
    Logger::getRootLogger()->start();
    EXPECT_TRUE(newest.started());
    EXPECT_EQ(middle.getImpl(), record);
    EXPECT_EQ(record->classLevel, 72u);
    EXPECT_EQ(record->name, "start.middle");
}

TEST(LoggerTree, ImplicitStartReachesEveryLoggerAndLateOnes) {
    Logger addressed("implicit.addressed", nullptr), bystander("implicit.bystander", nullptr);
    addressed.setClassLevel(LOG_TRACE, false);
    ASSERT_TRUE(bystander.started());
    EXPECT_EQ(bystander.getImpl()->classLevel, 64u);
    Logger late("implicit.late", nullptr), later("implicit.later", nullptr);
    EXPECT_FALSE(late.started());
    maskOf(late, "f");
    ASSERT_TRUE(later.started());  // the start runs from the root, not from late onwards
    EXPECT_EQ(late.getImpl()->classLevel, 64u);
    EXPECT_EQ(addressed.getImpl()->classLevel, 80u);
}

TEST(LoggerTree, DestroyedLoggerHandsChildrenToGrandparent) {
    // Room for a parent that comes up after one of its children, as statics of one file may.
    alignas(Logger) unsigned char room[sizeof(Logger)];
    Logger* parent = reinterpret_cast<Logger*>(room);
    Logger last("dtor.last", parent);
    ASSERT_EQ(last.getNext(), nullptr);
    Logger grand("dtor.grand", nullptr);
    new (room) Logger("dtor.parent", &grand);
    Logger first("dtor.first", parent);
    parent->start();
    parent->~Logger();
    EXPECT_EQ(first.getParent(), &grand);
    EXPECT_EQ(last.getParent(), &grand);
    EXPECT_EQ(first.getNext(), &grand);
}

TEST(LoggerLevels, SettersAndEffectiveFlags) {
    struct Set {
        const char* function;  // null: the class level
        unsigned int level;
    };
    const struct {
        std::vector<Set> sets;
        unsigned int classLevel, f, g;  // g: a function the setters don't name
    } cases[] = {
        {{}, 64, 64, 64},
        {{{nullptr, LOG_DEBUG}}, 72, 72, 72},
        {{{nullptr, 0}}, 64, 64, 64},
        {{{"f", LOG_DEBUG}}, 64, 0, 64},
        {{{"f", 127}}, 64, 64, 64},
        {{{"f", LOG_ERROR}, {nullptr, LOG_DEBUG}}, 72, 72, 72},
        {{{nullptr, LOG_TRACE}, {"f", 0}}, 80, 0, 80},
    };
    int n = 0;
    for (const auto& c : cases) {
        Logger logger("levels." + std::to_string(++n), nullptr);
        maskOf(logger, "f");  // entries that exist before the setters run
        maskOf(logger, "g");
        for (const Set& set : c.sets) {
            if (set.function) logger.setFunctionLevel(set.function, LOG_LEVEL(set.level), false);
            if (!set.function) logger.setClassLevel(LOG_LEVEL(set.level), false);
        }
        EXPECT_EQ(logger.getImpl()->classLevel, c.classLevel) << "case " << n;
        EXPECT_EQ(maskOf(logger, "f"), c.f) << "case " << n;
        EXPECT_EQ(maskOf(logger, "g"), c.g) << "case " << n;
        EXPECT_EQ(maskOf(logger, "new"), c.classLevel) << "case " << n;
    }
}

TEST(LoggerLevels, RecursiveSettersReachDescendantsOnly) {
    Logger top("rec.top", nullptr), child("rec.child", &top), grandchild("rec.grandchild", &child),
        other("rec.other", nullptr);
    Logger* root = Logger::getRootLogger();
    child.setClassLevel(LOG_TRACE, true);
    EXPECT_EQ(grandchild.getImpl()->classLevel, 80u);
    EXPECT_EQ(top.getImpl()->classLevel, 64u);
    top.setFunctionLevel("f", LOG_ERROR, true);
    for (const Logger* l : {&top, &child, &grandchild})
        EXPECT_EQ(l->getImpl()->functionLevels.at("f"), 2u) << l->getName();
    EXPECT_EQ(other.getImpl()->functionLevels.count("f"), 0u);
    EXPECT_EQ(root->getImpl()->functionLevels.count("f"), 0u);
    root->setClassLevel(LOG_WARNING, true);
    for (const Logger* l : {root, &other, &grandchild})
        EXPECT_EQ(l->getImpl()->classLevel, 68u);
    root->setClassLevel(LOG_LEVEL(0), true);
}

TEST(LoggerLevels, ParentLoopsEndWalksAndLeaveNoDanglingParent) {
    struct Loop {  // each names the other as parent
        Logger a{"loop.a", &b};
        Logger b{"loop.b", &a};
    };
    std::optional<Loop> loop(std::in_place);
    Logger outside("loop.outside", nullptr), child("loop.child", &loop->a);
    outside.setClassLevel(LOG_TRACE, true);
    EXPECT_EQ(loop->a.getImpl()->classLevel, 64u);
    loop.reset();  // b goes first and leaves a as its own parent
    EXPECT_EQ(child.getParent(), Logger::getRootLogger());
}

TEST(LoggerLevels, ParseLogLevel) {
    const std::string code = std::to_string(LOG_LEVEL_CODE);
    const struct {
        std::string text;
        bool accepted;
        unsigned int level;  // 0: left as it was
    } cases[] = {{"0", true, 66},           {"1", true, 70},         {"2", true, 71},
                 {"3", true, 79},           {"4", true, 95},         {"9", true, 95},
                 {"10", false, 66},         {"13", false, 79},       {"100", false, 66},
                 {"abc", true, 66},         {"7x", true, 95},        {"  2", true, 71},
                 {"0x10", true, 66},        {"", false, 0},          {" \t ", false, 0},
                 {"4294967296", false, 95}, {code + "4", true, 127}, {"9" + code + "1", true, 102},
                 {code + "00", false, 66}};
    for (const auto& c : cases) {
        LOG_LEVEL level = LOG_CUSTOM;
        EXPECT_EQ(Logger::parseLogLevel(c.text, level), c.accepted) << '"' << c.text << '"';
        EXPECT_EQ(unsigned{level}, c.level ? c.level : 32u) << '"' << c.text << '"';
    }
}

TEST(LoggerLines, TagsAndEndings) {
    const struct {
        unsigned int level;
        const char* traced;  // the line of trace behind the time stamp, for the text "Saving"
        const char* saved;   // the same from an Sf functor
    } cases[] = {
        {LOG_INFO, "     I| Saving", "     I| Saving successful."},
        {LOG_ERROR, "   ERR| Saving", "   ERR| Saving failed."},
        {LOG_WARNING, "     W| Saving", "     W| Saving failed."},
        {LOG_DEBUG, "     D| Saving", "     D| Saving successful."},
        {LOG_TRACE, "     T| Saving", "     T| Saving successful."},
        {LOG_CUSTOM, "     C| Saving", "     C| Saving successful."},
        {LOG_SEVERE, "SEVERE| Saving", "SEVERE| Saving successful."},
        {LOG_ERROR | LOG_TRACE, "Saving", "Saving successful."},
    };
    Logger logger("lines.tags", nullptr);
    logger.setClassLevel(LOG_LEVEL(127), false);
    CoutCapture out;
    for (const auto& c : cases) {
        logger.trace("t", LOG_LEVEL(c.level), "Saving");
        logger.getFunctor<Logger::Sf>("s")(LOG_LEVEL(c.level), "Saving");
        EXPECT_EQ(bodies(out.take()), (Lines{c.traced, c.saved}));
    }
    logger.trace("t", LOG_ERROR, "");
    logger.getFunctor<Logger::Sf>("s")(LOG_ERROR, "");
    logger.trace("t", LOG_LEVEL(0), "never");
    EXPECT_EQ(bodies(out.take()), (Lines{"   ERR| ", "   ERR|  failed."}));
}

void work(Logger& logger, bool fail) {
    auto log = logger.getFunctor<Logger::Id>("Worker::work(bool) const");
    log(LOG_ERROR, "working");
    if (fail) throw std::runtime_error("failed");
}

TEST(LoggerLines, EntryAndExitLinesFollowTheTraceFlag) {
    const Lines traced{"     T| ...starting", "   ERR| working", "     T| ...exiting"};
    for (const Lines& run : {traced, Lines{"   ERR| working"}}) {
        Logger logger("lines.entry." + std::to_string(run.size()), nullptr);
        logger.setClassLevel(run.size() > 1 ? LOG_LEVEL(LOG_ERROR | LOG_TRACE) : LOG_ERROR, false);
        CoutCapture out;
        work(logger, false);
        EXPECT_THROW(work(logger, true), std::runtime_error);
        Lines twice = run;
        twice.insert(twice.end(), run.begin(), run.end());
        EXPECT_EQ(bodies(out.take()), twice);
        EXPECT_EQ(logger.getImpl()->functionLevels.size(), 1u);
        EXPECT_EQ(logger.getImpl()->functionLevels.count("Worker::work(bool) const"), 1u);
    }
}

TEST(LoggerLines, StripFuncAndReplace) {
    const std::pair<const char*, const char*> stripped[] = {
        {"a::b::c(int)", "b::c"},
        {"XMLLoader::saveFile() const", "saveFile"},
        {"plain", "plain"},
        {"getVector<std::string>", "string>"},
        {"f(a::b)", "b)"},
        {"A::f<int>(x)", "f"},
        {"A::", ""},
        {"", ""}};
    for (const auto& [text, result] : stripped)
        EXPECT_EQ(strip_func(text), result) << text;
    const std::pair<const char*, const char*> replaced[] = {{"no placeholder", "no placeholder"},
                                                            {"%s=%d", "a=1"},
                                                            {"%x%s", "BADFORMAT(x)a"},
                                                            {"%%", "BADFORMAT(%)"},
                                                            {"a%s%", "aaBADFORMAT(X)"},
                                                            {"%d%d%d%d%d%d.", "a1cde."}};
    for (const auto& [format, result] : replaced)
        EXPECT_EQ(Logger::Functor<Logger::Sf>::replace(format, "a", "1", "c", "d", "e"), result)
            << format;
}

// Log files can't be unregistered: each test's files go with its directory, and later lines
// to them fail quietly.
class LoggerOutput : public ::testing::Test {
  protected:
    LoggerOutput() {
        std::string pattern = (fs::temp_directory_path() / "logtest.XXXXXX").string();
        dir = mkdtemp(pattern.data()) ? pattern : "";
    }
    ~LoggerOutput() override {
        Logger::setConsoleLogging(true);
        if (!dir.empty()) fs::remove_all(dir);
    }
    void SetUp() override { ASSERT_FALSE(dir.empty()); }
    std::string path(const char* name) const { return dir + "/" + name; }
    static std::string read(const std::string& path) {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    std::string dir;
    CoutCapture out;
};

TEST_F(LoggerOutput, OneLineEndPerLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"a", "a\n"}, {"a\n", "a\n"}, {"a\n\n", "a\n\n"}, {"\n", "\n\n"}, {"", "\n"}};
    for (const auto& [line, written] : cases) {
        Logger::setLogFile(path("lines.log"), false);
        Logger::output(line);
        EXPECT_EQ(out.take(), written);
        EXPECT_EQ(read(path("lines.log")), written);
    }
}

TEST_F(LoggerOutput, EveryFileGetsEveryLine) {
    Logger::setConsoleLogging(false);
    for (const char* name : {"b.log", "a.log", "missing/c.log", "a.log"})
        Logger::setLogFile(path(name), true);
    Logger::output("one");
    Logger::output("two");
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(read(path("a.log")), "one\ntwo\n");
    EXPECT_EQ(read(path("b.log")), "one\ntwo\n");
    EXPECT_FALSE(fs::exists(path("missing")));
}

TEST_F(LoggerOutput, SetLogFileAppendsOrStartsAfresh) {
    for (bool append : {true, false}) {
        const std::string file = path(append ? "append.log" : "replace.log");
        std::ofstream(file) << "old\n";
        Logger::setLogFile(file, append);
        EXPECT_EQ(fs::exists(file), append);
        Logger::output("new");
        EXPECT_EQ(read(file), append ? "old\nnew\n" : "new\n");
    }
}

}  // namespace

#ifndef XPATH_TRACE_H
#define XPATH_TRACE_H

// Named loggers in a tree, with level flags per class and per function, scoped trace
// functors that mark a function's entry and exit, and console and file output.

#include <map>
#include <set>
#include <string>

// Levels are single-bit flags; a set of levels is their OR. There is no order among them.
enum LOG_LEVEL : unsigned int {
    LOG_INFO = 1,
    LOG_ERROR = 2,
    LOG_WARNING = 4,
    LOG_DEBUG = 8,
    LOG_TRACE = 16,
    LOG_CUSTOM = 32,
    LOG_SEVERE = 64
};

// parseLogLevel adds LOG_CUSTOM to a number whose three digits above the last one read
// this code: "4174" gives the flags of digit 4 plus LOG_CUSTOM, and so does "94174".
const unsigned int LOG_LEVEL_CODE = 417;

// What a logger holds once started.
struct LoggerImpl {
    std::map<std::string, unsigned int> functionLevels;
    unsigned int classLevel;
    std::string name;
};

// Cuts a signature down to a short name: "XMLLoader::saveFile() const" gives "saveFile".
std::string strip_func(std::string text);

class Logger {
public:
    // Kinds of functor. Id marks entry and exit; QId and Sf don't; Sf ends each line with
    // " failed." or " successful.".
    struct Id {
        static const char* entryText() { return "...starting"; }
        static const char* exitText() { return "...exiting"; }
        static const char* ending(LOG_LEVEL) { return ""; }
    };
    struct QId {
        static const char* entryText() { return ""; }
        static const char* exitText() { return ""; }
        static const char* ending(LOG_LEVEL) { return ""; }
    };
    struct Sf {
        static const char* entryText() { return ""; }
        static const char* exitText() { return ""; }
        static const char* ending(LOG_LEVEL level) {
            return level == LOG_ERROR || level == LOG_WARNING ? " failed." : " successful.";
        }
    };

    // A function's trace object: built on entry, destroyed on every way out.
    template <class Kind>
    class Functor {
    public:
        Functor(unsigned int mask, const std::string& function, const std::string& loggerName)
            : mask(mask), function(strip_func(function)), loggerName(loggerName) {
            if (*Kind::entryText()) (*this)(LOG_TRACE, Kind::entryText());
        }
        ~Functor() {
            if (*Kind::exitText()) (*this)(LOG_TRACE, Kind::exitText());
        }
        // Copying would double the entry and exit lines.
        Functor(const Functor&) = delete;
        Functor& operator=(const Functor&) = delete;

        void operator()(LOG_LEVEL level, const std::string& text) const {
            // The test comes first: a line that doesn't pass costs no clock and no string.
            if ((mask & level) == 0) return;
            Logger::writeLine(level, text, Kind::ending(level));
        }
        // True when a line of this level would be written; lets callers skip building text.
        bool passes(LOG_LEVEL level) const { return (mask & level) != 0; }

        static std::string replace(const std::string& format, const std::string& value1,
                                   const std::string& value2, const std::string& value3,
                                   const std::string& value4, const std::string& value5) {
            return Logger::replaceImpl(format, value1, value2, value3, value4, value5);
        }

        unsigned int getMask() const { return mask; }
        const std::string& getFunction() const { return function; }
        const std::string& getLoggerName() const { return loggerName; }

    private:
        unsigned int mask;
        std::string function;
        std::string loggerName;
    };

    // A null parent means the root. Only the parent's address is stored, so it may be a
    // logger that isn't constructed yet.
    Logger(const std::string& name, const Logger* parent);
    virtual ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    static Logger* getRootLogger();
    // The newest logger of that name, the root first; the root if no logger has it.
    static Logger* getClassLogger(const std::string& name);

    bool started() const;
    // Starts this logger and every one behind it in the list.
    void start() const;

    static bool parseLogLevel(const std::string& text, LOG_LEVEL& level);
    void setClassLevel(LOG_LEVEL level, bool recursive) const;
    void setFunctionLevel(const std::string& function, LOG_LEVEL level, bool recursive) const;

    template <class Kind>
    Functor<Kind> getFunctor(const std::string& function) {
        unsigned int mask = effectiveFlags(function);  // starts the loggers if need be
        return Functor<Kind>(mask, function, impl->name);
    }
    void trace(const std::string& function, LOG_LEVEL level, const std::string& text);

    static void output(std::string line);
    static void setConsoleLogging(bool on);
    static void setLogFile(const std::string& path, bool append);

    static void hexSignal(unsigned int code, const std::string& text);
    static void decSignal(unsigned int number, const std::string& text);

    const std::string& getName() const { return name; }
    const Logger* getParent() const { return parent; }
    const Logger* getNext() const { return next; }
    // The record of a started logger, null before; for programs that inspect levels.
    const LoggerImpl* getImpl() const { return impl; }

    static Logger _main;

private:
    template <class Kind>
    friend class Functor;

    unsigned int effectiveFlags(const std::string& function) const;
    bool isDescendantOf(const Logger* ancestor) const;
    static void writeLine(LOG_LEVEL level, const std::string& text, const char* ending);
    static std::string replaceImpl(const std::string& format, const std::string& value1,
                                   const std::string& value2, const std::string& value3,
                                   const std::string& value4, const std::string& value5);

    mutable LoggerImpl* impl;
    const Logger* parent;
    std::string name;
    Logger* next;

    static unsigned long long instancecount;
    static bool _clogging;
    static std::set<std::string> log_files;
};

#endif

// Uses the logger as a library: a class logger with raised levels, writing to a log file only.
// Usage: log_demo <log file>

#include <iostream>
#include <string>

#include <xpath/trace.h>

namespace {

Logger demoLogger("Demo", nullptr);

int square(int x) {
    auto log = demoLogger.getFunctor<Logger::Id>("Demo::square(int)");  // entry and exit lines
    log(LOG_DEBUG, "Squaring " + std::to_string(x));
    return x * x;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: log_demo <log file>\n";
        return 1;
    }
    LOG_LEVEL level = LOG_SEVERE;
    Logger::parseLogLevel("4", level);  // 4 lets everything up to trace lines through
    demoLogger.setClassLevel(level, false);
    Logger::setConsoleLogging(false);
    Logger::setLogFile(argv[1], false);  // starts the file afresh

    const int result = square(7);
    demoLogger.trace("main", LOG_INFO, "Result: " + std::to_string(result));
    return 0;
}

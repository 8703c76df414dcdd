#include "trace.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

const char* tagOf(LOG_LEVEL level) {
    switch (level) {
        case LOG_INFO:
            return "     I| ";
        case LOG_ERROR:
            return "   ERR| ";
        case LOG_WARNING:
            return "     W| ";
        case LOG_DEBUG:
            return "     D| ";
        case LOG_TRACE:
            return "     T| ";
        case LOG_CUSTOM:
            return "     C| ";
        case LOG_SEVERE:
            return "SEVERE| ";
    }
    return "";  // several flags at once carry no tag
}

// Flags that a level number's last digit selects; each digit adds one to those below it.
unsigned int flagsOfDigit(unsigned int digit) {
    const unsigned int added[] = {LOG_SEVERE | LOG_ERROR, LOG_WARNING, LOG_INFO, LOG_DEBUG,
                                  LOG_TRACE};
    unsigned int flags = 0;
    for (unsigned int i = 0; i <= std::min(digit, 4u); ++i)
        flags |= added[i];
    return flags;
}

}  // namespace

// Defined before log_files, so that the root is destroyed after it at exit.
Logger Logger::_main("main", nullptr);
unsigned long long Logger::instancecount = 0;
bool Logger::_clogging = true;
std::set<std::string> Logger::log_files;

// --- The tree and the list ---

// Statics of other files may come up before the root and go after it, and still use its list
// links: the sanitizer's vtable check would take that for a use outside the root's lifetime.
#define ROOT_MAY_BE_OUT_OF_LIFETIME __attribute__((no_sanitize("vptr")))

ROOT_MAY_BE_OUT_OF_LIFETIME Logger::Logger(const std::string& name, const Logger* parent)
    : impl(nullptr), parent(parent ? parent : &_main), name(name) {
    // next isn't initialised above: the root must keep what loggers built before it linked in.
    if (instancecount++ == 0) next = nullptr;
    if (this != &_main) {
        next = _main.next;
        _main.next = this;
    }
}

ROOT_MAY_BE_OUT_OF_LIFETIME Logger::~Logger() {
    delete impl;
    impl = nullptr;
    // The root keeps next and parent: loggers destroyed after it still walk the list from it.
    if (this == &_main) return;
    // A logger that is its own parent hands its children to the root, not to itself.
    const Logger* heir = parent == this ? &_main : parent;
    for (Logger* l = &_main; l; l = l->next) {
        if (l->next == this) l->next = next;
        if (l->parent == this) l->parent = heir;
    }
}

Logger* Logger::getRootLogger() {
    return &_main;
}

Logger* Logger::getClassLogger(const std::string& name) {
    for (Logger* l = &_main; l; l = l->next)
        if (l->name == name) return l;
    return &_main;
}

bool Logger::started() const {
    return impl != nullptr;
}

void Logger::start() const {
    for (const Logger* l = this; l; l = l->next)
        if (!l->impl) l->impl = new LoggerImpl{{}, LOG_SEVERE, l->name};
}

bool Logger::isDescendantOf(const Logger* ancestor) const {
    if (this == ancestor) return false;
    // Parents given by address can form a loop; no chain is longer than the loggers ever built.
    unsigned long long hops = instancecount;
    for (const Logger* p = parent; p && hops > 0; p = p->parent, --hops) {
        if (p == ancestor) return true;
        if (p == &_main) return false;
    }
    return false;
}

// --- Levels ---

unsigned int Logger::effectiveFlags(const std::string& function) const {
    if (!started()) _main.start();
    const auto entry = impl->functionLevels.try_emplace(function, impl->classLevel).first;
    return impl->classLevel & entry->second;
}

void Logger::setClassLevel(LOG_LEVEL level, bool recursive) const {
    if (!started()) _main.start();
    const unsigned int flags = level | LOG_SEVERE;
    impl->classLevel = flags;
    for (auto& entry : impl->functionLevels)
        entry.second = flags;
    if (!recursive) return;
    for (const Logger* l = &_main; l; l = l->next)
        if (l->isDescendantOf(this)) l->setClassLevel(level, false);
}

void Logger::setFunctionLevel(const std::string& function, LOG_LEVEL level, bool recursive) const {
    if (!started()) _main.start();
    impl->functionLevels[function] = level;
    if (!recursive) return;
    for (const Logger* l = &_main; l; l = l->next)
        if (l->isDescendantOf(this)) l->setFunctionLevel(function, level, false);
}

bool Logger::parseLogLevel(const std::string& text, LOG_LEVEL& level) {
    std::istringstream in(text);
    if ((in >> std::ws).eof()) return false;  // nothing to read: level stays as it was
    // The stream's state is ignored on purpose: no digits read as 0, overflow as the maximum.
    std::uint32_t number = 0;
    in >> number;
    unsigned int flags = flagsOfDigit(number % 10);
    const bool coded = number / 10 % 1000 == LOG_LEVEL_CODE;
    if (coded) flags |= LOG_CUSTOM;
    level = static_cast<LOG_LEVEL>(flags);
    return coded || number <= 9;
}

// --- Lines ---

void Logger::trace(const std::string& function, LOG_LEVEL level, const std::string& text) {
    const unsigned int mask = effectiveFlags(function);  // starts the loggers if need be
    const Functor<QId> functor(mask, function, impl->name);
    functor(level, text);
}

void Logger::writeLine(LOG_LEVEL level, const std::string& text, const char* ending) {
    char stamp[80];
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    const std::size_t stampLength =
        local ? std::strftime(stamp, sizeof stamp, "[%d.%m.%Y %I:%M:%S]", local) : 0;
    const char* tag = tagOf(level);

    std::string line;
    line.reserve(stampLength + 9 + text.size() + 12);  // blank, tag and the longest ending
    line.append(stamp, stampLength).append(1, ' ').append(tag).append(text).append(ending);
    output(std::move(line));
}

std::string strip_func(std::string text) {
    const std::size_t colons = text.find("::");
    const std::size_t begin = colons == std::string::npos ? 0 : colons + 2;
    std::size_t end = std::min(text.find('('), text.find('<'));
    if (end == std::string::npos || end < begin) end = text.size();
    return text.substr(begin, end - begin);
}

std::string Logger::replaceImpl(const std::string& format, const std::string& value1,
                                const std::string& value2, const std::string& value3,
                                const std::string& value4, const std::string& value5) {
    const std::string* values[] = {&value1, &value2, &value3, &value4, &value5};
    std::size_t used = 0;
    std::string result;
    std::size_t pos = 0;
    for (;;) {
        const std::size_t percent = format.find('%', pos);
        if (percent == std::string::npos) return result.append(format, pos);
        result.append(format, pos, percent - pos);
        if (percent + 1 == format.size()) return result.append("BADFORMAT(X)");
        const char kind = format[percent + 1];
        if (kind == 'd' || kind == 's') {
            if (used < 5) result.append(*values[used++]);  // a sixth placeholder vanishes
        } else {
            result.append("BADFORMAT(").append(1, kind).append(1, ')');
        }
        pos = percent + 2;
    }
}

void Logger::hexSignal(unsigned int, const std::string&) {}

void Logger::decSignal(unsigned int number, const std::string& text) {
    // Decimal digits as hex digits: 1234 becomes 0x1234; only the eight lowest fit.
    unsigned int code = 0;
    for (unsigned int shift = 0; number != 0 && shift < 32; shift += 4, number /= 10)
        code |= (number % 10) << shift;
    hexSignal(code, text);
}

// --- Output ---

void Logger::output(std::string line) {
    if (line.size() >= 2 && line.back() == '\n') line.pop_back();
    if (_clogging) std::cout << line << std::endl;
    for (const std::string& path : log_files) {
        // Opened anew per line, so a log file removed meanwhile comes back; failures are skipped.
        std::ofstream file(path, std::ios::out | std::ios::app);
        if (file.is_open()) file << line << std::endl;
    }
}

void Logger::setConsoleLogging(bool on) {
    _clogging = on;
}

void Logger::setLogFile(const std::string& path, bool append) {
    if (!append) ::unlink(path.c_str());  // a missing file is no error
    log_files.insert(path);
}

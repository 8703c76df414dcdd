#include "holding.h"

#include <libxml/globals.h>
#include <libxml/xmlerror.h>

#include <cerrno>

namespace xpath_store {

// ---------------------------------------------------------------- held bytes

Held::~Held() {
    if (file) std::fclose(file);
}

void Held::spill() {
    if (error == 0 && file == nullptr && (file = std::tmpfile()) == nullptr) error = errno ? errno : EIO;
    if (error == 0 && std::fwrite(memory.data(), 1, memory.size(), file) != memory.size())
        error = errno ? errno : EIO;
    memory.clear();
}

// Hands put each block of the bytes in order; false when put or the file fails.
template <class Put>
bool Held::each(Put put) {
    if (error) return false;
    if (file) {
        if (std::fflush(file) != 0 || std::fseek(file, 0, SEEK_SET) != 0) {
            error = errno ? errno : EIO;
            return false;
        }
        char block[1 << 16];
        for (std::size_t n; (n = std::fread(block, 1, sizeof block, file)) > 0;)
            if (!put(block, n)) return false;
        if (std::ferror(file) || std::fseek(file, 0, SEEK_END) != 0) {
            error = errno ? errno : EIO;
            return false;
        }
    }
    return memory.empty() || put(memory.data(), memory.size());
}

void Held::take(Held& other) {
    if (!other.each([this](const char* bytes, std::size_t n) {
            add(bytes, n);
            return true;
        }) &&
        error == 0)
        error = other.error;
    other.clear();
}

bool Held::writeTo(std::FILE* out) {
    return each([out](const char* bytes, std::size_t n) {
        if (std::fwrite(bytes, 1, n, out) == n) return true;
        if (errno == 0) errno = EIO;
        return false;
    });
}

void Held::clear() {
    memory.clear();
    memory.shrink_to_fit();
    if (file) std::fclose(file);
    file = nullptr;
}

// ---------------------------------------------------------------- held diagnostics

namespace {

ssize_t intoHeld(void* held, const char* bytes, std::size_t n) {
    static_cast<Held*>(held)->add(bytes, n);
    return static_cast<ssize_t>(n);
}

}  // namespace

HeldDiagnostics::HeldDiagnostics() {
    const xmlGenericErrorFunc theirs = xmlGenericError;
    before = xmlGenericErrorContext;
    xmlSetGenericErrorFunc(before, nullptr);  // the library's own handler, to compare with
    if (theirs != xmlGenericError || xmlStructuredError != nullptr) {
        xmlSetGenericErrorFunc(before, theirs);
        return;
    }
    into = fopencookie(&held, "w", cookie_io_functions_t{nullptr, intoHeld, nullptr, nullptr});
    if (into) xmlSetGenericErrorFunc(into, nullptr);
}

void HeldDiagnostics::stop() {
    if (into == nullptr) return;
    xmlSetGenericErrorFunc(before, nullptr);
    std::fclose(into);  // flushes the last of them into held
    into = nullptr;
}

void HeldDiagnostics::release() {
    stop();
    // The library's handler prints to its context, standard error while none is set.
    held.writeTo(before ? static_cast<std::FILE*>(before) : stderr);
    held.clear();
}

void HeldDiagnostics::discard() {
    stop();
    held.clear();
}

// ---------------------------------------------------------------- values in order

Decision::State Output::state(const Waits& waits) {
    Decision::State all = Decision::kept;
    for (const Wait& w : waits) {
        if (w->state == Decision::dropped) return Decision::dropped;
        if (w->state == Decision::open) all = Decision::open;
    }
    return all;
}

Output::Id Output::open(const Waits& waits) {
    const Id id = first + queue.size();
    const bool direct = queue.empty() && state(waits) == Decision::kept;
    queue.emplace_back(waits);
    queue.back().direct = direct;  // the first in line and kept: straight to done
    return id;
}

void Output::close(Id id) {
    add(id, '\n');
    queue[id - first].closed = true;
    if (id == first) pump();
}

void Output::value(const Waits& waits, const char* bytes, std::size_t n) {
    if (queue.empty() && state(waits) == Decision::kept) {
        done.add(bytes, n);
        done.add('\n');
        return;
    }
    const Id id = open(waits);
    add(id, bytes, n);
    close(id);
}

void Output::pump() {
    while (!queue.empty()) {
        Slot& s = queue.front();
        const Decision::State st = state(s.waits);
        if (st == Decision::open) return;
        if (st == Decision::kept && !s.direct) {
            done.take(s.bytes);
            s.direct = true;
        }
        if (!s.closed) return;
        if (!s.bytes.ok() && error == 0) error = s.bytes.failure();
        queue.pop_front();
        ++first;
    }
}

bool Output::ok() const {
    return error == 0 && done.ok();
}

int Output::failure() const {
    return error ? error : done.failure();
}

}  // namespace xpath_store

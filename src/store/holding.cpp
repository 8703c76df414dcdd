#include "holding.h"

#include <libxml/globals.h>
#include <libxml/xmlerror.h>

#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>

namespace xpath_store {

// ---------------------------------------------------------------- held bytes

Held::~Held() {
    if (file) std::fclose(file);
}

// Room for n more bytes: a larger buffer while under the bound, else the file takes what the
// buffer holds (and bytes that would not fit it at all).
void Held::make(const char* bytes, std::size_t n) {
    if (used + n <= bound) {
        std::size_t grown = capacity ? capacity : 256;
        while (grown < used + n)
            grown *= 2;
        grown = grown < bound ? grown : bound;
        std::unique_ptr<char[]> larger(new char[grown]);
        if (used) std::memcpy(larger.get(), memory.get(), used);
        memory = std::move(larger);
        capacity = grown;
    } else {
        spill();
        if (n > capacity - used) return write(bytes, n);
    }
    std::memcpy(memory.get() + used, bytes, n);
    used += n;
}

void Held::spill() {
    write(memory.get(), used);
    used = 0;
}

void Held::write(const char* bytes, std::size_t n) {
    if (error == 0 && file == nullptr && (file = std::tmpfile()) == nullptr)
        error = errno ? errno : EIO;
    if (error == 0 && n && std::fwrite(bytes, 1, n, file) != n) error = errno ? errno : EIO;
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
    return used == 0 || put(memory.get(), used);
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
    auto write = [out](const char* bytes, std::size_t n) {
        if (std::fwrite(bytes, 1, n, out) == n) return true;
        if (errno == 0) errno = EIO;
        return false;
    };
    const int sent = file && error == 0 ? send(out) : 0;
    if (sent < 0) return false;
    if (sent == 0) return each(write);
    return used == 0 || write(memory.get(), used);
}

// The temporary file's bytes to out, copied by the kernel: 1 when done, 0 when out can't take
// them this way (nothing sent), -1 when a write failed (errno says why).
int Held::send(std::FILE* out) {
    const int from = fileno(file), to = fileno(out);
    if (std::fflush(file) != 0) return error = errno, -1;
    const off_t size = lseek(from, 0, SEEK_END);
    if (to < 0 || size < 0) return 0;
    if (std::fflush(out) != 0) return -1;
    for (off_t at = 0; at < size;) {
        const ssize_t n = sendfile(to, from, &at, static_cast<std::size_t>(size - at));
        if (n > 0 || (n < 0 && errno == EINTR)) continue;
        if (n < 0 && at == 0 && (errno == EINVAL || errno == ENOSYS)) return 0;
        if (n == 0) errno = EIO;
        return -1;
    }
    return 1;
}

void Held::clear() {
    memory.reset();
    used = capacity = 0;
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

Decision::State Ordered::state(const Waits& waits) {
    Decision::State all = Decision::kept;
    for (const Wait& w : waits) {
        if (w->state == Decision::dropped) return Decision::dropped;
        if (w->state == Decision::open) all = Decision::open;
    }
    return all;
}

// A value that waits, or comes behind one: held in its slot until its turn. One whose turn has
// come and which is kept from the start goes straight to done.
Ordered::Id Ordered::enqueue(const Waits& waits) {
    if (!directOpen && queue.empty() && state(waits) == Decision::kept) {
        directOpen = true;
        return direct;
    }
    queue.emplace_back(waits);
    return first + queue.size() - 1;
}

// What started after a value lies inside it and has closed before it: neighbours that are
// closed and wait alike become one, so the queue stays as short as the nesting is deep.
void Ordered::closeQueued(Id id) {
    add(id, '\n');
    queue[id - first].closed = true;
    while (queue.size() > 1) {
        Slot& last = queue.back();
        Slot& before = queue[queue.size() - 2];
        if (!last.closed || !before.closed || before.direct || before.waits != last.waits) break;
        before.bytes.take(last.bytes);
        queue.pop_back();
    }
    if (id == first) pump();
}

void Ordered::pump() {
    while (!directOpen && !queue.empty()) {
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

bool Ordered::ok() const {
    return error == 0 && done.ok();
}

int Ordered::failure() const {
    return error ? error : done.failure();
}

}  // namespace xpath_store

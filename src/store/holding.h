#ifndef XPATH_STORE_HOLDING_H
#define XPATH_STORE_HOLDING_H

// What a streamed read keeps back until the document has parsed whole: the values, in
// document order, and libxml2's diagnostics. Internal: not installed.

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace xpath_store {

// Bytes kept in memory up to a bound, then in an unnamed temporary file.
class Held {
  public:
    explicit Held(std::size_t bound) : bound(bound) {}
    ~Held();
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    void add(const char* bytes, std::size_t n) {
        if (n == 0) return;
        if (n > capacity - used) return make(bytes, n);
        std::memcpy(memory.get() + used, bytes, n);
        used += n;
    }
    void add(char c) {
        if (capacity == used) return make(&c, 1);
        memory[used++] = c;
    }
    // Moves all of other's bytes behind these.
    void take(Held& other);
    // Writes them all to out, in order; false, with errno, when a write fails.
    bool writeTo(std::FILE* out);
    void clear();
    // False once the temporary file failed; errno was set then.
    bool ok() const { return error == 0; }
    int failure() const { return error; }

  private:
    void make(const char* bytes, std::size_t n);
    void spill();
    void write(const char* bytes, std::size_t n);
    int send(std::FILE* out);
    template <class Put>
    bool each(Put put);

    std::unique_ptr<char[]> memory;  // all the bytes, or those not yet in file
    std::size_t used = 0, capacity = 0;
    std::FILE* file = nullptr;
    std::size_t bound;
    int error = 0;
};

// libxml2's diagnostics while one read runs: its own handler goes on formatting them, into a
// stream of ours, so they are exactly what it would have printed where it prints.
class HeldDiagnostics {
  public:
    HeldDiagnostics();
    ~HeldDiagnostics() { stop(); }
    HeldDiagnostics(const HeldDiagnostics&) = delete;
    HeldDiagnostics& operator=(const HeldDiagnostics&) = delete;

    // False when a handler of the caller's own is installed: then nothing is held.
    bool holding() const { return into != nullptr; }
    // Prints what was held where the library would have printed it.
    void release();
    // Forgets it: the tree's read will print the same again.
    void discard();

  private:
    void stop();

    Held held{1 << 20};
    std::FILE* into = nullptr;
    void* before = nullptr;
};

// Whether a value is kept, for a value that waits for an element's end or its parent's.
struct Decision {
    enum State : char { open, kept, dropped } state = open;
};
using Wait = std::shared_ptr<Decision>;
using Waits = std::vector<Wait>;

// The values of a read in document order. A value opens where its node starts and closes
// where it ends, so the value of an element holding another comes out first; a value that
// waits for decisions is held until they are taken, then kept or dropped.
class Ordered {
  public:
    explicit Ordered(Held& done) : done(done) {}

    using Id = std::size_t;
    static constexpr Id none = ~Id(0);  // no value: for those who keep an Id or none
    Id open(const Waits& waits) {
        if (!directOpen && queue.empty() && waits.empty()) {
            directOpen = true;
            return direct;
        }
        return enqueue(waits);
    }
    void add(Id id, const char* bytes, std::size_t n) {
        if (id == direct)
            done.add(bytes, n);
        else if (Slot* s = live(id))
            s->direct ? done.add(bytes, n) : s->bytes.add(bytes, n);
    }
    void add(Id id, char c) {
        if (id == direct)
            done.add(c);
        else if (Slot* s = live(id))
            s->direct ? done.add(c) : s->bytes.add(c);
    }
    // Ends the value with its newline.
    void close(Id id) {
        if (id != direct) return closeQueued(id);
        done.add('\n');
        directOpen = false;
        if (!queue.empty()) pump();
    }
    // A value whole at once.
    void value(const Waits& waits, const char* bytes, std::size_t n) {
        if (!directOpen && queue.empty() && waits.empty()) {
            done.add(bytes, n);
            done.add('\n');
            return;
        }
        const Id id = enqueue(waits);
        add(id, bytes, n);
        close(id);
    }
    // Moves on what a decision just taken lets go.
    void decided() { pump(); }
    bool ok() const;
    int failure() const;

  private:
    struct Slot {
        explicit Slot(const Waits& w) : waits(w) {}
        Held bytes{1 << 16};
        Waits waits;
        bool closed = false, direct = false;
    };
    static Decision::State state(const Waits& waits);
    Slot* live(Id id) {
        Slot& s = queue[id - first];
        return s.waits.empty() || state(s.waits) != Decision::dropped ? &s : nullptr;
    }
    Id enqueue(const Waits& waits);
    void closeQueued(Id id);
    void pump();

    // The Id of a value first in line and kept from the start: it goes straight to done, with
    // no slot in the queue, as most values do.
    static constexpr Id direct = none - 1;

    Held& done;
    bool directOpen = false;
    std::deque<Slot> queue;
    Id first = 0;  // the Id of queue.front()
    int error = 0;
};

}  // namespace xpath_store

#endif

#ifndef XPATH_STORE_FILES_H
#define XPATH_STORE_FILES_H

// What the lock and the save need of the file system: names, descriptors, whole writes, and
// the signals that end a run held back or made to clean up first. Internal: not installed.

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace xpath_store {

// One open descriptor, closed when it goes.
// Whether the first bytes of a file are those of xz-compressed content.
inline bool xzMagic(const unsigned char* head, std::size_t size) {
    return size >= 6 && std::memcmp(head, "\xfd" "7zXZ\0", 6) == 0;
}

class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    operator int() const { return fd; }
    explicit operator bool() const { return fd >= 0; }
    void reset(int to = -1);
    // Hands the descriptor over, no longer closed here.
    int release() {
        const int was = fd;
        fd = -1;
        return was;
    }
    // Closes it now; false when closing reports an error (a write that didn't make it).
    bool close();

  private:
    int fd;
};

// The name a file goes by once the symbolic links of its last part are followed: the file
// itself, or what a dangling link would make. Empty for a loop of links.
std::string finalPath(const std::string& file);
// The directory a path's last part is in ("." for a bare name), and that last part.
std::string directoryOf(const std::string& path);
std::string lastPartOf(const std::string& path);

// Writes all bytes at offset at, or in order from where the file stands for at < 0.
bool writeAll(int fd, const char* bytes, std::size_t size, off_t at);

// The polite signals that end a run (interrupt, terminate, hang-up, broken pipe) wait while
// one of these lives, and arrive when it goes.
class SignalsHeld {
  public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before;
};

// While one lives, those signals first remove the named file in dir, then end the run (or do
// whatever they did before) as they would have. One at a time.
class RemovedOnSignal {
  public:
    RemovedOnSignal(int dir, const std::string& name);
    ~RemovedOnSignal() { end(); }
    RemovedOnSignal(const RemovedOnSignal&) = delete;
    RemovedOnSignal& operator=(const RemovedOnSignal&) = delete;
    // The signals go back to what they did before; call it with them held.
    void end();
};

}  // namespace xpath_store

#endif

#include "locking.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace xpath_store {

namespace {

constexpr int patience = 30;  // seconds

double now() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

}  // namespace

bool WriterLock::take(const std::string& file) {
    const double deadline = now() + patience;
    long pause = 100000;  // nanoseconds, doubled up to 10 ms between tries
    do {
        struct stat named, locked, again;
        const bool exists = stat(file.c_str(), &named) == 0;
        if ((!exists && errno != ENOENT) || (exists && !S_ISREG(named.st_mode))) return true;
        Descriptor held(exists ? open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                               : open(directoryOf(finalPath(file)).c_str(),
                                      O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!held && !(exists && errno == ENOENT)) return true;  // gone since: look again
        bool mine = held && flock(held, LOCK_EX | LOCK_NB) == 0;
        if (held && !mine && errno != EWOULDBLOCK && errno != EINTR) return true;  // no locks here
        if (!mine) {
            struct timespec wait = {0, pause};
            nanosleep(&wait, nullptr);
            pause = std::min(pause * 2, 10000000L);
            continue;
        }
        // A writer before may have replaced the file or made it: the lock must be on what the
        // name leads to now.
        if (exists ? fstat(held, &locked) == 0 && stat(file.c_str(), &again) == 0 &&
                         locked.st_dev == again.st_dev && locked.st_ino == again.st_ino
                   : stat(file.c_str(), &again) != 0 && errno == ENOENT) {
            fd.reset(held.release());
            return true;
        }
    } while (now() < deadline);
    return false;
}

}  // namespace xpath_store

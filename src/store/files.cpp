#include "files.h"

#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace xpath_store {

namespace {

const int politeSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
constexpr int politeCount = sizeof politeSignals / sizeof politeSignals[0];

sigset_t polite() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : politeSignals)
        sigaddset(&set, signal);
    return set;
}

// What a signal handler may touch: the file to remove, and what each signal did before.
int removedDir = -1;
char removedName[NAME_MAX + 1];
struct sigaction previous[politeCount];
volatile sig_atomic_t armed[politeCount];

void removeThenResend(int signal) {
    const int saved = errno;
    if (removedName[0] != '\0') unlinkat(removedDir, removedName, 0);
    for (int i = 0; i < politeCount; ++i)
        if (politeSignals[i] == signal && armed[i]) {
            sigaction(signal, &previous[i], nullptr);
            armed[i] = 0;
        }
    raise(signal);  // held while this runs: it arrives the old way once this returns
    errno = saved;
}

}  // namespace

void Descriptor::reset(int to) {
    if (fd >= 0) ::close(fd);
    fd = to;
}

bool Descriptor::close() {
    const int was = fd;
    fd = -1;
    return was < 0 || ::close(was) == 0;
}

std::string finalPath(const std::string& file) {
    std::string path = file;
    for (int hops = 0; hops < 40; ++hops) {
        char target[PATH_MAX];
        const ssize_t n = readlink(path.c_str(), target, sizeof target);
        if (n < 0) return path;  // not a link, or nothing there
        if (n == static_cast<ssize_t>(sizeof target)) return "";
        std::string next(target, static_cast<std::size_t>(n));
        const std::size_t slash = path.rfind('/');
        if (next[0] != '/' && slash != std::string::npos) next = path.substr(0, slash + 1) + next;
        path = next;
    }
    return "";
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lastPartOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool writeAll(int fd, const char* bytes, std::size_t size, off_t at) {
    while (size > 0) {
        ssize_t written = at < 0 ? write(fd, bytes, size) : pwrite(fd, bytes, size, at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
        if (at >= 0) at += written;
    }
    return true;
}

SignalsHeld::SignalsHeld() {
    const sigset_t set = polite();
    pthread_sigmask(SIG_BLOCK, &set, &before);
}

SignalsHeld::~SignalsHeld() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

RemovedOnSignal::RemovedOnSignal(int dir, const std::string& name) {
    removedDir = dir;
    std::strncpy(removedName, name.c_str(), NAME_MAX);
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = removeThenResend;
    action.sa_flags = SA_RESTART;
    action.sa_mask = polite();
    for (int i = 0; i < politeCount; ++i) {
        // A signal that is ignored stays ignored: it ends nothing.
        armed[i] = sigaction(politeSignals[i], nullptr, &previous[i]) == 0 &&
                   previous[i].sa_handler != SIG_IGN &&
                   sigaction(politeSignals[i], &action, nullptr) == 0;
    }
}

void RemovedOnSignal::end() {
    for (int i = 0; i < politeCount; ++i)
        if (armed[i]) {
            sigaction(politeSignals[i], &previous[i], nullptr);
            armed[i] = 0;
        }
    removedName[0] = '\0';
}

}  // namespace xpath_store

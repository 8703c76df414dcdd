// Preloaded into the tool: XPATH_FAIL=<function>:<n>:<error name> makes the nth call of that
// libc function fail with that error, and no other call; with -n, every call from the nth.
#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool failing(const char* function) {
    static char chosen[32], error[16];
    static long nth = 0, calls = 0;
    static const char* text = std::getenv("XPATH_FAIL");
    static const bool set = text && std::sscanf(text, "%31[^:]:%ld:%15s", chosen, &nth, error) == 3;
    if (!set || std::strcmp(chosen, function) != 0 || (nth > 0 ? ++calls != nth : ++calls < -nth))
        return false;
    for (int code = 1; code < 256; ++code)  // the error of that name
        if (strerrorname_np(code) && std::strcmp(strerrorname_np(code), error) == 0) errno = code;
    return true;
}

}  // namespace

#define FAILING(type, function, parameters, arguments)                         \
    extern "C" type function parameters {                                      \
        static const auto real =                                               \
            reinterpret_cast<type(*) parameters>(dlsym(RTLD_NEXT, #function)); \
        return failing(#function) ? -1 : real arguments;                       \
    }
FAILING(int, fsync, (int fd), (fd))
FAILING(int, fchown, (int fd, uid_t u, gid_t g), (fd, u, g))
FAILING(int, fchmod, (int fd, mode_t m), (fd, m))
FAILING(int, fallocate, (int fd, int m, off_t at, off_t n), (fd, m, at, n))
FAILING(int, linkat, (int a, const char* p, int b, const char* q, int f), (a, p, b, q, f))
FAILING(int, renameat, (int a, const char* p, int b, const char* q), (a, p, b, q))
FAILING(int, flock, (int fd, int op), (fd, op))
FAILING(int, close, (int fd), (fd))
FAILING(ssize_t, read, (int fd, void* b, size_t n), (fd, b, n))
FAILING(ssize_t, write, (int fd, const void* b, size_t n), (fd, b, n))
FAILING(ssize_t, pwrite, (int fd, const void* b, size_t n, off_t at), (fd, b, n, at))

// The calls that open take a mode only when they make a file; both open by the real openat.
int opened(const char* function, int dir, const char* path, int flags, va_list rest) {
    static const auto real =
        reinterpret_cast<int (*)(int, const char*, int, ...)>(dlsym(RTLD_NEXT, "openat"));
    const bool making = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = making ? va_arg(rest, mode_t) : 0;
    return failing(function) ? -1 : real(dir, path, flags, mode);
}
#define OPENING(function, parameters, dir)                        \
    extern "C" int function parameters {                          \
        va_list rest;                                             \
        va_start(rest, flags);                                    \
        const int fd = opened(#function, dir, path, flags, rest); \
        va_end(rest);                                             \
        return fd;                                                \
    }
OPENING(open, (const char* path, int flags, ...), AT_FDCWD)
OPENING(openat, (int dir, const char* path, int flags, ...), dir)

// Preloaded into the tool: a file system without unnamed files (O_TMPFILE), as some are.
#include <dlfcn.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdarg>

extern "C" int openat(int dir, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    using Open = int (*)(int, const char*, int, ...);
    static const Open real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "openat"));
    return real(dir, path, flags, mode);
}

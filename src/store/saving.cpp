// Saving: a new file written whole, synced and swapped in; or else, where a swap would lose
// what the old file had, the whole text first, then the space for it, and only then the old
// bytes, with the signals that end a run held back meanwhile.

#include "saving.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "files.h"
#include "output.h"

namespace xpath_store {

namespace {

// The file a save replaces or makes: where the name's links lead, and what is there now.
struct Target {
    struct stat info {};
    std::string path, dir, base;
    bool exists;

    explicit Target(const std::string& file)
        : path(finalPath(file)), exists(stat(file.c_str(), &info) == 0) {
        struct stat there;
        // A name whose links lead nowhere that can be replaced is written through, in place.
        if (exists && (stat(path.c_str(), &there) != 0 || there.st_dev != info.st_dev ||
                       there.st_ino != info.st_ino))
            path.clear();
        dir = directoryOf(path);
        base = lastPartOf(path);
    }
};

// Whether the file holds xz-compressed bytes (its magic number).
bool isXz(const std::string& file) {
    unsigned char head[6];
    Descriptor fd(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return fd && read(fd, head, sizeof head) == static_cast<ssize_t>(sizeof head) &&
           xzMagic(head, sizeof head);
}

// A hidden name beside the file, free at the time it was drawn.
std::string hiddenName(const std::string& base) {
    static const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    unsigned char random[6];
    if (getrandom(random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
        struct timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        for (unsigned i = 0; i < sizeof random; ++i)
            random[i] = static_cast<unsigned char>((now.tv_nsec >> (5 * i)) ^ getpid());
    }
    std::string name = "." + base + ".";
    for (unsigned char r : random)
        name += letters[r % (sizeof letters - 1)];
    return name;
}

// Gives an unnamed file a hidden name in dir: through /proc as any user may, else by its
// descriptor, which needs privilege. Empty when neither works.
std::string linkUnnamed(int fd, int dir, const std::string& base) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    for (int tries = 0; tries < 100; ++tries) {
        std::string name = hiddenName(base);
        if (linkat(AT_FDCWD, self.c_str(), dir, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ||
            linkat(fd, "", dir, name.c_str(), AT_EMPTY_PATH) == 0)
            return name;
        if (errno != EEXIST) break;
    }
    return "";
}

// The mode of a file made new: what the process's umask lets through.
mode_t newFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Makes sure that size bytes fit in the file before any of its bytes change: within the
// process's file size limit, and with the blocks allocated. Where the file system can't
// allocate ahead, the file grows by zeros past its end, taken back if that fails.
bool reserve(int fd, off_t oldSize, std::size_t size) {
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        size > limit.rlim_cur)
        return false;
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
    if (static_cast<off_t>(size) <= oldSize) return true;
    std::vector<char> zeros(static_cast<std::size_t>(size) - static_cast<std::size_t>(oldSize));
    if (writeAll(fd, zeros.data(), zeros.size(), oldSize)) return true;
    int restored = ftruncate(fd, oldSize);  // nothing but the length had changed
    (void)restored;
    return false;
}

// A directory synced, so that a name given or changed in it survives a crash. Some file
// systems can't sync a directory at all, which is no failure of the save.
bool syncDirectory(int dir) {
    return fsync(dir) == 0 || errno == EINVAL;
}

// A new file beside the old one, written whole, synced, and renamed over it. Unnamed
// (O_TMPFILE) until then where the file system allows, so that nothing is left beside the
// file whatever ends the run; elsewhere under a hidden name, removed if a polite signal ends
// it. Only where the swap keeps all the old file had: one name, its owner and mode, no
// extended attributes (ACLs, labels), writable to this process. Elsewhere the caller writes
// in place.
enum class Swap { done, failed, unsuitable, unlinkable };
Swap swapIn(xmlDocPtr doc, const Target& target, Packing packing, bool unnamed) {
    if (target.path.empty() ||
        (target.exists &&
         (target.info.st_nlink != 1 ||
          faccessat(AT_FDCWD, target.path.c_str(), W_OK, AT_EACCESS) != 0 ||
          listxattr(target.path.c_str(), nullptr, 0) != 0)))
        return Swap::unsuitable;
    Descriptor dir(open(target.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir) return Swap::unsuitable;
    Descriptor fd(unnamed ? openat(dir, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600) : -1);
    std::string name;  // the new file's hidden name, while it has one
    std::unique_ptr<RemovedOnSignal> removed;
    if (!fd) {
        SignalsHeld held;  // until a signal would remove what is made here
        for (int tries = 0; tries < 100 && !fd && (tries == 0 || errno == EEXIST); ++tries) {
            name = hiddenName(target.base);
            fd.reset(openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        }
        if (!fd) return Swap::unsuitable;
        removed.reset(new RemovedOnSignal(dir, name));
    }
    struct stat made;
    const struct stat& old = target.info;
    bool same = !target.exists ||
                (fstat(fd, &made) == 0 &&
                 ((made.st_uid == old.st_uid && made.st_gid == old.st_gid) ||
                  fchown(fd, old.st_uid, old.st_gid) == 0) &&
                 flistxattr(fd, nullptr, 0) == 0);
    // The mode after the bytes: a write may take the set-user and set-group bits away.
    bool written = same && Output(fd, packing).write(doc) &&
                   fchmod(fd, target.exists ? old.st_mode & 07777 : newFileMode()) == 0 &&
                   fsync(fd) == 0;
    bool linked = true;
    {
        SignalsHeld held;  // the hidden name never outlives the run
        if (written && name.empty()) linked = !(name = linkUnnamed(fd, dir, target.base)).empty();
        // Closed before the rename: a late write error must leave the old file in place.
        written = written && linked && fd.close() &&
                  renameat(dir, name.c_str(), dir, target.base.c_str()) == 0;
        if (!written && !name.empty()) unlinkat(dir, name.c_str(), 0);
        if (removed) removed->end();
    }
    if (!linked) return Swap::unlinkable;
    if (!written) return same ? Swap::failed : Swap::unsuitable;
    if (syncDirectory(dir)) return Swap::done;
    if (!target.exists) unlinkat(dir, target.base.c_str(), 0);  // a new file stays missing
    return Swap::failed;
}

// Overwrites the file in place (same inode, owner and mode), or makes it where its links lead.
bool writeInPlace(xmlDocPtr doc, const std::string& file, const Target& target,
                  Packing packing) {
    Output text(-1, packing);
    if (!text.write(doc)) return false;
    const bool make = !target.exists;
    const std::string& name = make ? target.path : file;
    Descriptor fd(open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | (make ? O_CREAT | O_EXCL : 0),
                       0666));
    if (!fd) return false;
    struct stat info;
    bool ok = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    if (ok) {
        SignalsHeld held;  // no polite signal tears the file between old and new
        ok = reserve(fd, info.st_size, text.size()) &&
             writeAll(fd, text.data(), text.size(), 0) &&
             ftruncate(fd, static_cast<off_t>(text.size())) == 0;
        if (ok && (info.st_mode & (S_ISUID | S_ISGID))) fchmod(fd, info.st_mode & 07777);
    }
    ok = ok && fsync(fd) == 0;
    ok = fd.close() && ok;
    if (!make) return ok;
    Descriptor dir(open(target.dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (ok && (!dir || syncDirectory(dir))) return true;  // a directory it can't read: as it is
    unlink(name.c_str());  // a file that wasn't there stays missing
    return false;
}

}  // namespace

bool saveDocument(xmlDocPtr doc, const std::string& file) {
    if (file.empty()) return false;
    const Target target(file);
    if (target.exists && !S_ISREG(target.info.st_mode)) return false;  // never a pipe, a device
    // Compressed as the library would write it: gzip at the level its reading gave the
    // document; but a file that was xz stays xz, so that the tools that made it still read it.
    Packing packing;
    packing.level = doc->compression < 0 ? xmlGetCompressMode() : doc->compression;
    packing.xz = packing.level > 0 && target.exists && isXz(file);
    Swap swapped = swapIn(doc, target, packing, true);
    if (swapped == Swap::unlinkable) swapped = swapIn(doc, target, packing, false);
    if (swapped != Swap::unsuitable) return swapped == Swap::done;
    return writeInPlace(doc, file, target, packing);
}

}  // namespace xpath_store

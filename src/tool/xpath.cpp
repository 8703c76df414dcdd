// xpath <file> <xpath> [value]: prints the value of every node the expression selects, or
// sets the value at the path, making what is missing, and saves the file.

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "locking.h"
#include "xmlloader.h"

const char* USAGE = "Usage: xpath <file> <xpath> [value]";
const char* ENOTFOUND = "File not found or could not create: ";
const char* EBADXPATH = "Could not use xpath: ";
const char* ETOOMANY = "XPath evaluates to more than one object. Cannot set.";
const char* ESAVEVALUE = "Could not save value";
const char* ESAVEFILE = "Could not save file";
const char* EWRITE = "Could not write values: ";

namespace {

[[noreturn]] void fail(const char* message, const char* argument = "") {
    std::fputs(message, stderr);
    std::fputs(argument, stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    std::exit(1);
}

// Not fatal: the run goes on with no values.
void badXPath(const char* xpath) {
    std::fputs(EBADXPATH, stderr);
    std::fputs(xpath, stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

// Read mode: the values stream from the file when the path allows it, else from its tree. They
// leave in large blocks; every write and the last flush are checked.
[[noreturn]] void read(XMLLoader& loader, const char* file, const char* xpath) {
    static char block[1 << 16];
    std::setvbuf(stdout, block, _IOFBF, sizeof block);
    switch (loader.streamValues(xpath, stdout)) {
        case XMLLoader::STREAM_UNREADABLE:
            fail(ENOTFOUND, file);
        case XMLLoader::STREAM_UNWRITABLE:
            fail(EWRITE, std::strerror(errno));
        case XMLLoader::STREAM_WRITTEN:
            break;
        case XMLLoader::STREAM_UNSUPPORTED:
            if (!loader.loadFile(false)) fail(ENOTFOUND, file);
            if (!loader.writeValues(xpath, stdout)) badXPath(xpath);
            break;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) fail(EWRITE, std::strerror(errno));
    std::exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::fputs(USAGE, stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
        std::exit(1);
    }
    const bool setMode = argc == 4;

    // Never destroyed: every way out is exit, and the process releases the document.
    XMLLoader loader(argv[1]);
    if (!setMode) read(loader, argv[1], argv[2]);
    // Only a regular file is written, and anything else is refused before it is read: a pipe
    // that nobody writes into would keep the run waiting for ever.
    struct stat named;
    if (stat(argv[1], &named) == 0 && !S_ISREG(named.st_mode)) fail(ESAVEFILE);
    // One writer at a time: held from before the read until the new text is in place.
    xpath_store::WriterLock lock;
    if (!lock.take(argv[1])) fail(ESAVEFILE);
    if (!loader.loadFile(setMode)) fail(ENOTFOUND, argv[1]);

    // Set mode needs only to know whether more than one node is selected, and nothing is saved
    // without knowing it: the set's own evaluation may work where this one ran out of memory.
    std::vector<std::string> values;
    const bool counted = loader.getVector(std::string(argv[2]), values, 2);
    if (!counted) badXPath(argv[2]);
    if (values.size() > 1) fail(ETOOMANY);
    bool stored;
    {
        std::vector<char*> value(1, argv[3]);
        stored = loader.setOrCreateVector(std::string(argv[2]), value) && counted;
    }
    if (!stored) fail(ESAVEVALUE);
    if (!loader.saveFile()) fail(ESAVEFILE);
    std::exit(0);
}

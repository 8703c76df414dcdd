// libxml2's allocator fails its Nth call, for every N, across a read and a set of a small
// file as the tool makes them (start, load, read, set, save, stop). Each run either fails,
// leaving the file as it was, or gives what a run without failures gives.
// A binary of its own: the allocator is installed for the whole process before libxml2 starts.
#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "../common/files.h"
#include "xmlloader.h"

namespace {

long left = -1;  // allocations that still succeed; -1: all of them
bool failed = false;

bool failNow() {
    if (left < 0) return false;
    if (left-- > 0) return false;
    failed = true;
    return true;
}
void* tryMalloc(std::size_t n) {
    return failNow() ? nullptr : std::malloc(n);
}
void* tryRealloc(void* p, std::size_t n) {
    return failNow() ? nullptr : std::realloc(p, n);
}
char* tryStrdup(const char* s) {
    return failNow() ? nullptr : strdup(s);
}

void quiet(void*, const char*, ...) {}
const bool installed = xmlMemSetup(std::free, tryMalloc, tryRealloc, tryStrdup) == 0 &&
                       (xmlSetGenericErrorFunc(nullptr, quiet), true);

const char* const original =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
    "<!DOCTYPE a [<!ENTITY e \"\xe9\">]>\n"
    "<a k=\"1\"><b>x &e;</b><b>y<!--c--><i>z</i></b></a>\n";

// One run of the tool: read mode gives what it writes, set mode the file afterwards. False
// when any step fails.
bool run(const std::string& file, const char* path, const char* value, std::string& out) {
    XMLLoader loader(file);
    if (!loader.loadFile(value != nullptr)) return false;
    if (value == nullptr) {
        bool ok;
        out = captured([&](std::FILE* to) { return loader.writeValues(path, to); }, ok);
        return ok;
    }
    std::vector<std::string> values;
    if (!loader.getVector(path, values, 2) ||
        !loader.setOrCreateVector(path, std::vector<std::string>{value}) || !loader.saveFile())
        return false;
    out = readFile(file);
    return true;
}

// Every allocation of one run fails in turn, until a run meets no failure.
void failEachAllocation(const char* path, const char* value) {
    char dir[] = "/tmp/xpath-alloc-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string file = std::string(dir) + "/f.xml";
    std::ofstream(file, std::ios::binary) << original;
    std::string expected, out;
    left = -1;
    ASSERT_TRUE(run(file, path, value, expected)) << path;
    long n = 0;
    for (;; ++n) {
        std::ofstream(file, std::ios::binary) << original;
        left = n;
        failed = false;
        bool ok = run(file, path, value, out);
        left = -1;
        if (!failed) break;  // every allocation of the run was tried
        if (ok) {
            EXPECT_EQ(out, expected) << path << ": allocation " << n << " failed";
        } else if (value) {
            EXPECT_EQ(readFile(file), original) << path << ": allocation " << n << " failed";
        }
    }
    EXPECT_GT(n, 50) << path;  // the runs do allocate through libxml2
    std::remove(file.c_str());
    rmdir(dir);
}

TEST(AllocationFailure, EveryFailureIsCleanOrHarmless) {
    ASSERT_TRUE(installed);
    failEachAllocation("/a/@k|/a/b", nullptr);
    failEachAllocation("/a/b", nullptr);  // plain child steps, no longer streamed
    failEachAllocation("/a/c[@id=\"2\"]/d", "v &amp; w");
    failEachAllocation("/a/b[2]", "new");
}

}  // namespace

// Under the sanitizers: full stacks, so that what libxml2's XPath engine itself loses when an
// allocation fails can be told from the store's own leaks.
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
extern "C" const char* __lsan_default_suppressions() {
    return "leak:xmlXPathEval\n";
}

// libxml2's allocator fails its Nth call, for every N, across runs as the tool makes them
// (load, read or set, save, stop): each run fails, leaving the file as it was, or gives what a
// run without failures gives. A binary of its own: the allocator is set before libxml2 starts.
#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "../common/table.h"
#include "xmlloader.h"

namespace {

long left = -1;  // allocations that still succeed; -1: all of them
bool failed = false;

bool failNow() {
    if (left < 0 || left-- > 0) return false;
    return failed = true;
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
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<!DOCTYPE a [<!ENTITY e \"\xe9\">]>\n"
    "<a k=\"1\"><b>x &e;</b><b>y<!--c--><i>z</i></b></a>\n";

// One run: read mode gives what it writes and reads, set mode the file afterwards. False when
// a step fails.
bool run(const std::string& file, const char* path, const char* value, std::string& out) {
    XMLLoader loader(file);
    std::vector<std::string> values;
    if (!loader.loadFile(value != nullptr) || !loader.getVector(path, values, value ? 2 : 0))
        return false;
    if (value == nullptr) {
        char* text = nullptr;
        std::size_t size = 0;
        std::FILE* to = open_memstream(&text, &size);
        bool ok = loader.writeValues(path, to);
        std::fclose(to);
        out = std::string(text, size);
        std::free(text);
        for (const std::string& v : values)
            out += "|" + v;
        return ok;
    }
    if (!loader.setOrCreateVector(path, std::vector<std::string>{value}) || !loader.saveFile())
        return false;
    out = readFile(file);
    return true;
}

void failEachAllocation(const char* path, const char* value) {
    const std::string file = testing::TempDir() + "xpath-alloc-" + std::to_string(getpid());
    std::string expected, out;
    std::ofstream(file, std::ios::binary) << original;
    ASSERT_TRUE(run(file, path, value, expected)) << path;
    long n = 0;
    for (failed = true; failed; ++n) {  // until a run meets no failure
        std::ofstream(file, std::ios::binary) << original;
        left = n;
        failed = false;
        bool ok = run(file, path, value, out);
        left = -1;
        EXPECT_EQ(ok      ? out
                  : value ? readFile(file)
                          : original,
                  ok ? expected : original)
            << path << ": allocation " << n << " failed";
    }
    EXPECT_GT(n, 50) << path;  // the runs do allocate through libxml2
    std::filesystem::remove(file);
}

TEST(AllocationFailure, EveryFailureIsCleanOrHarmless) {
    ASSERT_TRUE(installed);
    failEachAllocation("/a/@k|/a/b", nullptr);
    failEachAllocation("/a/b", nullptr);
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

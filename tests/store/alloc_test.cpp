// libxml2's allocator fails its Nth call, for every N, across runs as the tool makes them: each
// run fails, leaving the file as it was, or gives what a run without failures gives. A binary
// of its own: the allocator is set before libxml2 starts.
#include <gtest/gtest.h>
#include <libxml/xmlmemory.h>

#include <unistd.h>

#include <cstring>

#include "../common/table.h"
#include "xmlloader.h"

namespace {

long left = -1;  // allocations that still succeed; -1: all of them
bool failed = false;

bool failNow() {
    return left >= 0 && left-- == 0 && (failed = true);
}
void quiet(void*, const char*, ...) {}
const bool installed =
    xmlMemSetup(
        std::free, [](std::size_t n) { return failNow() ? nullptr : std::malloc(n); },
        [](void* p, std::size_t n) { return failNow() ? nullptr : std::realloc(p, n); },
        [](const char* s) { return failNow() ? nullptr : strdup(s); }) == 0 &&
    (xmlSetGenericErrorFunc(nullptr, quiet), true);

const char* const original =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<!DOCTYPE a [<!ENTITY e \"\xe9\">]>\n"
    "<a k=\"1\"><b>x &e;</b><b>y<!--c--><i>z</i></b></a>\n";

// A run of the tool, read (value null) or set; false when a step fails. out: the values read,
// as getVector and writeValues give them, or the file afterwards.
bool run(const std::string& file, const char* path, const char* value, std::string& out) {
    XMLLoader loader(file);
    std::vector<std::string> values;
    if (!loader.loadFile(value != nullptr) || !loader.getVector(path, values, value ? 2 : 0))
        return false;
    if (value) {
        bool set = loader.setOrCreateVector(path, std::vector<std::string>{value});
        return set && loader.saveFile() && !(out = readFile(file)).empty();
    }
    bool ok;
    out = captured([&](std::FILE* to) { return loader.writeValues(path, to); }, ok);
    for (const std::string& v : values)
        out += "|" + v;
    return ok;
}

TEST(AllocationFailure, EveryFailureIsCleanOrHarmless) {
    ASSERT_TRUE(installed);
    const std::string file =
        testing::TempDir() + "xpath-alloc-" + std::to_string(getpid()) + ".xml";
    const struct {
        const char *path, *value;
    } runs[] = {{"/a/@k|/a/b", nullptr},
                {"/a/b", nullptr},
                {"/a/c[@id=\"2\"]/d", "v &amp; w"},
                {"/a/b[2]", "new"}};
    for (const auto [path, value] : runs) {
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
            EXPECT_TRUE(ok ? out == expected : !value || readFile(file) == original)
                << path << ": allocation " << n << " failed";
        }
        EXPECT_GT(n, 50) << path;  // the runs do allocate through libxml2
    }
    std::remove(file.c_str());
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

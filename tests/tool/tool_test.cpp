// Runs the built xpath binary: its output, messages, status, and the file afterwards.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Result {
    std::string out, err;
    int status;
};

std::string drain(int fd) {
    std::string all;
    char block[4096];
    for (ssize_t n; (n = read(fd, block, sizeof block)) > 0;)
        all.append(block, n);
    close(fd);
    return all;
}

Result run(const std::vector<std::string>& args, const std::string& dir) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {"", "pipe failed", -1};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]), close(err[0]), close(out[1]), close(err[1]);
        if (chdir(dir.c_str()) != 0) _exit(127);
        std::vector<char*> argv;
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]), close(err[1]);
    Result r;
    r.err = drain(err[0]);  // stderr is small; stdout may be large, but both pipes drain
    r.out = drain(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return r;
}

struct Scratch {
    std::string dir;
    Scratch() {
        char name[] = "/tmp/xpath-tool-XXXXXX";
        dir = mkdtemp(name);
    }
    ~Scratch() { std::system(("rm -rf '" + dir + "'").c_str()); }
    std::string file() const { return dir + "/f.xml"; }
    bool exists() const { return access(file().c_str(), F_OK) == 0; }
    std::string read() const {
        std::ifstream in(file(), std::ios::binary);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }
};

const char* const absent = "(absent)";
const std::string decl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

struct Case {
    const char* name;
    const char* before;             // the file's bytes, or absent
    std::vector<std::string> args;  // "F" stands for the file
    std::string out;
    std::string errEnd;  // what standard error ends with (library diagnostics come first)
    int status;
    std::string after;  // the file's bytes afterwards; "=" unchanged
};

void check(const Case& c) {
    SCOPED_TRACE(c.name);
    Scratch scratch;
    if (c.before != absent) std::ofstream(scratch.file(), std::ios::binary) << c.before;
    std::vector<std::string> args{XPATH_BINARY};
    for (const std::string& a : c.args)
        args.push_back(a == "F" ? scratch.file() : a);
    Result r = run(args, scratch.dir);
    auto expand = [&](std::string s) {
        for (std::size_t at; (at = s.find("%F")) != s.npos;)
            s.replace(at, 2, scratch.file());
        return s;
    };
    EXPECT_EQ(r.out, expand(c.out));
    std::string errEnd = expand(c.errEnd);
    EXPECT_TRUE(r.err.size() >= errEnd.size() &&
                r.err.compare(r.err.size() - errEnd.size(), errEnd.size(), errEnd) == 0)
        << "stderr: " << r.err;
    if (errEnd.empty()) {
        EXPECT_EQ(r.err, "");
    }
    EXPECT_EQ(r.status, c.status);
    std::string after = c.after == "=" ? c.before : c.after;
    EXPECT_EQ(scratch.exists() ? scratch.read() : absent, after);
}

const char* const usage = "Usage: xpath <file> <xpath> [value]\n";
const char* const doc = "<a><b>1</b><c>2</c><d/><e>x\ny</e></a>";

TEST(Tool, ReadMode) {
    const Case cases[] = {
        {"no arguments", absent, {}, usage, "", 1, "="},
        {"one argument", absent, {"F"}, usage, "", 1, "="},
        {"four arguments", absent, {"F", "/a", "v", "w"}, usage, "", 1, "="},
        {"missing file",
         absent,
         {"F", "/a"},
         "",
         "File not found or could not create: %F\n",
         1,
         "="},
        {"empty file", "", {"F", "/a"}, "", "File not found or could not create: %F\n", 1, "="},
        {"not well-formed", "<a><b></a>", {"F", "/a"}, "", "could not create: %F\n", 1, "="},
        {"binary", "\x89PNG\r\n\x1a\n\0\0", {"F", "/a"}, "", "could not create: %F\n", 1, "="},
        {"a directory", absent, {".", "/a"}, "", "could not create: .\n", 1, "="},
        {"values", doc, {"F", "/a/*"}, "1\n2\n\nx\ny\n", "", 0, "="},
        {"value of the root", doc, {"F", "/a"}, "1 2  x\ny\n", "", 0, "="},
        {"attribute", "<a k='\xc3\xa9'/>", {"F", "/a/@k"}, "\xc3\xa9\n", "", 0, "="},
        {"selects nothing", doc, {"F", "/a/x"}, "", "", 0, "="},
        {"number", doc, {"F", "count(/a/*)"}, "", "", 0, "="},
        {"syntax error", doc, {"F", "/a["}, "", "Could not use xpath: /a[\n", 0, "="},
        {"unknown function", doc, {"F", "f(/a)"}, "", "Could not use xpath: f(/a)\n", 0, "="},
        {"unknown prefix", doc, {"F", "/p:a"}, "", "Could not use xpath: /p:a\n", 0, "="},
        {"empty expression", doc, {"F", ""}, "", "Could not use xpath: \n", 0, "="},
    };
    for (const Case& c : cases)
        check(c);
}

TEST(Tool, SetMode) {
    const Case cases[] = {
        {"new file",
         absent,
         {"F", "/a/b/c", "1"},
         "",
         "",
         0,
         decl + "<a>\n  <b>\n    <c>1</c>\n  </b>\n</a>\n"},
        {"empty value", absent, {"F", "/a/@k", ""}, "", "", 0, decl + "<a k=\"\"/>\n"},
        {"existing node",
         doc,
         {"F", "/a/c", "v"},
         "",
         "",
         0,
         decl + "<a>\n  <b>1</b>\n  <c>v</c>\n  <d/>\n  <e>x\ny</e>\n</a>\n"},
        {"existing attribute",
         "<a k='old' m='1'/>",
         {"F", "/a/@k", "v"},
         "",
         "",
         0,
         decl + "<a k=\"v\" m=\"1\"/>\n"},
        {"condition",
         "<a/>",
         {"F", "/a/b[@id=\"2\"]/c", "x"},
         "",
         "",
         0,
         decl + "<a>\n  <b id=\"2\">\n    <c>x</c>\n  </b>\n</a>\n"},
        {"too many",
         doc,
         {"F", "/a/*", "v"},
         "",
         "XPath evaluates to more than one object. Cannot set.\n",
         1,
         "="},
        {"bad expression",
         doc,
         {"F", "/a[", "v"},
         "",
         "Could not use xpath: /a[\nXPath error : Invalid expression\nCould not save value\n",
         1,
         "="},
        {"refused on a missing file",
         absent,
         {"F", "/a[@x=\"1\"]", "v"},
         "",
         "Could not save value\n",
         1,
         "="},
        {"new root beside the old", doc, {"F", "/b", "v"}, "", "Could not save value\n", 1, "="},
        {"beside the root", doc, {"F", "//x", "v"}, "", "Could not save value\n", 1, "="},
        {"not a name", doc, {"F", "/a/d/text()", "v"}, "", "Could not save value\n", 1, "="},
        {"not a character", doc, {"F", "/a/d", "\x01"}, "", "Could not save value\n", 1, "="},
        {"save fails", "<a/>", {"F/x.xml", "/a", "v"}, "", "Could not save file\n", 1, "="},
        {"unreadable kept", "<a>", {"F", "/a", "v"}, "", "could not create: %F\n", 1, "="},
    };
    for (const Case& c : cases)
        check(c);
}

}  // namespace

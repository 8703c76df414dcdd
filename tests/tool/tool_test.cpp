// Runs the built xpath binary: its output, messages, status, and the file afterwards.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "../common/files.h"
#include "../common/table.h"

namespace {

std::string drain(int fd) {
    std::string all;
    char block[4096];
    for (ssize_t n; (n = read(fd, block, sizeof block)) > 0;)
        all.append(block, n);
    close(fd);
    return all;
}

struct Result {
    std::string out, err;
    int status;
};

Result run(const std::vector<std::string>& args, const std::string& dir) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {"", "pipe failed", -1};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]), close(err[0]), close(out[1]), close(err[1]);
        std::vector<char*> argv;
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        if (chdir(dir.c_str()) == 0) execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]), close(err[1]);
    Result r;
    r.err = drain(err[0]);  // small; the writer never blocks on it while stdout waits
    r.out = drain(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return r;
}

// "F" (also in front of a '/') and "%F" stand for the file, "''" for an empty argument.
std::string withFile(const std::string& text, const std::string& file) {
    if (text == "''") return "";
    if (text == "F" || text.rfind("F/", 0) == 0) return file + text.substr(1);
    std::string out = text;
    for (std::size_t at; (at = out.find("%F")) != std::string::npos;)
        out.replace(at, 2, file);
    return out;
}

// "(deep N)": N nested elements around "v"; "(text N)": an element holding N bytes of text.
std::string expand(const std::string& before) {
    int n = 0;
    if (std::sscanf(before.c_str(), "(deep %d)", &n) == 1) {
        std::string open, close;
        for (int i = 0; i < n; ++i)
            open += "<d>", close += "</d>";
        return open + "v" + close;
    }
    if (std::sscanf(before.c_str(), "(text %d)", &n) == 1)
        return "<a k=\"1\">" + std::string(static_cast<std::size_t>(n), 'x') + "</a>";
    int refs = 0;  // "(entity N R)": an entity of N bytes, referenced R times
    if (std::sscanf(before.c_str(), "(entity %d %d)", &n, &refs) == 2) {
        std::string body;
        for (int i = 0; i < refs; ++i)
            body += "&e;";
        return "<!DOCTYPE a [<!ENTITY e \"" + std::string(static_cast<std::size_t>(n), 'x') +
               "\">]><a k=\"1\">" + body + "</a>";
    }
    return before;
}

// An argument "P" is a pipe that holds the text of "before", read as /dev/fd/N.
void runTable(const char* table) {
    for (Row row : readTable(table)) {
        SCOPED_TRACE(row[0]);
        row[1] = expand(row[1]);
        char name[] = "/tmp/xpath-tool-XXXXXX";
        std::string dir = mkdtemp(name), file = dir + "/f.xml";
        std::vector<std::string> args{XPATH_BINARY};
        int piped[2] = {-1, -1};
        for (const std::string& a : parts(row[2])) {
            if (a == "P" && pipe(piped) == 0) {
                EXPECT_EQ(write(piped[1], row[1].data(), row[1].size()), ssize_t(row[1].size()));
                close(piped[1]);
                args.push_back("/dev/fd/" + std::to_string(piped[0]));
                row[1] = "(absent)";
            } else {
                args.push_back(withFile(a, file));
            }
        }
        if (row[1] != "(absent)") std::ofstream(file, std::ios::binary) << row[1];
        Result r = run(args, dir);
        if (piped[0] >= 0) close(piped[0]);
        EXPECT_EQ(r.out, row[3]);
        std::string errEnd = withFile(row[4], file);
        EXPECT_TRUE(r.err.size() >= errEnd.size() &&
                    r.err.compare(r.err.size() - errEnd.size(), errEnd.size(), errEnd) == 0)
            << "stderr: " << r.err;
        if (errEnd.empty()) {
            EXPECT_EQ(r.err, "");
        }
        EXPECT_EQ(r.status, std::stoi(row[5]));
        EXPECT_EQ(readFile(file), row[6] == "=" ? row[1] : row[6]);
        std::system(("rm -rf '" + dir + "'").c_str());
    }
}

TEST(Tool, Runs) {
    runTable("tool.tsv");
}

// Cases that fuzzing found.
TEST(Regression, ToolRuns) {
    runTable("tool_regression.tsv");
}

}  // namespace

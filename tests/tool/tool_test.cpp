// Runs the built xpath binary: its output, messages, status, and the file afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>

#include "../common/table.h"

namespace {

// The table's F and '' as arguments, and %F in messages.
std::string expand(std::string text, const std::string& file, bool argument) {
    if (argument) return text == "''" ? "" : text[0] == 'F' ? file + text.substr(1) : text;
    for (std::size_t at; (at = text.find("%F")) != std::string::npos;)
        text.replace(at, 2, file);
    return text;
}

// "(entity N R)": a document whose entity of N bytes is referenced R times; else as it is.
std::string document(const std::string& before) {
    int n = 0, refs = 0;
    if (std::sscanf(before.c_str(), "(entity %d %d)", &n, &refs) != 2) return before;
    std::string body;
    while (refs-- > 0)
        body += "&e;";
    return "<!DOCTYPE a [<!ENTITY e \"" + std::string(n, 'x') + "\">]><a k=\"1\">" + body + "</a>";
}

TEST(Tool, Runs) {
    const auto dir =
        std::filesystem::temp_directory_path() / ("xpath-tool-" + std::to_string(getpid()));
    const std::string file = dir / "f.xml", out = dir / "out", err = dir / "err";
    for (const Row& row : readTable("tool.tsv")) {
        SCOPED_TRACE(row[0]);
        std::filesystem::create_directories(dir);
        if (row[1] != "(absent)") std::ofstream(file, std::ios::binary) << document(row[1]);
        std::vector<std::string> args{XPATH_BINARY};
        for (const std::string& a : parts(row[2]))
            args.push_back(expand(a, file, true));
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
        pid_t pid;
        int status = -1;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0)
            waitpid(pid, &status, 0);
        posix_spawn_file_actions_destroy(&actions);
        // Standard error ends with the text given: libxml2's own diagnostics come first.
        const std::string errors = readFile(err), end = expand(row[4], file, false);
        EXPECT_TRUE(end.empty() ? errors.empty()
                                : errors.size() >= end.size() &&
                                      errors.substr(errors.size() - end.size()) == end)
            << "standard error: " << errors;
        EXPECT_EQ(readFile(out), row[3]);
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::stoi(row[5]));
        EXPECT_EQ(readFile(file), row[6] == "=" ? document(row[1]) : row[6]);
        std::filesystem::remove_all(dir);
    }
}

}  // namespace

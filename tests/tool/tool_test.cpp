// Runs the built xpath binary: its output, messages, status, and the file afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "../common/table.h"

namespace {

// F, D and %F, %D as the table means them; '' an empty argument.
std::string expand(std::string text, const std::string& file, bool argument) {
    const std::string dir = std::filesystem::path(file).parent_path();
    if (argument && text == "''") return "";
    if (argument && (text == "F" || text.rfind("F/", 0) == 0)) return file + text.substr(1);
    if (argument && text == "D") return dir;
    for (std::size_t at; (at = text.find("%F")) != std::string::npos;)
        text.replace(at, 2, file);
    for (std::size_t at; (at = text.find("%D")) != std::string::npos;)
        text.replace(at, 2, dir);
    return text;
}

// The text of a file as the table gives it, with "(deep N)" and "(text N)" written out.
std::string before(const std::string& text) {
    int n = 0;
    if (std::sscanf(text.c_str(), "(deep %d)", &n) == 1) {
        std::string open, close;
        for (int i = 0; i < n; ++i)
            open += "<d>", close += "</d>";
        return open + "v" + close;
    }
    if (std::sscanf(text.c_str(), "(text %d)", &n) == 1)
        return "<a k=\"1\">" + std::string(static_cast<std::size_t>(n), 'x') + "</a>";
    return text;
}

TEST(Tool, Runs) {
    for (const Row& row : readTable("tool.tsv")) {
        SCOPED_TRACE(row[0]);
        const auto dir =
            std::filesystem::temp_directory_path() / ("xpath-tool-" + std::to_string(getpid()));
        std::filesystem::create_directories(dir);
        const std::string file = dir / "f.xml", out = dir / "out", err = dir / "err";
        std::string content = before(row[1]);
        std::vector<std::string> args{XPATH_BINARY};
        int piped[2] = {-1, -1};
        for (const std::string& a : parts(row[2])) {
            if (a == "P" && pipe(piped) == 0) {
                EXPECT_EQ(write(piped[1], content.data(), content.size()), ssize_t(content.size()));
                close(piped[1]);
                args.push_back("/dev/fd/" + std::to_string(piped[0]));
                content = "(absent)";
            } else {
                args.push_back(expand(a, file, true));
            }
        }
        if (content != "(absent)") std::ofstream(file, std::ios::binary) << content;
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
        if (piped[0] >= 0) close(piped[0]);

        EXPECT_EQ(readFile(out), row[3]);
        const std::string errors = readFile(err), errorsEnd = expand(row[4], file, false);
        EXPECT_TRUE(errorsEnd.empty()
                        ? errors.empty()
                        : errors.size() >= errorsEnd.size() &&
                              errors.substr(errors.size() - errorsEnd.size()) == errorsEnd)
            << "standard error: " << errors;
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::stoi(row[5]));
        EXPECT_EQ(readFile(file), row[6] == "=" ? content : row[6]);
        std::filesystem::remove_all(dir);
    }
}

}  // namespace

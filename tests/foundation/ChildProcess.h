// A child process for tests, started with posix_spawn; its standard output (and error, unless asked
// otherwise) comes back through one pipe.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace nb::test {

struct ChildProcess {
    pid_t pid = -1;
    int output = -1;

    // argv[0] is the program; a null environment means this process's own.
    static ChildProcess start(std::vector<std::string> argv, std::vector<std::string>* environment = nullptr,
                              bool withErrors = true) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return {};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        if (withErrors) posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        auto pointers = [](std::vector<std::string>& strings) {
            std::vector<char*> result;
            for (auto& s : strings) result.push_back(s.data());
            result.push_back(nullptr);
            return result;
        };
        std::vector<char*> args = pointers(argv);
        std::vector<char*> envp = environment ? pointers(*environment) : std::vector<char*>{};
        ChildProcess child;
        if (posix_spawn(&child.pid, args[0], &actions, nullptr, args.data(), environment ? envp.data() : environ) != 0)
            child.pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        child.output = fds[0];
        return child;
    }

    // One line, or "" at end of file or after a generous timeout.
    std::string readLine() {
        std::string line;
        for (char c; ; line += c) {
            pollfd p{output, POLLIN, 0};
            if (::poll(&p, 1, 60000) <= 0 || ::read(output, &c, 1) != 1 || c == '\n') return line;
        }
    }
    std::string readAll() {
        std::string all;
        char buffer[4096];
        for (ssize_t n; (n = ::read(output, buffer, sizeof buffer)) > 0;) all.append(buffer, static_cast<std::size_t>(n));
        return all;
    }
    // Exit status, or -signal.
    int wait() {
        int status = 0;
        if (pid > 0) ::waitpid(pid, &status, 0);
        if (output >= 0) ::close(output);
        output = -1;
        return pid <= 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    struct Result {
        int status;
        std::string output;
    };
    static Result run(std::vector<std::string> argv, std::vector<std::string>* environment = nullptr,
                      bool withErrors = true) {
        ChildProcess child = start(std::move(argv), environment, withErrors);
        std::string out = child.readAll();
        return {child.wait(), out};
    }

    // Runs the test program `tool` (from NBBASE_TEST_TOOLS_DIR) with this process's environment minus
    // every locale variable and NBBASE_LOCALEDIR, plus `extra` ("NAME=value", in order). Answers its
    // standard output as lines, with a last line "exit status N" when it did not exit cleanly.
    static std::vector<std::string> runInLocale(const std::string& tool, const std::vector<std::string>& arguments,
                                                const std::vector<std::string>& extra) {
        std::vector<std::string> environment;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string variable = *entry, name = variable.substr(0, variable.find('='));
            if (name != "LANG" && name != "LANGUAGE" && name.rfind("LC_", 0) != 0 && name != "NBBASE_LOCALEDIR")
                environment.push_back(variable);
        }
        environment.insert(environment.end(), extra.begin(), extra.end());
        std::vector<std::string> argv = {std::string(NBBASE_TEST_TOOLS_DIR) + "/" + tool};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        const Result result = run(argv, &environment, false);
        std::vector<std::string> lines;
        std::istringstream stream(result.output);
        for (std::string line; std::getline(stream, line);) lines.push_back(line);
        if (result.status != 0) lines.push_back("exit status " + std::to_string(result.status));
        return lines;
    }
};

}  // namespace nb::test

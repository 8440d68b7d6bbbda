// SPDX-License-Identifier: MIT
#include "support/process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

#include "support/temp_dir.hpp"

namespace {

// The child's side of the fork. Only what a forked child of a threaded process
// may call. The child dies with the thread that started it, so that nothing is
// left behind when the test is killed.
[[noreturn]] void become(char** arguments, const char* directory, int input, int output, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent || (*directory != '\0' && chdir(directory) != 0)) {
        _exit(126);
    }
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execvp(arguments[0], arguments);
    _exit(127);
}

}  // namespace

bool eventually(const std::function<bool()>& holds, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

process_s::process_s(const std::string& program, const process_options_s& options) {
    std::vector<std::string> words{"env"};
    for (const auto& [name, value] : options.environment) {
        words.push_back(name + "=" + value);
    }
    words.push_back(program);
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> arguments(words.size() + 1, nullptr);
    std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });

    // A file in memory takes the output, so that a talkative program never waits
    // for its reader.
    int ends[2] = {-1, -1};
    outputFile = memfd_create("output", MFD_CLOEXEC);
    if (outputFile < 0 || pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptors");
    }
    fcntl(outputFile, F_SETFL, O_APPEND);
    const pid_t parent = getpid();
    pid = fork();
    if (pid == 0) {
        become(arguments.data(), options.directory.c_str(), ends[0], outputFile, parent);
    }
    close(ends[0]);
    input = ends[1];
    if (pid < 0) {
        throw std::system_error(errno, std::generic_category(), "no process");
    }
}

process_s::~process_s() {
    for (const int number : {SIGTERM, SIGKILL}) {
        if (!waitForExit(std::chrono::milliseconds(0))) {
            signal(number);
            waitForExit(std::chrono::milliseconds(5'000));
        }
    }
    closeInput();
    close(outputFile);
}

std::string process_s::output() const {
    return readTextFile("/proc/self/fd/" + std::to_string(outputFile));
}

bool process_s::waitForOutput(std::string_view text, std::chrono::milliseconds patience) const {
    return eventually([&] { return output().find(text) != std::string::npos; }, patience);
}

void process_s::write(std::string_view text) const {
    if (::write(input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::system_error(errno, std::generic_category(), "program does not read");
    }
}

void process_s::closeInput() {
    if (input >= 0) {
        close(input);
        input = -1;
    }
}

void process_s::signal(int number) const {
    if (!status) {
        kill(pid, number);
    }
}

std::optional<int> process_s::waitForExit(std::chrono::milliseconds patience) {
    eventually(
        [&] {
            int raw = 0;
            if (!status && waitpid(pid, &raw, WNOHANG) == pid) {
                status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            }
            return status.has_value();
        },
        patience);
    return status;
}

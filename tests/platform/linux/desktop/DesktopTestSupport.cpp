#include "DesktopTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

extern char** environ;

namespace pw::test {

namespace {

std::optional<std::string> readLine(int fd, std::chrono::milliseconds limit) {
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd waitFor{fd, POLLIN, 0};
        if (poll(&waitFor, 1, static_cast<int>(left.count())) <= 0) continue;
        char c = 0;
        const auto got = read(fd, &c, 1);
        if (got <= 0) return line.empty() ? std::nullopt : std::optional(line);
        if (c == '\n') return line;
        line.push_back(c);
    }
}

} // namespace

std::optional<ChildProcess> ChildProcess::start(std::vector<std::string> argv, int readyFd) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) return std::nullopt;
    for (auto& arg : argv)
        if (arg == "{fd}") arg = std::to_string(readyFd);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // dup2 clears close-on-exec on the copy; the child's output stays out of test logs.
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], readyFd);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (auto& arg : argv)
        args.push_back(arg.data());
    args.push_back(nullptr);
    pid_t pid = -1;
    const int failed = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    if (failed) {
        close(pipeFds[0]);
        return std::nullopt;
    }
    auto line = readLine(pipeFds[0], std::chrono::seconds(20));
    close(pipeFds[0]);
    ChildProcess child(pid, line.value_or(""));
    if (!line) return std::nullopt; // the destructor stops it
    return child;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(other.pid_), line_(std::move(other.line_)) {
    other.pid_ = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(line_, other.line_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
}

std::optional<VirtualXServer> VirtualXServer::start(const std::string& geometry) {
    auto process = ChildProcess::start({"Xvfb", "-displayfd", "{fd}", "-screen", "0", geometry,
                                        "+extension", "RANDR", "-nolisten", "tcp", "-noreset"});
    if (!process || process->readyLine().empty()) return std::nullopt;
    std::string name = ":" + process->readyLine();
    return VirtualXServer(std::move(*process), std::move(name));
}

std::optional<PrivateBus> PrivateBus::start() {
    auto process = ChildProcess::start(
        {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address={fd}"});
    if (!process || process->readyLine().empty()) return std::nullopt;
    std::string address = process->readyLine();
    return PrivateBus(std::move(*process), std::move(address));
}

} // namespace pw::test

#pragma once

#include "common/TestSupport.h"

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace pw::test {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs panelwright-cli as a user would from a shell, with its state and settings in
// `home`: separate stdout and stderr, the exit status. `environment` is set on top.
inline Outcome runCli(const std::filesystem::path& home, const std::vector<std::string>& args,
                      const std::vector<std::pair<std::string, std::string>>& environment) {
    const auto outFile = home / "stdout";
    const auto errFile = home / "stderr";
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, 1);
        dup2(err, 2);
        setenv("XDG_STATE_HOME", (home / "state").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
        for (const auto& [name, value] : environment)
            setenv(name.c_str(), value.c_str(), 1);
        std::vector<char*> argv{const_cast<char*>(PW_CLI_PATH)};
        for (const auto& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(PW_CLI_PATH, argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outFile), readFile(errFile)};
}

} // namespace pw::test

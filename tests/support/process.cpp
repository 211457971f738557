#include "tests/support/process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace wardend::test {

namespace {

std::string NewCapturePath(const char* what) {
    static int counter = 0;
    return TempDir::Base() + "/wardend-test-" + std::to_string(getpid()) + "-" +
           std::to_string(counter++) + "." + what;
}

}  // namespace

std::vector<ThreadInfo> Threads(pid_t pid) {
    std::vector<ThreadInfo> threads;
    std::error_code error;
    const std::filesystem::directory_iterator tasks("/proc/" + std::to_string(pid) + "/task",
                                                    error);
    for (const auto& task : error ? std::filesystem::directory_iterator() : tasks) {
        ThreadInfo thread;
        std::getline(std::ifstream(task.path() / "comm"), thread.name);
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                thread.voluntarySwitches = std::stoll(line.substr(line.find(':') + 1));
            }
        }
        threads.push_back(std::move(thread));
    }
    return threads;
}

pid_t MakeDeadPid() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return child;
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& args,
                           const std::vector<std::string>& extraEnv)
    : stdoutPath_(NewCapturePath("out")), stderrPath_(NewCapturePath("err")) {
    std::vector<std::string> argStore{program};
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    argv.reserve(argStore.size() + 1);
    for (auto& arg : argStore) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> envStore = extraEnv;

    pid_ = fork();
    if (pid_ == 0) {
        const int out = open(stdoutPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        for (auto& entry : envStore) {
            putenv(entry.data());
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
        kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
    }
    unlink(stdoutPath_.c_str());
    unlink(stderrPath_.c_str());
}

bool ChildProcess::Signal(int signal) const {
    return pid_ > 0 && kill(pid_, signal) == 0;
}

std::optional<int> ChildProcess::WaitExit(std::chrono::milliseconds timeout) {
    if (reaped_) {
        return std::nullopt;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            reaped_ = true;
            if (WIFEXITED(status)) {
                return WEXITSTATUS(status);
            }
            return WIFSIGNALED(status) ? -WTERMSIG(status) : -1;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool ChildProcess::WaitForStderr(const std::string& text, std::chrono::milliseconds timeout) const {
    return WaitUntil([&] { return Stderr().find(text) != std::string::npos; }, timeout);
}

std::string ChildProcess::Stdout() const {
    return ReadFile(stdoutPath_);
}
std::string ChildProcess::Stderr() const {
    return ReadFile(stderrPath_);
}

RunResult RunToEnd(const std::string& program, const std::vector<std::string>& args,
                   const std::vector<std::string>& extraEnv, std::chrono::milliseconds timeout) {
    ChildProcess child(program, args, extraEnv);
    RunResult result;
    const auto code = child.WaitExit(timeout);
    result.exitCode = code.value_or(-1000);
    result.out = child.Stdout();
    result.err = child.Stderr();
    return result;
}

}  // namespace wardend::test

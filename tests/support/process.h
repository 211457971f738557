#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace wardend::test {

// The pid of a child that has exited and been reaped: no /proc entry exists for it (until the
// kernel hands the number out again, which the tests accept as unlikely).
pid_t MakeDeadPid();

// A thread of a process, as /proc/<pid>/task shows it.
struct ThreadInfo {
    std::string name;
    long long voluntarySwitches{0};  // times it went to sleep
};
// Empty when the process is gone.
std::vector<ThreadInfo> Threads(pid_t pid);

// Runs a program with arguments and an optional extra environment, capturing standard output
// and standard error to files. Kills it in the destructor if it still runs.
class ChildProcess {
public:
    ChildProcess(const std::string& program, const std::vector<std::string>& args,
                 const std::vector<std::string>& extraEnv = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid_; }
    bool Signal(int signal) const;
    // The exit code, or nothing when it has not ended in time; -signal when killed.
    std::optional<int> WaitExit(std::chrono::milliseconds timeout);
    // Waits until standard error (the log) has a line containing text.
    bool WaitForStderr(const std::string& text, std::chrono::milliseconds timeout) const;
    std::string Stdout() const;
    std::string Stderr() const;

private:
    pid_t pid_{-1};
    bool reaped_{false};
    std::string stdoutPath_;
    std::string stderrPath_;
};

// Runs a program to its end and returns its exit code and standard output.
struct RunResult {
    int exitCode{-1};
    std::string out;
    std::string err;
};
RunResult RunToEnd(const std::string& program, const std::vector<std::string>& args,
                   const std::vector<std::string>& extraEnv = {},
                   std::chrono::milliseconds timeout = std::chrono::seconds(20));

}  // namespace wardend::test

#endif

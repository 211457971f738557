// The whole daemon under load: N client processes register (and query) over SOME/IP or DDS for a
// bounded time, next to the same number of raw TCP clients against an epoll echo server that
// answers with the same message sizes, in one run. Then 100 applications register 10,000 events,
// a tool times QueryEventInfo("ALL") over them, and the registrations are timed again while a
// tool loops on that query. The daemon's threads, descriptors, RSS and PSS are read from /proc
// at each step, and again 2.5 s after the queries, when the daemon has handed back what they
// freed. A churn mode starts short-lived applications and kills them.
//
// Memory: "idle" is the daemon just started, with nothing registered. The applications first
// connect and register their nodes, then their events; the RSS growth over the second step,
// divided by the events, is the memory of one registered event. The figures are of the
// process the tool started; build it in release, and keep other daemons and loads off the
// machine while it runs (--config with other ports keeps it clear of programs on the default
// ones). /proc/<pid>/smaps tells, mapping by mapping, where an idle figure goes.
//
//   build/release/bench/load/wardend_load --daemon build/release/daemon/wardend --clients 8
//   build/release/bench/load/wardend_load --daemon ... --churn 1000 --batch 20
//   build/release/bench/load/wardend_load --daemon ... --driver dds
//       --config examples/config/dds.json
//
// Every client is a process of its own, forked before anything made a thread, so that each has
// its own driver as a real application does. The parent never talks to the daemon itself.
#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "binding/serialize/someip_serializer.h"
#include "client/wardend_proxy.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/service_config.h"
#include "records/service_interfaces.h"

namespace {

using Clock = std::chrono::steady_clock;
using vesk::wardend::AppRegisterInfo;
using vesk::wardend::AppRegisterInfoType;
using vesk::wardend::proxy::ProxyOptions;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using DriverKind = lumo::vcc::api::types::DriverType;

struct Options {
    std::string daemon;  // empty: a daemon runs already (its pid in daemonPid)
    std::string config;  // the vesk.json of daemon and clients; empty: SOME/IP defaults, warn
    pid_t daemonPid{-1};
    int clients{8};
    double seconds{5};
    DriverKind driver{DriverKind::kSomeip};
    int apps{100};
    int eventsPerApp{100};
    int queries{50};
    int churn{0};
    int batch{20};
};

// ---- Samples and figures ----

struct ClientResult {
    std::uint64_t answered{0};  // replies, refusals of the traffic control included
    std::uint64_t refused{0};
    std::uint64_t failed{0};  // timeouts and other errors
    std::uint64_t items{0};   // records in the last answer, for queries
    std::vector<std::uint32_t> latencyNs;
};

struct Figures {
    double perSecond{0};    // answers
    double okPerSecond{0};  // answers that the traffic control let through
    double p50Us{0};
    double p99Us{0};
    double p999Us{0};
    std::uint64_t refused{0};
    std::uint64_t failed{0};
    std::uint64_t items{0};
};

Figures Summarise(std::vector<ClientResult>& results, double seconds) {
    Figures figures;
    std::vector<std::uint32_t> all;
    std::uint64_t answered = 0;
    for (auto& result : results) {
        answered += result.answered;
        figures.refused += result.refused;
        figures.failed += result.failed;
        figures.items = std::max(figures.items, result.items);
        all.insert(all.end(), result.latencyNs.begin(), result.latencyNs.end());
    }
    figures.perSecond = static_cast<double>(answered) / seconds;
    figures.okPerSecond = static_cast<double>(answered - figures.refused) / seconds;
    if (!all.empty()) {
        std::sort(all.begin(), all.end());
        const auto at = [&all](double q) {
            const auto index = std::min(
                all.size() - 1, static_cast<std::size_t>(q * static_cast<double>(all.size())));
            return all[index] / 1000.0;
        };
        figures.p50Us = at(0.5);
        figures.p99Us = at(0.99);
        figures.p999Us = at(0.999);
    }
    return figures;
}

void PrintRow(const char* name, const Figures& f) {
    std::printf("%-34s %9.0f %9.0f %8.1f %8.1f %9.1f %8" PRIu64 " %7" PRIu64 "\n", name,
                f.perSecond, f.okPerSecond, f.p50Us, f.p99Us, f.p999Us, f.refused, f.failed);
}

// ---- Child processes, reporting through a pipe ----

bool WriteAll(int fd, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool ReadAll(int fd, void* data, std::size_t size) {
    auto* bytes = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t got = ::read(fd, bytes, size);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

struct Child {
    pid_t pid{-1};
    int fd{-1};
};

// Forks a process that runs work and sends its result back; an application then stays alive,
// with its connections, until it is killed.
Child Spawn(const std::function<ClientResult()>& work, bool stayAlive = false) {
    int fds[2];
    if (::pipe(fds) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        ClientResult result = work();
        const std::uint64_t head[5] = {result.answered, result.refused, result.failed, result.items,
                                       result.latencyNs.size()};
        WriteAll(fds[1], head, sizeof head);
        WriteAll(fds[1], result.latencyNs.data(), result.latencyNs.size() * sizeof(std::uint32_t));
        if (stayAlive) {
            for (;;) {
                ::pause();
            }
        }
        // Skips the destructors of what the driver left behind: the result is out.
        ::_exit(0);
    }
    ::close(fds[1]);
    return {pid, fds[0]};
}

ClientResult Collect(Child& child) {
    ClientResult result;
    std::uint64_t head[5] = {};
    if (ReadAll(child.fd, head, sizeof head)) {
        result.answered = head[0];
        result.refused = head[1];
        result.failed = head[2];
        result.items = head[3];
        result.latencyNs.resize(head[4]);
        ReadAll(child.fd, result.latencyNs.data(), head[4] * sizeof(std::uint32_t));
    }
    ::close(child.fd);
    ::waitpid(child.pid, nullptr, 0);
    return result;
}

std::vector<ClientResult> RunAll(std::vector<Child> children) {
    std::vector<ClientResult> results;
    results.reserve(children.size());
    for (auto& child : children) {
        results.push_back(Collect(child));
    }
    return results;
}

// Runs call until the deadline, timing each; call returns 0 answered, 1 refused, 2 failed.
template <typename Call>
ClientResult Loop(Clock::time_point deadline, Call call) {
    ClientResult result;
    result.latencyNs.reserve(1 << 16);
    while (Clock::now() < deadline) {
        const auto start = Clock::now();
        const int outcome = call(result);
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
        if (outcome == 2) {
            ++result.failed;
            continue;
        }
        ++result.answered;
        result.refused += outcome == 1 ? 1 : 0;
        result.latencyNs.push_back(
            static_cast<std::uint32_t>(std::min<std::int64_t>(ns.count(), UINT32_MAX)));
    }
    return result;
}

bool IsRefusal(const ara::core::ErrorCode& error) {
    return error.Domain().Id() == lumo::vcc::api::types::ComErrorDomain::kId &&
           error.Value() == static_cast<ara::core::ErrorDomain::CodeType>(
                                lumo::vcc::api::types::ComErrc::kMaxSamplesExceeded);
}

template <typename Output>
int Outcome(ara::core::Future<Output> future, ClientResult& result,
            std::size_t (*count)(const Output&) = nullptr) {
    auto answer = future.GetResult();
    if (answer.HasValue()) {
        if (count != nullptr) {
            result.items = count(answer.Value());
        }
        return 0;
    }
    return IsRefusal(answer.Error()) ? 1 : 2;
}

// An event registration of one application; key picks the SOME/IP event id.
AppRegisterInfo EventRegistration(const std::string& app, std::uint16_t service, std::uint16_t key,
                                  DriverKind driver) {
    AppRegisterInfo info;
    info.infoType = AppRegisterInfoType::EVENT;
    info.isPub = true;
    auto& event = info.eventInfo;
    event.appName = app;
    event.name = "LoadEvent";
    event.text = "LoadType";
    event.eventType = "LoadType";
    event.pid = ::getpid();
    event.isRegister = true;
    vesk::wardend::EventInfo entry;
    if (driver == DriverKind::kDds) {
        entry.dds.serviceId = service;
        entry.dds.instanceId = key;
        entry.dds.topicName = "load/" + app;
        event.eventMap_[vesk::wardend::DriverType::DDS] = entry;
    } else {
        entry.someip.serviceId = service;
        entry.someip.instanceId = 1;
        entry.someip.eventId = static_cast<std::uint16_t>(0x8000U | key);
        entry.someip.instanceShortName = "/load/" + app;
        event.eventMap_[vesk::wardend::DriverType::SOMEIP] = entry;
    }
    return info;
}

AppRegisterInfo NodeRegistration(const std::string& app) {
    AppRegisterInfo info;
    info.infoType = AppRegisterInfoType::NODE;
    info.nodeInfo.pid = ::getpid();
    info.nodeInfo.nodeName = app;
    info.nodeInfo.registerState.isRegister = true;
    return info;
}

ProxyOptions ClientOptions(const Options& options, std::chrono::milliseconds timeout) {
    return ProxyOptions{options.driver, "1", timeout};
}

// Registers until done, waiting out refusals of the traffic control; false on any other error.
bool RegisterPatiently(VESKWardendAppServiceProxy& app, const AppRegisterInfo& info) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        auto answer = app.RegisterAppInfo(info).GetResult();
        if (answer.HasValue()) {
            return answer.Value().result == 0;
        }
        if (!IsRefusal(answer.Error())) {
            std::fprintf(stderr, "registration failed: %s\n",
                         vesk::wardend::proxy::DescribeError(answer.Error()).c_str());
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

// ---- Raw epoll echo server: reads requests of one size and answers each with a reply ----

class EchoServer {
public:
    EchoServer(std::size_t requestSize, std::size_t replySize)
        : requestSize_(requestSize), reply_(replySize, '\x5a') {
        listen_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(listen_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listen_, 64) != 0) {
            std::perror("echo server");
            std::exit(1);
        }
        socklen_t length = sizeof address;
        ::getsockname(listen_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        epoll_ = ::epoll_create1(0);
        Watch(listen_);
        thread_ = std::thread([this] { Run(); });
    }
    ~EchoServer() {
        stop_ = true;
        thread_.join();
        ::close(epoll_);
        ::close(listen_);
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;

    std::uint16_t Port() const { return port_; }

private:
    void Watch(int fd) const {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = fd;
        ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
    }

    void Run() {
        std::vector<std::size_t> pending(1024, 0);
        std::vector<char> buffer(std::size_t{64} * 1024);
        epoll_event events[64];
        while (!stop_) {
            const int ready = ::epoll_wait(epoll_, events, 64, 50);
            for (int i = 0; i < ready; ++i) {
                const int fd = events[i].data.fd;
                if (fd == listen_) {
                    const int client = ::accept4(listen_, nullptr, nullptr, SOCK_NONBLOCK);
                    if (client >= 0 && static_cast<std::size_t>(client) < pending.size()) {
                        const int one = 1;
                        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
                        pending[static_cast<std::size_t>(client)] = 0;
                        Watch(client);
                    } else if (client >= 0) {
                        ::close(client);
                    }
                    continue;
                }
                const ssize_t got = ::read(fd, buffer.data(), buffer.size());
                if (got <= 0) {
                    ::close(fd);
                    continue;
                }
                auto& have = pending[static_cast<std::size_t>(fd)];
                have += static_cast<std::size_t>(got);
                while (have >= requestSize_) {
                    have -= requestSize_;
                    // A reply of a few bytes always fits the socket buffer of a ping-pong.
                    (void)::send(fd, reply_.data(), reply_.size(), MSG_NOSIGNAL);
                }
            }
        }
    }

    std::size_t requestSize_;
    std::string reply_;
    int listen_{-1};
    int epoll_{-1};
    std::uint16_t port_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

ClientResult EchoClient(std::uint16_t port, std::size_t requestSize, std::size_t replySize,
                        Clock::time_point deadline) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const int one = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    const std::string request(requestSize, '\x11');
    std::string reply(replySize, '\0');
    return Loop(deadline, [&](ClientResult&) {
        if (!WriteAll(fd, request.data(), request.size()) ||
            !ReadAll(fd, reply.data(), reply.size())) {
            return 2;
        }
        return 0;
    });
}

// The wire sizes of one registration and its reply over SOME/IP: header and payload.
std::pair<std::size_t, std::size_t> WireSizes(const AppRegisterInfo& info) {
    const lumo::vcc::ServiceConfig config;
    const auto method = lumo::vcc::MakeMethodInfo(vesk::wardend::AppServiceIdentifier(), "1",
                                                  vesk::wardend::AppServiceIds::kRegisterAppInfo,
                                                  DriverKind::kSomeip, config);
    lumo::serialize::someip::Serializer<AppRegisterInfo> request(info, method->requestConfig);
    const vesk::wardend::RegisterAppInfoOutput output{};
    lumo::serialize::someip::Serializer<vesk::wardend::RegisterAppInfoOutput> reply(
        output, method->replyConfig);
    return {16 + request.GetSize(), 16 + reply.GetSize()};
}

// ---- The daemon and what /proc says of it ----

struct DaemonState {
    long threads{0};
    long fds{0};
    long rssKb{0};
    long anonKb{0};   // of the RSS: heap and stacks, not code or files
    long pssKb{0};    // shared pages counted by the share of each process that maps them
    double cpuMs{0};  // user and system time so far
};

DaemonState ReadState(pid_t pid) {
    DaemonState state;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Threads:", 0) == 0) {
            state.threads = std::strtol(line.c_str() + 8, nullptr, 10);
        } else if (line.rfind("VmRSS:", 0) == 0) {
            state.rssKb = std::strtol(line.c_str() + 6, nullptr, 10);
        } else if (line.rfind("RssAnon:", 0) == 0) {
            state.anonKb = std::strtol(line.c_str() + 8, nullptr, 10);
        }
    }
    std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
    while (std::getline(rollup, line)) {
        if (line.rfind("Pss:", 0) == 0) {
            state.pssKb = std::strtol(line.c_str() + 4, nullptr, 10);
        }
    }
    // utime and stime, fields 14 and 15, after the command in parentheses.
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    if (std::getline(stat, line)) {
        std::istringstream fields(line.substr(line.rfind(')') + 2));
        std::string field;
        double ticks = 0;
        for (int index = 3; fields >> field && index <= 15; ++index) {
            ticks += index >= 14 ? std::strtod(field.c_str(), nullptr) : 0;
        }
        state.cpuMs = ticks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    if (DIR* dir = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            state.fds += entry->d_name[0] == '.' ? 0 : 1;
        }
        ::closedir(dir);
    }
    return state;
}

void PrintState(const char* when, const DaemonState& state) {
    std::printf(
        "daemon %-28s threads %3ld  fds %3ld  RSS %6ld kB (anonymous %6ld kB)  PSS %6ld kB\n", when,
        state.threads, state.fds, state.rssKb, state.anonKb, state.pssKb);
}

std::string g_workDir;  // the daemon's config, log and msg directory

pid_t StartDaemon(const Options& options) {
    char pattern[] = "/tmp/wardend_load_XXXXXX";
    g_workDir = ::mkdtemp(pattern);
    std::ofstream(g_workDir + "/vesk.json") << R"({"Log": {"level": "warn"}})";
    // The clients read the same file: it names the services' drivers.
    ::setenv("VESK_CONFIG",
             (options.config.empty() ? g_workDir + "/vesk.json" : options.config).c_str(), 1);
    // The registered type exists, so that the reader thread finds its file and logs nothing.
    std::ofstream(g_workDir + "/LoadType.msg")
        << R"({"Name": "LoadType", "Type": "TYPE_STRUCT", "Members": [{"Name": "a", "Type": "uint8"}]})";
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int log = ::open((g_workDir + "/wardend.log").c_str(), O_WRONLY | O_CREAT, 0600);
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
        const std::string dir = g_workDir + "/";
        ::execl(options.daemon.c_str(), "wardend", "-p", dir.c_str(), nullptr);
        ::_exit(127);
    }
    return pid;
}

bool WaitForDaemon(const Options& options) {
    Child probe = Spawn([&options] {
        VESKWardendToolsServiceProxy tools(ClientOptions(options, std::chrono::seconds(2)));
        ClientResult result;
        result.answered = tools.WaitForService(std::chrono::seconds(20)) ? 1 : 0;
        return result;
    });
    return Collect(probe).answered == 1;
}

// ---- The phases ----

std::vector<ClientResult> RegisterPhase(const Options& options, int clients, bool toolLoop,
                                        ClientResult* toolResult) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(options.seconds));
    std::vector<Child> children;
    children.reserve(static_cast<std::size_t>(clients));
    for (int c = 0; c < clients; ++c) {
        children.push_back(Spawn([&options, c, deadline] {
            VESKWardendAppServiceProxy app(ClientOptions(options, std::chrono::seconds(2)));
            app.WaitForService(std::chrono::seconds(10));
            const std::string name = "loadClient" + std::to_string(c);
            std::vector<AppRegisterInfo> infos;
            for (std::uint16_t key = 0; key < 16; ++key) {
                infos.push_back(EventRegistration(name, static_cast<std::uint16_t>(0x6000 + c), key,
                                                  options.driver));
            }
            std::size_t next = 0;
            return Loop(deadline, [&](ClientResult& result) {
                return Outcome(app.RegisterAppInfo(infos[next++ % infos.size()]), result);
            });
        }));
    }
    Child tool;
    if (toolLoop) {
        tool = Spawn([&options, deadline] {
            VESKWardendToolsServiceProxy tools(ClientOptions(options, std::chrono::seconds(10)));
            tools.WaitForService(std::chrono::seconds(10));
            return Loop(deadline, [&](ClientResult& result) {
                return Outcome<vesk::wardend::QueryEventInfoOutput>(
                    tools.QueryEventInfo("ALL"), result,
                    [](const vesk::wardend::QueryEventInfoOutput& out) {
                        return out.eventInfos.size();
                    });
            });
        });
    }
    auto results = RunAll(std::move(children));
    if (toolLoop) {
        *toolResult = Collect(tool);
    }
    return results;
}

// Applications that register a node and events, say so, and wait to be killed. When
// betweenNodesAndEvents is set, it runs once every application has registered its node and
// before any registers an event, so that the daemon can be measured in between.
std::vector<pid_t> StartApps(const Options& options, int count, int events,
                             const std::string& prefix,
                             const std::function<void()>& betweenNodesAndEvents = {}) {
    // Each application writes a byte to ready when its node is registered, then reads one
    // from go before its events.
    int ready[2] = {-1, -1};
    int go[2] = {-1, -1};
    const bool gated = betweenNodesAndEvents && ::pipe(ready) == 0 && ::pipe(go) == 0;
    std::vector<Child> children;
    children.reserve(static_cast<std::size_t>(count));
    for (int a = 0; a < count; ++a) {
        children.push_back(Spawn(
            [&options, a, events, &prefix, gated, &ready, &go] {
                ClientResult result;
                // Kept until the process is killed, with its connection, as an application's is.
                auto& app =
                    *new VESKWardendAppServiceProxy(  // NOLINT(cppcoreguidelines-owning-memory)
                        ClientOptions(options, std::chrono::seconds(5)));
                const std::string name = prefix + std::to_string(a);
                bool ok = app.WaitForService(std::chrono::seconds(20)) &&
                          RegisterPatiently(app, NodeRegistration(name));
                if (gated) {
                    char byte = 0;
                    ok = WriteAll(ready[1], &byte, 1) && ReadAll(go[0], &byte, 1) && ok;
                }
                for (int e = 0; ok && e < events; ++e) {
                    ok = RegisterPatiently(
                        app, EventRegistration(name, static_cast<std::uint16_t>(0x1000 + a),
                                               static_cast<std::uint16_t>(e), options.driver));
                }
                result.answered = ok ? 1 : 0;
                return result;
            },
            true));
    }
    if (gated) {
        std::vector<char> bytes(static_cast<std::size_t>(count));
        ReadAll(ready[0], bytes.data(), bytes.size());
        betweenNodesAndEvents();
        WriteAll(go[1], bytes.data(), bytes.size());
        for (const int fd : {ready[0], ready[1], go[0], go[1]}) {
            ::close(fd);
        }
    }
    std::vector<pid_t> pids;
    int failed = 0;
    for (auto& child : children) {
        // Reads the head only: the application stays alive until it is killed.
        std::uint64_t head[5] = {};
        if (!ReadAll(child.fd, head, sizeof head) || head[0] != 1) {
            ++failed;
        }
        ::close(child.fd);
        pids.push_back(child.pid);
    }
    if (failed > 0) {
        std::printf("warning: %d of %d applications could not register\n", failed, count);
    }
    return pids;
}

void KillAll(const std::vector<pid_t>& pids) {
    for (const pid_t pid : pids) {
        ::kill(pid, SIGKILL);
    }
    for (const pid_t pid : pids) {
        ::waitpid(pid, nullptr, 0);
    }
}

int Churn(const Options& options, pid_t daemon) {
    const DaemonState before = ReadState(daemon);
    PrintState("before churn", before);
    const auto start = Clock::now();
    for (int done = 0; done < options.churn; done += options.batch) {
        const int count = std::min(options.batch, options.churn - done);
        KillAll(StartApps(options, count, 5, "churn" + std::to_string(done) + "_"));
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("churn: %d applications (node + 5 events each), %d at a time, SIGKILL, in %.1f s\n",
                options.churn, options.batch, seconds);
    Child query = Spawn([&options] {
        ClientResult result;
        VESKWardendToolsServiceProxy tools(ClientOptions(options, std::chrono::seconds(10)));
        tools.WaitForService(std::chrono::seconds(10));
        auto nodes = tools.QueryNodeInfo("ALL").GetResult();
        if (!nodes.HasValue()) {
            result.failed = 1;
            return result;
        }
        result.answered = 1;
        for (const auto& node : nodes.Value().nodeInfos) {
            result.items += node.nodeName.rfind("churn", 0) == 0 ? 1 : 0;
        }
        return result;
    });
    const ClientResult listed = Collect(query);
    const DaemonState after = ReadState(daemon);
    PrintState("after churn", after);
    std::printf("node list after churn: %s, %" PRIu64 " churned nodes listed\n",
                listed.answered == 1 ? "answered" : "NO ANSWER", listed.items);
    const bool clean = listed.answered == 1 && listed.items == 0 && after.fds <= before.fds &&
                       after.threads <= before.threads;
    std::printf("churn %s\n", clean ? "clean" : "NOT CLEAN");
    return clean ? 0 : 1;
}

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "%s needs a value\n", arg.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--daemon") {
            options.daemon = value();
        } else if (arg == "--config") {
            options.config = value();
        } else if (arg == "--pid") {
            options.daemonPid = static_cast<pid_t>(std::stol(value()));
        } else if (arg == "--clients") {
            options.clients = std::stoi(value());
        } else if (arg == "--seconds") {
            options.seconds = std::stod(value());
        } else if (arg == "--driver") {
            const std::string driver = value();
            options.driver = driver == "dds" ? DriverKind::kDds : DriverKind::kSomeip;
        } else if (arg == "--apps") {
            options.apps = std::stoi(value());
        } else if (arg == "--events") {
            options.eventsPerApp = std::stoi(value());
        } else if (arg == "--queries") {
            options.queries = std::stoi(value());
        } else if (arg == "--churn") {
            options.churn = std::stoi(value());
        } else if (arg == "--batch") {
            options.batch = std::max(1, std::stoi(value()));
        } else {
            std::fprintf(stderr,
                         "usage: wardend_load (--daemon PATH [--config VESK_JSON] | --pid PID) "
                         "[--clients N] "
                         "[--seconds S] [--driver someip|dds] [--apps N] [--events N] "
                         "[--queries N] [--churn N [--batch N]]\n");
            std::exit(2);
        }
    }
    if (options.daemon.empty() && options.daemonPid < 0) {
        std::fprintf(stderr, "wardend_load: give --daemon PATH or --pid PID\n");
        std::exit(2);
    }
    return options;
}

constexpr int kToolKeptBytes = 32 << 20;

// Times QueryEventInfo("ALL") from one tool process. With keepMemory the tool keeps what the
// answer's records freed for the next answer, as the daemon does; without it glibc hands that
// back at once and every answer faults its records in afresh. The two rows tell the tool's own
// page faults apart from the daemon and the wire.
void TimeQueryAll(const Options& options, bool keepMemory) {
    Child query = Spawn([&options, keepMemory] {
        if (keepMemory) {
            (void)mallopt(M_MMAP_THRESHOLD, kToolKeptBytes);
            (void)mallopt(M_TRIM_THRESHOLD, kToolKeptBytes);
        }
        VESKWardendToolsServiceProxy tools(ClientOptions(options, std::chrono::seconds(10)));
        tools.WaitForService(std::chrono::seconds(10));
        ClientResult result;
        for (int q = 0; q < options.queries; ++q) {
            const auto start = Clock::now();
            auto answer = tools.QueryEventInfo("ALL").GetResult();
            const auto ns =
                std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
            if (!answer.HasValue()) {
                result.refused += IsRefusal(answer.Error()) ? 1 : 0;
                ++result.failed;
                continue;
            }
            ++result.answered;
            result.items = answer.Value().eventInfos.size();
            result.latencyNs.push_back(static_cast<std::uint32_t>(ns.count()));
        }
        return result;
    });
    std::vector<ClientResult> queryResults{Collect(query)};
    const auto queryCount = static_cast<double>(queryResults[0].answered);
    Figures all = Summarise(queryResults, 1.0);
    all.perSecond = queryCount;
    std::printf("%-34s %9s %9s %8.1f %8.1f %9.1f %8" PRIu64 " %7" PRIu64 "  (%" PRIu64
                " records, %.0f queries)\n",
                keepMemory ? "  the same, memory kept" : "QueryEventInfo(\"ALL\"), one tool", "-",
                "-", all.p50Us, all.p99Us, all.p999Us, all.refused, all.failed, all.items,
                queryCount);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = Parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    const bool started = !options.daemon.empty();
    const pid_t daemon = started ? StartDaemon(options) : options.daemonPid;
    const auto stopDaemon = [&] {
        if (!started) {
            return 0;
        }
        ::kill(daemon, SIGTERM);
        int status = 0;
        ::waitpid(daemon, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    };
    if (!WaitForDaemon(options)) {
        std::fprintf(stderr, "wardend_load: the daemon does not answer\n");
        stopDaemon();
        return 1;
    }
    const char* driverName = options.driver == DriverKind::kDds ? "DDS" : "SOME/IP";
    std::printf("wardend_load: %d clients, %.1f s a phase, %s, %u cores\n", options.clients,
                options.seconds, driverName, std::thread::hardware_concurrency());
    PrintState("idle", ReadState(daemon));
    if (options.churn > 0) {
        const int result = Churn(options, daemon);
        stopDaemon();
        return result;
    }

    const auto [requestSize, replySize] =
        WireSizes(EventRegistration("loadClient0", 0x6000, 0, DriverKind::kSomeip));
    std::printf("registration: request %zu bytes, reply %zu bytes on the wire\n\n", requestSize,
                replySize);
    // req/s counts every answer; ok/s leaves out the refusals of the daemon's traffic control
    // (RegisterAppInfo: 1000 calls in 100 ms), which answer at once.
    std::printf("%-34s %9s %9s %8s %8s %9s %8s %7s\n", "phase", "req/s", "ok/s", "p50 us", "p99 us",
                "p99.9 us", "refused", "failed");

    Figures echo;
    {
        EchoServer server(requestSize, replySize);
        const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(options.seconds));
        std::vector<Child> children;
        children.reserve(static_cast<std::size_t>(options.clients));
        for (int c = 0; c < options.clients; ++c) {
            const std::uint16_t port = server.Port();
            children.push_back(
                Spawn([port, requestSize = requestSize, replySize = replySize, deadline] {
                    return EchoClient(port, requestSize, replySize, deadline);
                }));
        }
        auto results = RunAll(std::move(children));
        echo = Summarise(results, options.seconds);
    }
    PrintRow("epoll echo, same sizes", echo);

    auto idleResults = RegisterPhase(options, options.clients, false, nullptr);
    const Figures idle = Summarise(idleResults, options.seconds);
    PrintRow("RegisterAppInfo", idle);
    auto single = RegisterPhase(options, 1, false, nullptr);
    const Figures one = Summarise(single, options.seconds);
    PrintRow("RegisterAppInfo, 1 client", one);
    const DaemonState afterLoad = ReadState(daemon);

    // 10,000 events from 100 applications that stay alive.
    const DaemonState beforeFill = ReadState(daemon);
    DaemonState afterNodes;
    const auto apps = StartApps(options, options.apps, options.eventsPerApp, "loadApp",
                                [&afterNodes, daemon] { afterNodes = ReadState(daemon); });
    const DaemonState afterFill = ReadState(daemon);
    TimeQueryAll(options, false);
    TimeQueryAll(options, true);
    // The daemon keeps what the answers freed while they come: the heap until a quiet second
    // (four periods of its main loop), the large answer blocks until two seconds unused.
    const DaemonState afterQueries = ReadState(daemon);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    const DaemonState quietAfterQueries = ReadState(daemon);

    ClientResult toolResult;
    auto loaded = RegisterPhase(options, options.clients, true, &toolResult);
    const Figures underQuery = Summarise(loaded, options.seconds);
    PrintRow("RegisterAppInfo, tool loops ALL", underQuery);
    std::vector<ClientResult> toolResults{toolResult};
    PrintRow("  the tool's QueryEventInfo(\"ALL\")", Summarise(toolResults, options.seconds));
    KillAll(apps);

    std::printf(
        "\nratio RegisterAppInfo / echo req/s: %.2f answered, %.2f let through "
        "(target >= 0.7)\n",
        echo.perSecond > 0 ? idle.perSecond / echo.perSecond : 0.0,
        echo.perSecond > 0 ? idle.okPerSecond / echo.perSecond : 0.0);
    std::printf("ratio registration p99, tool looping / idle: %.2f (target <= 2)\n",
                idle.p99Us > 0 ? underQuery.p99Us / idle.p99Us : 0.0);
    PrintState("after the load", afterLoad);
    PrintState("before the apps", beforeFill);
    PrintState("after their nodes", afterNodes);
    PrintState("after their events", afterFill);
    PrintState("after the ALL queries", afterQueries);
    PrintState("2.5 s later", quietAfterQueries);
    std::printf("daemon CPU in those 2.5 s: %.0f ms\n",
                quietAfterQueries.cpuMs - afterQueries.cpuMs);
    const long events = static_cast<long>(options.apps) * options.eventsPerApp;
    if (events > 0) {
        // The first counts what the events add; the second also the applications' connections
        // and nodes, spread over their events.
        std::printf(
            "RSS per registered event: %.0f bytes (%ld events of %d apps; %.0f bytes with "
            "the apps' connections and nodes)\n",
            static_cast<double>(afterFill.rssKb - afterNodes.rssKb) * 1024.0 /
                static_cast<double>(events),
            events, options.apps,
            static_cast<double>(afterFill.rssKb - beforeFill.rssKb) * 1024.0 /
                static_cast<double>(events));
    }
    const auto stopStart = Clock::now();
    const int exitCode = stopDaemon();
    if (started) {
        std::printf("daemon stopped with %d in %.0f ms\n", exitCode,
                    std::chrono::duration<double, std::milli>(Clock::now() - stopStart).count());
    }
    return exitCode;
}

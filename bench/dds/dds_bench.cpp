// RegisterAppInfo round trips through the DDS driver's client and server, each in its own
// process, against Cyclone's ddsperf ping-pong of the same payload size with the same Cyclone
// configuration, in one run; then the resident memory of a process that holds an idle server
// driver with its participant and the daemon's fourteen DDS entities.
//
//   wardend_dds_bench [--seconds S] [--rounds R]
//
// The request is a realistic event registration packed by the DDS rules; the reply is a packed
// RegisterAppInfoOutput. The server answers from the receive handler (the daemon goes through its
// method pool instead), and the client sends the next call from the reply handler, as ddsperf's
// ping does. ddsperf prints half the round trip, per second; its figures here are doubled, and
// the median and p99 are the medians of its per-second values. Without CYCLONEDDS_URI in the
// environment both sides run on loopback with unicast discovery, on a domain from the pid.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "binding/serialize/dds_serializer.h"
#include "platform/driver/dds/dds_driver.h"
#include "tests/unit/serialize/sample_records.h"

namespace {

using lumo::driver::dds::DdsDriver;
using lumo::vcc::api::types::EventInfo;
using lumo::vcc::api::types::MethodInfo;
using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kAppService = 0x5700;
constexpr std::uint16_t kToolsService = 0x5701;

const char* const kToolsMethods[] = {
    "QueryAllDataType", "QueryDataType",      "QueryDataTypeRefList",  "QueryEventInfo",
    "QueryEventShow",   "QueryLatencyResult", "QueryLatencyStatus",    "QueryMethodInfo",
    "QueryMethodType",  "QueryNodeInfo",      "QuerySubNodeEventInfo", "SwitchLatencyMode"};

template <typename T>
std::vector<unsigned char> DdsBytes(const T& value) {
    lumo::serialize::dds::Serializer<T> writer(value, lumo::serialize::SerializeConfig{});
    std::vector<unsigned char> out(writer.GetSize());
    writer.Serialize(out.data());
    return out;
}

MethodInfo Method(std::uint32_t domain, std::uint16_t service, std::uint32_t id,
                  const std::string& topic) {
    MethodInfo info;
    info.driverType = lumo::vcc::api::types::DriverType::kDds;
    info.serviceId = service;
    info.instanceId = "1";
    info.entityId = id;
    info.dds.domainId = domain;
    info.dds.topic = topic;
    info.dds.targetInstance = "1";
    return info;
}

MethodInfo RegisterAppInfo(std::uint32_t domain) {
    return Method(domain, kAppService, 60621, "wardend/App/RegisterAppInfo");
}

struct Percentiles {
    double median{0};
    double p99{0};
    std::size_t count{0};
};

double At(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
    return values[index];
}

// A child process of this program, talking over its standard input and output.
class Child {
public:
    explicit Child(const std::vector<std::string>& args) {
        int toChild[2];
        int fromChild[2];
        if (pipe(toChild) != 0 || pipe(fromChild) != 0) {
            std::perror("pipe");
            std::exit(1);
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(toChild[0], 0);
            dup2(fromChild[1], 1);
            close(toChild[1]);
            close(fromChild[0]);
            std::vector<char*> argv{const_cast<char*>("/proc/self/exe")};
            for (const auto& arg : args) {
                argv.push_back(const_cast<char*>(arg.c_str()));
            }
            argv.push_back(nullptr);
            execv("/proc/self/exe", argv.data());
            _exit(127);
        }
        close(toChild[0]);
        close(fromChild[1]);
        input_ = toChild[1];
        output_ = fdopen(fromChild[0], "r");
    }
    ~Child() {
        close(input_);  // the child ends when its input does
        int status = 0;
        waitpid(pid_, &status, 0);
        std::fclose(output_);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t Pid() const { return pid_; }
    std::string ReadLine() {
        char line[256];
        return std::fgets(line, sizeof(line), output_) != nullptr ? line : "";
    }

private:
    pid_t pid_{-1};
    int input_{-1};
    FILE* output_{nullptr};
};

// Child: the server. Answers RegisterAppInfo (or, idle, holds the daemon's entities) until its
// standard input ends.
int Serve(std::uint32_t domain, bool idle) {
    DdsDriver driver;
    std::vector<std::shared_ptr<lumo::vcc::driver::MethodHandler>> handlers;
    std::shared_ptr<lumo::vcc::driver::EventHandler> event;
    const std::vector<unsigned char> reply = DdsBytes(vesk::wardend::RegisterAppInfoOutput{});
    auto handler = driver.CreateMethodHandler(RegisterAppInfo(domain));
    if (handler == nullptr) {
        return 1;
    }
    lumo::vcc::driver::MethodHandler* raw = handler.get();
    handler->SetReceiveHandler([raw, &reply](const lumo::vcc::driver::MethodMsgPtr& msg) {
        lumo::vcc::driver::SizeRecord size;
        size.length = static_cast<std::uint32_t>(reply.size());
        unsigned char* buffer = raw->AllocateBuffer(size, *msg);
        std::memcpy(buffer, reply.data(), reply.size());
        raw->ReplyData(buffer, size, msg, false);
        raw->ReturnLoan(msg->payload);
    });
    handlers.push_back(handler);
    if (idle) {
        for (std::uint32_t i = 0; i < 12; ++i) {
            handlers.push_back(driver.CreateMethodHandler(Method(
                domain, kToolsService, i + 1, std::string("wardend/Tools/") + kToolsMethods[i])));
        }
        EventInfo info;
        info.serviceId = kAppService;
        info.instanceId = "1";
        info.entityId = 30161;
        info.dds.domainId = domain;
        info.dds.topic = "wardend/App/LatencySwitch";
        info.dds.targetInstance = "1";
        event = driver.CreateEventHandler(info);
        driver.OfferService(kToolsService, "1");
    }
    driver.OfferService(kAppService, "1");
    std::printf("ready\n");
    std::fflush(stdout);
    char byte = 0;
    while (read(0, &byte, 1) > 0) {
    }
    return 0;
}

// Round trips through our client, chained from the reply handler, for `duration`.
Percentiles RunOurs(std::uint32_t domain, std::chrono::seconds duration) {
    Child server({"--serve", std::to_string(domain)});
    if (server.ReadLine() != "ready\n") {
        std::fprintf(stderr, "the server did not start\n");
        std::exit(1);
    }
    DdsDriver driver;
    auto client = driver.CreateMethodClient(RegisterAppInfo(domain));
    if (client == nullptr || !client->WaitForService(std::chrono::seconds(10))) {
        std::fprintf(stderr, "the server was not found\n");
        std::exit(1);
    }
    const std::vector<unsigned char> request = DdsBytes(wardend::test::MakeEventRegistration());

    std::vector<double> rtts;
    rtts.reserve(2'000'000);
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::size_t warmUp = 2000;
    Clock::time_point sent;
    const Clock::time_point end = Clock::now() + duration;
    std::function<void()> next;
    auto onReply = [&](const lumo::vcc::driver::MethodReply& reply) {
        const auto now = Clock::now();
        if (reply.status != lumo::vcc::driver::CallStatus::kOk) {
            std::fprintf(stderr, "call failed: %s\n", reply.reason.c_str());
        } else if (warmUp > 0) {
            --warmUp;
        } else {
            rtts.push_back(std::chrono::duration<double, std::micro>(now - sent).count());
        }
        if (now >= end || reply.status != lumo::vcc::driver::CallStatus::kOk) {
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
            finished.notify_one();
            return;
        }
        next();
    };
    next = [&] {
        sent = Clock::now();
        client->Call(request.data(), request.size(), std::chrono::seconds(5), onReply);
    };
    next();
    std::unique_lock<std::mutex> lock(mutex);
    finished.wait(lock, [&] { return done; });
    return Percentiles{At(rtts, 0.5), At(rtts, 0.99), rtts.size()};
}

// ddsperf ping-pong, two processes; its per-second percentiles are half round trips.
Percentiles RunDdsperf(std::uint32_t domain, std::size_t size, std::chrono::seconds duration) {
    const std::string common = "ddsperf -i " + std::to_string(domain) + " -D " +
                               std::to_string(duration.count() + 1) + " ";
    FILE* pong = popen((common + "pong > /dev/null 2>&1").c_str(), "r");
    FILE* ping = popen((common + "ping size " + std::to_string(size) + " 2>&1").c_str(), "r");
    std::vector<double> medians;
    std::vector<double> p99s;
    std::size_t count = 0;
    char line[512];
    while (ping != nullptr && std::fgets(line, sizeof(line), ping) != nullptr) {
        const char* median = std::strstr(line, " 50% ");
        const char* p99 = std::strstr(line, " 99% ");
        const char* cnt = std::strstr(line, " cnt ");
        if (median != nullptr && p99 != nullptr && cnt != nullptr) {
            medians.push_back(2 * std::strtod(median + 5, nullptr));
            p99s.push_back(2 * std::strtod(p99 + 5, nullptr));
            count += std::strtoull(cnt + 5, nullptr, 10);
        }
    }
    if (ping != nullptr) {
        pclose(ping);
    }
    if (pong != nullptr) {
        pclose(pong);
    }
    return Percentiles{At(medians, 0.5), At(p99s, 0.5), count};
}

// Resident memory (kB) of a child that holds an idle server driver with the daemon's entities.
void ReportIdleRss(std::uint32_t domain) {
    Child server({"--idle", std::to_string(domain)});
    if (server.ReadLine() != "ready\n") {
        std::fprintf(stderr, "the idle server did not start\n");
        return;
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));  // Cyclone's first discovery rounds
    std::ifstream status("/proc/" + std::to_string(server.Pid()) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0 || line.rfind("VmHWM:", 0) == 0) {
            std::printf("idle server with participant, 13 methods, 1 event: %s\n", line.c_str());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    if (argc == 3 &&
        (std::strcmp(argv[1], "--serve") == 0 || std::strcmp(argv[1], "--idle") == 0)) {
        return Serve(static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)),
                     std::strcmp(argv[1], "--idle") == 0);
    }
    std::chrono::seconds duration(5);
    int rounds = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seconds") == 0) {
            duration = std::chrono::seconds(std::strtol(argv[i + 1], nullptr, 10));
        } else if (std::strcmp(argv[i], "--rounds") == 0) {
            rounds = static_cast<int>(std::strtol(argv[i + 1], nullptr, 10));
        }
    }
    const auto domain = 1 + static_cast<std::uint32_t>(getpid()) % 230;
    if (std::getenv("CYCLONEDDS_URI") == nullptr) {
        setenv("CYCLONEDDS_URI",
               "<CycloneDDS><Domain id=\"any\"><General><Interfaces>"
               "<NetworkInterface address=\"127.0.0.1\"/></Interfaces>"
               "<AllowMulticast>false</AllowMulticast></General><Discovery>"
               "<ParticipantIndex>auto</ParticipantIndex><Peers><Peer address=\"127.0.0.1\"/>"
               "</Peers></Discovery></Domain></CycloneDDS>",
               1);
    }
    const std::size_t size = DdsBytes(wardend::test::MakeEventRegistration()).size();
    std::printf(
        "domain %u, request payload %zu bytes (AppRegisterInfo, DDS packing), %lld s "
        "per measurement\n",
        domain, size, static_cast<long long>(duration.count()));
    for (int round = 1; round <= rounds; ++round) {
        const Percentiles perf = RunDdsperf(domain, size, duration);
        const Percentiles ours = RunOurs(domain, duration);
        std::printf("round %d: ddsperf ping-pong  rtt median %7.2f us  p99 %7.2f us  (%zu)\n",
                    round, perf.median, perf.p99, perf.count);
        std::printf("round %d: wardend DDS driver rtt median %7.2f us  p99 %7.2f us  (%zu)\n",
                    round, ours.median, ours.p99, ours.count);
        std::printf("round %d: ratio median %.2f  p99 %.2f\n", round,
                    perf.median > 0 ? ours.median / perf.median : 0.0,
                    perf.p99 > 0 ? ours.p99 / perf.p99 : 0.0);
        std::fflush(stdout);
    }
    ReportIdleRss(domain);
    return 0;
}

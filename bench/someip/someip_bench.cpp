// One request/reply round trip through the SOME/IP driver over TCP (client Call, server handler
// answering at once) next to a raw TCP ping-pong of the same bytes, in one run with the same CPU
// set. Each reports the median and 99th percentile of its round trips; the last benchmark
// reports their ratios.
//
//   build/release/bench/someip/wardend_someip_bench --benchmark_min_time=2

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/driver/someip/someip_driver.h"
#include "platform/driver/someip/someip_header.h"

namespace {

using Clock = std::chrono::steady_clock;
using lumo::driver::someip::kHeaderSize;

// A serialized AppRegisterInfo is about 1.2 kB; its reply is a few bytes.
constexpr std::size_t kRequestPayload = 1200;
constexpr std::size_t kReplyPayload = 4;

struct Figures {
    double median{0};
    double p99{0};
};
Figures someipFigures;
Figures rawFigures;

// Both benchmarks run pinned to the same CPUs: the first two this process may use (all of a
// two-core machine), every thread of either side included.
void PinToSameCores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    cpu_set_t pinned;
    CPU_ZERO(&pinned);
    int taken = 0;
    for (int cpu = 0; cpu < CPU_SETSIZE && taken < 2; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            CPU_SET(cpu, &pinned);
            ++taken;
        }
    }
    // The benchmark thread pins itself; the threads it then creates inherit the set.
    pthread_setaffinity_np(pthread_self(), sizeof pinned, &pinned);
}

Figures Report(benchmark::State& state, std::vector<double>& samples) {
    Figures figures;
    if (samples.empty()) {
        return figures;
    }
    std::sort(samples.begin(), samples.end());
    figures.median = samples[samples.size() / 2];
    figures.p99 = samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
    state.counters["median_us"] = figures.median;
    state.counters["p99_us"] = figures.p99;
    return figures;
}

std::uint16_t FreePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

void BM_SomeipTcpRoundTrip(benchmark::State& state) {
    PinToSameCores();
    namespace types = lumo::vcc::api::types;
    const std::uint16_t port = FreePort();
    const std::uint16_t sdPort = FreePort();
    auto configure = [&](auto& info) {
        info.someip.serviceId = 0x5700;
        info.someip.instanceId = 1;
        info.someip.memberId = 0x0001;
        info.someip.port = port;
        info.someip.sdPort = sdPort;
    };
    lumo::driver::someip::SomeipDriver server;
    types::MethodInfo info;
    configure(info);
    auto handler = server.CreateMethodHandler(info);
    if (handler == nullptr) {
        state.SkipWithError("server could not bind");
        return;
    }
    auto* method = handler.get();
    method->SetReceiveHandler([method](const lumo::vcc::driver::MethodMsgPtr& msg) {
        method->ReturnLoan(msg->payload);
        const lumo::vcc::driver::SizeRecord size{kReplyPayload};
        unsigned char* buffer = method->AllocateBuffer(size, *msg);
        std::memset(buffer, 1, kReplyPayload);
        method->ReplyData(buffer, size, msg, false);
    });
    server.OfferService(0x5700, "1");

    lumo::driver::someip::SomeipDriver client;
    auto call = client.CreateMethodClient(info);
    if (!call->WaitForService(std::chrono::seconds(5))) {
        state.SkipWithError("service not found");
        return;
    }
    const std::vector<unsigned char> request(kRequestPayload, 0x5A);
    std::mutex mutex;
    std::condition_variable answered;
    bool done = false;
    bool ok = true;
    std::vector<double> samples;
    for (auto _ : state) {
        const auto start = Clock::now();
        call->Call(request.data(), request.size(), std::chrono::seconds(5),
                   [&](const lumo::vcc::driver::MethodReply& reply) {
                       std::lock_guard<std::mutex> lock(mutex);
                       ok = ok && reply.status == lumo::vcc::driver::CallStatus::kOk &&
                            reply.size == kReplyPayload;
                       done = true;
                       answered.notify_one();
                   });
        std::unique_lock<std::mutex> lock(mutex);
        answered.wait(lock, [&] { return done; });
        done = false;
        samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    if (!ok) {
        state.SkipWithError("a call failed");
    }
    handler->SetReceiveHandler(nullptr);
    someipFigures = Report(state, samples);
}
BENCHMARK(BM_SomeipTcpRoundTrip)->UseRealTime();

bool ReadAll(int fd, unsigned char* data, std::size_t size) {
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = ::recv(fd, data + got, size - got, 0);
        if (n <= 0) {
            return false;
        }
        got += static_cast<std::size_t>(n);
    }
    return true;
}

bool WriteAll(int fd, const unsigned char* data, std::size_t size) {
    return ::send(fd, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

void BM_RawTcpPingPong(benchmark::State& state) {
    PinToSameCores();
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    ::listen(listener, 1);
    const int one = 1;
    // The same framing as SOME/IP: a 16-byte header carries the length of what follows.
    std::thread peer([listener, one] {
        const int fd = ::accept(listener, nullptr, nullptr);
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::vector<unsigned char> in(kHeaderSize + kRequestPayload);
        std::vector<unsigned char> out(kHeaderSize + kReplyPayload, 1);
        while (ReadAll(fd, in.data(), kHeaderSize)) {
            const std::uint32_t rest = lumo::driver::someip::ReadU32(in.data() + 4) - 8U;
            if (rest > kRequestPayload || !ReadAll(fd, in.data() + kHeaderSize, rest) ||
                !WriteAll(fd, out.data(), out.size())) {
                break;
            }
        }
        ::close(fd);
    });
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    std::vector<unsigned char> request(kHeaderSize + kRequestPayload, 0x5A);
    lumo::driver::someip::WriteU32(request.data() + 4, 8 + kRequestPayload);
    std::vector<unsigned char> reply(kHeaderSize + kReplyPayload);
    std::vector<double> samples;
    for (auto _ : state) {
        const auto start = Clock::now();
        if (!WriteAll(fd, request.data(), request.size()) ||
            !ReadAll(fd, reply.data(), reply.size())) {
            state.SkipWithError("raw ping-pong failed");
            break;
        }
        samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    ::close(fd);
    peer.join();
    ::close(listener);
    rawFigures = Report(state, samples);
}
BENCHMARK(BM_RawTcpPingPong)->UseRealTime();

void BM_RatioSomeipToRawTcp(benchmark::State& state) {
    for (auto _ : state) {
    }
    if (rawFigures.median > 0 && rawFigures.p99 > 0) {
        state.counters["median_ratio"] = someipFigures.median / rawFigures.median;
        state.counters["p99_ratio"] = someipFigures.p99 / rawFigures.p99;
    }
}
BENCHMARK(BM_RatioSomeipToRawTcp)->Iterations(1);

}  // namespace

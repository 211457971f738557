#include "tests/unit/someip/tshark_capture.h"

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>
#include <utility>

#include "tests/unit/someip/someip_peer.h"

namespace wardend::test::someip {

namespace {

using namespace std::chrono_literals;

std::uintmax_t FileSize(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    return file ? static_cast<std::uintmax_t>(file.tellg()) : 0;
}

}  // namespace

bool MayCapture() {
    if (::geteuid() == 0) {
        return true;
    }
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("CapEff:", 0) == 0) {
            const unsigned long long caps = std::stoull(line.substr(7), nullptr, 16);
            return (caps & (1ULL << 13U)) != 0;  // CAP_NET_RAW
        }
    }
    return false;
}

std::string Tshark() {
    for (const char* path : {"/usr/bin/tshark", "/usr/local/bin/tshark"}) {
        if (::access(path, X_OK) == 0) {
            return path;
        }
    }
    return {};
}

LoopbackCapture::LoopbackCapture(std::string tshark, std::string address, std::string file)
    : tshark_(std::move(tshark)), address_(std::move(address)), file_(std::move(file)) {
    capturing_ = std::make_unique<ChildProcess>(
        tshark_, std::vector<std::string>{"-i", "lo", "-f", "host " + address_, "-w", file_});
    if (!capturing_->WaitForStderr("Capturing on", 10s)) {
        return;
    }
    // The capture runs a little after tshark says so: probe datagrams (to the discard port,
    // which nobody serves) until the first one is in the file.
    RawUdpPeer probe;
    const std::uintmax_t empty = FileSize(file_);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
        probe.SendTo(address_.c_str(), 9, {0});
        std::this_thread::sleep_for(20ms);
        if (FileSize(file_) > empty && FileSize(file_) > 0) {
            started_ = true;
            return;
        }
    }
}

bool LoopbackCapture::Stop() {
    // The last frames (StopOffer, StopSubscribe) are written before tshark stops.
    std::this_thread::sleep_for(300ms);
    capturing_->Signal(SIGINT);
    return capturing_->WaitExit(10s).has_value();
}

RunResult LoopbackCapture::Read(std::vector<std::string> args,
                                const std::vector<std::uint16_t>& ports,
                                std::uint16_t sdPort) const {
    args.insert(args.begin(), {"-r", file_});
    args.insert(args.end(), {"-d", "udp.port==" + std::to_string(sdPort) + ",someip"});
    for (const std::uint16_t port : ports) {
        for (const char* protocol : {"tcp", "udp"}) {
            args.insert(args.end(), {"-d", std::string(protocol) +
                                               ".port==" + std::to_string(port) + ",someip"});
        }
    }
    return RunToEnd(tshark_, args);
}

RunResult LoopbackCapture::Detail(const std::vector<std::uint16_t>& ports,
                                  std::uint16_t sdPort) const {
    return Read({"-V"}, ports, sdPort);
}

RunResult LoopbackCapture::Rows(const std::vector<std::uint16_t>& ports,
                                std::uint16_t sdPort) const {
    std::vector<std::string> args = {"-Y", "someip", "-T", "fields", "-E", "separator=;"};
    for (const char* field : {"ip.proto", "someip.messagetype", "someip.returncode",
                              "someipsd.entry.type", "someip.serviceid", "someip.methodid"}) {
        args.insert(args.end(), {"-e", field});
    }
    return Read(args, ports, sdPort);
}

std::string LoopbackCapture::FirstMark(const std::string& detail) {
    for (const char* mark : {"Malformed", "malformed", "truncated", "Truncated",
                             "Expert Info (Error", "Expert Info (Warning"}) {
        const auto at = detail.find(mark);
        if (at != std::string::npos) {
            return std::string(mark) + "\n" + detail.substr(at > 2000 ? at - 2000 : 0, 4000);
        }
    }
    return {};
}

}  // namespace wardend::test::someip

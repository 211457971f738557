#ifndef TESTS_UNIT_SOMEIP_TSHARK_CAPTURE_H
#define TESTS_UNIT_SOMEIP_TSHARK_CAPTURE_H

// A capture on the loopback interface, judged afterwards by tshark's SOME/IP and SOME/IP-SD
// dissectors.

#include <memory>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace wardend::test::someip {

// Root or CAP_NET_RAW: capturing on lo is permitted.
bool MayCapture();
// The tshark binary, or empty.
std::string Tshark();

class LoopbackCapture {
public:
    // Starts tshark on the traffic of host `address`, writing to file; Started() says whether
    // the capture runs (tshark may take a moment).
    LoopbackCapture(std::string tshark, std::string address, std::string file);
    bool Started() const { return started_; }
    std::string Stderr() const { return capturing_->Stderr(); }
    // Stops the capture, after a pause for the last frames.
    bool Stop();

    // tshark -V of the capture, with the ports decoded as SOME/IP (SD on sdPort).
    RunResult Detail(const std::vector<std::uint16_t>& ports, std::uint16_t sdPort) const;
    // One row per SOME/IP message: ip.proto;messagetype;returncode;sd entry type;serviceid;
    // methodid.
    RunResult Rows(const std::vector<std::uint16_t>& ports, std::uint16_t sdPort) const;

    // The first mark of a malformed, truncated or wrong frame in a -V text, or empty.
    static std::string FirstMark(const std::string& detail);

private:
    // tshark on the capture with args, the ports decoded as SOME/IP.
    RunResult Read(std::vector<std::string> args, const std::vector<std::uint16_t>& ports,
                   std::uint16_t sdPort) const;

    std::string tshark_;
    std::string address_;
    std::string file_;
    std::unique_ptr<ChildProcess> capturing_;
    bool started_{false};
};

}  // namespace wardend::test::someip

#endif

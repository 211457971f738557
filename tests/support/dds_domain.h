#ifndef TESTS_SUPPORT_DDS_DOMAIN_H
#define TESTS_SUPPORT_DDS_DOMAIN_H

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tests/support/wait.h"

namespace wardend::test {

// A DDS domain of this test process's own, on the loopback interface only: the domain id and a
// discovery tag come from the pid, and CYCLONEDDS_URI keeps Cyclone on 127.0.0.1 with unicast
// discovery. The
// constructor sets CYCLONEDDS_URI in this process (before any participant is made); ChildEnv()
// passes it to a child such as wardend, whose vesk.json then names Id() as its domain.
class DdsTestDomain {
public:
    DdsTestDomain();

    std::uint32_t Id() const { return id_; }
    const std::string& CycloneConfig() const { return config_; }
    std::vector<std::string> ChildEnv() const { return {"CYCLONEDDS_URI=" + config_}; }

    // The names of the topics of every publication and subscription on the domain, as plain
    // readers of Cyclone's built-in topics see them; waits up to timeout until every name of
    // expected is among them.
    std::set<std::string> WaitForTopics(const std::set<std::string>& expected,
                                        std::chrono::milliseconds timeout) const;

private:
    std::uint32_t id_;
    std::string config_;
};

}  // namespace wardend::test

#endif

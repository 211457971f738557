#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "binding/proloc/proloc_memory_factory.h"

namespace {

using lumo::driver::proloc::ProlocEntityIndex;

struct Sample {
    std::uint64_t value{0};
};

// Clients come and go, read and return while a publisher writes: every sample a client reads
// stays valid until it returns it, and the store's lock hand-off holds under ThreadSanitizer.
TEST(ProlocEventMemoryConcurrencyTest, ClientsAddReadReturnAndEraseWhilePublishing) {
    lumo::driver::proloc::ProlocEventMemory<Sample> sut;
    const ProlocEntityIndex index{0x5700, "1", 30161};
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> read{0};

    std::thread publisher([&] {
        // On until the clients have read some, however the threads are scheduled.
        for (std::uint64_t i = 1; i <= 3000 || (read.load() < 100 && i <= 3000000); ++i) {
            sut.AddProlocData(Sample{i}, index, (i % 2) == 0);
        }
        stop = true;
    });
    std::vector<std::thread> clients;
    for (unsigned long uid = 1; uid <= 3; ++uid) {
        clients.emplace_back([&, uid] {
            while (!stop) {
                sut.EnableClient(index, uid, 4, true, [] {});
                for (int round = 0; round < 20; ++round) {
                    for (const auto* sample : sut.ReadSamples(index, uid, 3)) {
                        EXPECT_GT(reinterpret_cast<const Sample*>(sample)->value, 0U);
                        sut.ReturnLoan(index, uid, sample);
                        ++read;
                    }
                    (void)sut.GetSampleCount(index, uid);
                }
                sut.EraseClient(index, uid);
            }
        });
    }
    publisher.join();
    for (auto& client : clients) {
        client.join();
    }
    EXPECT_GT(read.load(), 0U);
}

}  // namespace

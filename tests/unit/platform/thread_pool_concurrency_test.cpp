#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/vcc/utils/thread_pool.h"

namespace {

using lumo::vcc::utils::ThreadPool;

// Producers race each other, the workers (for the tasks they take back) and a Stop: every
// accepted task ran once or was counted as dropped, and nothing runs after Stop returns.
TEST(ThreadPoolConcurrencyTest, AcceptedTasksRunOrAreDroppedNeverBoth) {
    ThreadPool sut(3, 256, "wrdn_conc");
    std::atomic<long> accepted{0};
    std::atomic<long> ran{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < 5000; ++i) {
                ThreadPool::FirstQueued first;
                if (sut.Enqueue([&] { ++ran; }, static_cast<std::uint32_t>(p))) {
                    ++accepted;
                }
                if (i % 2 == 0) {
                    (void)first.Take().RunHere();
                }
            }
        });
    }
    std::this_thread::yield();
    sut.Stop();
    for (auto& producer : producers) {
        producer.join();
    }
    const long ranAtStop = ran.load();
    EXPECT_EQ(ranAtStop + static_cast<long>(sut.DroppedCount()), accepted.load());
    EXPECT_EQ(ran.load(), ranAtStop);
}

}  // namespace

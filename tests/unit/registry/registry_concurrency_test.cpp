// Several threads register, unregister and query all registries at once, taking registerMutex
// where the service layer takes it. A child forked before the threads start replays the same
// operations one thread after the other from the same state; both final tables must agree.
//
// Each thread works on keys and applications of its own, so that only the shared maps and
// locks are contended. Subscribers and clients are alive processes and servers may be dead:
// the queries then only ever move a dead server offline, which a final query does anyway, and
// the final tables do not depend on the interleaving. Latency switches leave handlers in the
// event registry, which every later registration of those events runs.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iomanip>
#include <sstream>
#include <thread>
#include <type_traits>

#include "binding/serialize/serialize_traits.h"
#include "platform/log/log.h"
#include "registry/e2e_info_manage.h"
#include "registry/event_info_manage.h"
#include "registry/event_latency_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "service/register_mutex.h"
#include "tests/support/process.h"
#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the registries under test
using ara::tessel::common::log::Log;
using ara::tessel::common::log::LogLevel;
using wardend::test::Event;
using wardend::test::EventShape;
using wardend::test::Field;
using wardend::test::Method;
using wardend::test::MethodShape;

constexpr int kThreads = 4;
constexpr auto kRunTime = std::chrono::seconds(3);
constexpr auto kDeadlockLimit = std::chrono::seconds(120);

struct Pids {
    std::int32_t alive{};
    std::int32_t dead{};
};

std::uint64_t Mix(std::uint64_t x) {  // splitmix64
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27U)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31U);
}

// Operation i of thread t, the same in the parent and in the replaying child.
void Execute(int t, std::uint64_t i, const Pids& pids) {
    const std::uint64_t r = Mix((static_cast<std::uint64_t>(t) << 48U) ^ i);
    const unsigned kind = r % 20U;
    const unsigned k = (r >> 8U) % 3U;         // which of the thread's three keys
    const unsigned app = (r >> 16U) % 3U;      // app 2 is a dead server
    const unsigned drivers = (r >> 24U) % 3U;  // DDS, SOME/IP or both
    const bool dds = drivers != 1;
    const bool someip = drivers != 0;
    const auto service = static_cast<std::uint16_t>(5000 + t * 10 + static_cast<int>(k));
    const std::string tag = "t" + std::to_string(t) + "_";
    const bool deadServer = app == 2;
    const std::string serverName = tag + (deadServer ? "dead" : "srv" + std::to_string(app));
    const std::string clientName = tag + "cli" + std::to_string(app);
    const std::int32_t serverPid = deadServer ? pids.dead : pids.alive;

    EventShape event{"", tag + "E" + std::to_string(k), pids.alive, service};
    event.profile = ((r >> 32U) % 2U) != 0 ? E2EProfile::kProfile4 : E2EProfile::kNone;
    MethodShape method{"", tag + "M" + std::to_string(k), pids.alive, service};
    const std::string fieldType = tag + "F" + std::to_string(k);
    const auto fieldInstance = static_cast<std::uint16_t>(1 + (r >> 40U) % 2U);
    const auto field = Field(app == 0 ? serverName : clientName, fieldType, pids.alive,
                             fieldInstance, {{dds ? DriverType::DDS : DriverType::SOMEIP, "/f"}});

    auto& events = EventInfoManage::GetInstance();
    auto& methods = MethodInfoManage::GetInstance();
    auto& fields = FieldInfoManage::GetInstance();
    switch (kind) {
        case 0:
        case 1: {
            const bool isPub = kind == 0;
            event.app = isPub ? serverName : clientName;
            event.pid = isPub ? serverPid : pids.alive;
            const std::lock_guard<std::mutex> lock(RegisterMutex());
            events.RegisterEventInfo(Event(event, dds, someip), isPub);
            break;
        }
        case 2:
        case 3:  // unregistrations name live applications only
            event.app = (kind == 2 ? tag + "srv" : tag + "cli") + std::to_string(app % 2);
            events.UnregisterEventInfo(Event(event, dds, someip), kind == 2);
            break;
        case 4:
        case 5: {
            const bool isPub = kind == 4;
            method.app = isPub ? serverName : clientName;
            method.pid = isPub ? serverPid : pids.alive;
            const std::lock_guard<std::mutex> lock(RegisterMutex());
            methods.RegisterMethodInfo(Method(method, dds, someip), isPub);
            break;
        }
        case 6:
            method.app = (app == 0 ? tag + "srv" : tag + "cli") + std::to_string(app % 2);
            methods.UnregisterMethodInfo(Method(method, dds, someip), app == 0);
            break;
        case 7:
            fields.RegisterFieldInfo(field, app == 0);
            break;
        case 8:
            fields.UnregisterFieldInfo(fieldType, app == 0, field, fieldInstance);
            break;
        case 9:
            events.QueryEventInfo(app == 0 ? "ALL" : event.type);
            break;
        case 10:
            methods.QueryMethodInfo(app == 0 ? "ALL" : method.name);
            break;
        case 11:
        case 12: {
            const std::lock_guard<std::mutex> lock(RegisterMutex());
            NodeInfoManage::GetInstance().QueryNodeInfo(app == 0 ? "ALL" : serverName);
            break;
        }
        case 13: {
            const auto index = wardend::test::SubEventIndex(
                service, dds ? DriverType::DDS : DriverType::SOMEIP, "topic", "other", 1, 7);
            E2EInfoManage::GetInstance()->QuerySubNodeE2EInfo(index);
            events.QuerySubEventInfo(index);
            break;
        }
        case 14: {
            EventInfoWithPubSub out;
            events.QueryEventInfoByType(event.type, out);
            MethodInfoWithPubSub methodOut;
            methods.QueryMethodInfoByType(method.name, methodOut);
            break;
        }
        case 16:
        case 17:
        case 18: {
            // Latency leaves no trace in the dumped tables: its status answers depend on when
            // they were asked. It is here for the lock order with the event registry.
            auto& latency = EventLatencyManage::GetInstance();
            const LatencyIndex index{
                {dds ? DriverType::DDS : DriverType::SOMEIP}, service, 1, "topic", 7};
            LatencyAppInfo info;
            info.applicationName = clientName;
            info.index = index;
            info.status.isSub = true;
            if (kind == 16) {
                latency.SwitchLatencyMode(nullptr, LatencySwitch{LatencyMode::kOn, index});
                latency.QueryLatencyStatus(index);
            } else if (kind == 17) {
                latency.UpdateLatencyStatus(info);
                latency.RecordLatencyResult(info);
            } else {
                latency.QueryLatencyResult(LatencyQueryInfo{60, index});
            }
            break;
        }
        default:
            events.QueryDDSEventInfo(DDSEventKey{service, 1, "topic", 0});
            events.QuerySomeipEventInfo(SomeipEventKey{service, 1, 7, 0});
            break;
    }
}

// A canonical text of every table, to compare across processes.
struct Writer {
    std::ostringstream out;

    template <typename T>
    void operator()(const T& value) {
        Put(value);
    }
    template <typename... T>
    void All(const T&... values) {
        out << '{';
        (Put(values), ...);
        out << '}';
    }
    template <typename A, typename B>
    void Put(const std::pair<A, B>& value) {
        All(value.first, value.second);
    }
    template <typename T>
    void Put(const T& value) {
        if constexpr (std::is_same_v<T, bool> || std::is_integral_v<T>) {
            out << +value << ',';
        } else if constexpr (std::is_enum_v<T>) {
            out << +static_cast<std::underlying_type_t<T>>(value) << ',';
        } else if constexpr (std::is_same_v<T, String>) {
            out << std::quoted(value) << ',';
        } else if constexpr (lumo::serialize::detail::IsRecord<T>::value) {
            out << '{';
            value.enumerate(*this);
            out << '}';
        } else {
            out << '[';
            for (const auto& element : value) {
                Put(element);
            }
            out << ']';
        }
    }
    void Put(const DDSEventKey& k) { All(k.serviceId, k.instanceId, k.topicName); }
    void Put(const SomeipEventKey& k) { All(k.serviceId, k.instanceId, k.eventId); }
    void Put(const DDSMethodKey& k) {
        All(k.serviceId, k.instanceId, k.requestTopicName, k.replyTopicName, k.text);
    }
    void Put(const SomeipMethodKey& k) { All(k.serviceId, k.instanceId, k.methodId); }
    void Put(const DdsE2EKey& k) { All(k.serviceId, k.instanceId, k.eventTopicName); }
    void Put(const SomeipE2EKey& k) { All(k.serviceId, k.instanceId, k.eventId); }
    void Put(const EventRecord& r) {
        All(r.info, r.subInstanceShortNames, r.subEventTypes, r.subPids);
    }
    void Put(const MethodRecord& r) { All(r.info, r.subInstanceShortNames, r.subNames, r.subPids); }
    void Put(const FieldRecord& r) {
        All(r.registerInfo, r.subApps, r.pubApp, r.isOnline, r.subInstanceShortNames,
            r.subFieldTypes, r.subPids);
    }
    void Put(const E2EEventEntry& e) { All(e.info, e.subNodes); }
};

std::string DumpTables() {
    // One last query of each kind moves every dead server offline, as some query may have
    // done already in the concurrent run.
    EventInfoManage::GetInstance().QueryEventInfo("ALL");
    MethodInfoManage::GetInstance().QueryMethodInfo("ALL");
    Writer w;
    w.All(
        NodeInfoManage::GetInstance().Nodes(), EventInfoManage::GetInstance().DdsEvents(),
        EventInfoManage::GetInstance().SomeipEvents(), MethodInfoManage::GetInstance().DdsMethods(),
        MethodInfoManage::GetInstance().SomeipMethods(), FieldInfoManage::GetInstance().DdsFields(),
        FieldInfoManage::GetInstance().SomeipFields(), E2EInfoManage::GetInstance()->DdsEntries(),
        E2EInfoManage::GetInstance()->SomeipEntries());
    return w.out.str();
}

// Moves all of size bytes through read or write, which may each move only a part.
template <typename Io, typename Byte>
bool Transfer(Io io, int fd, Byte* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t n = io(fd, bytes, size);
        if (n <= 0) {
            return false;
        }
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}
bool WriteAll(int fd, const void* data, std::size_t size) {
    return Transfer(write, fd, static_cast<const char*>(data), size);
}
bool ReadAll(int fd, void* data, std::size_t size) {
    return Transfer(read, fd, static_cast<char*>(data), size);
}

// The replayer: waits for the operation counts, replays thread after thread, sends its dump.
[[noreturn]] void Replay(int countsFd, int dumpFd, const Pids& pids) {
    std::uint64_t counts[kThreads] = {};
    if (!ReadAll(countsFd, counts, sizeof(counts))) {
        _exit(2);
    }
    for (int t = 0; t < kThreads; ++t) {
        for (std::uint64_t i = 0; i < counts[t]; ++i) {
            Execute(t, i, pids);
        }
    }
    const std::string dump = DumpTables();
    const std::uint64_t size = dump.size();
    const bool sent = WriteAll(dumpFd, &size, sizeof(size)) && WriteAll(dumpFd, dump.data(), size);
    _exit(sent ? 0 : 3);
}

TEST(RegistryConcurrencyTest, ConcurrentRunEqualsASingleThreadedReplay) {
    Log::SetLevel(LogLevel::kError);  // millions of lines would only slow the run down
    const Pids pids{getpid(), wardend::test::MakeDeadPid()};
    int countsPipe[2];
    int dumpPipe[2];
    ASSERT_EQ(pipe(countsPipe), 0);
    ASSERT_EQ(pipe(dumpPipe), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(countsPipe[1]);
        close(dumpPipe[0]);
        Replay(countsPipe[0], dumpPipe[1], pids);
    }
    close(countsPipe[0]);
    close(dumpPipe[1]);

    std::atomic<bool> stop{false};
    std::mutex doneMutex;
    std::condition_variable doneChanged;
    int done = 0;  // guarded by doneMutex
    std::uint64_t counts[kThreads] = {};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::uint64_t i = 0;
            while (!stop.load()) {
                Execute(t, i++, pids);
            }
            counts[t] = i;
            const std::lock_guard<std::mutex> lock(doneMutex);
            ++done;
            doneChanged.notify_all();
        });
    }
    {
        std::unique_lock<std::mutex> lock(doneMutex);
        // Runs for kRunTime unless every thread is already done.
        doneChanged.wait_for(lock, kRunTime, [&done] { return done == kThreads; });
        stop = true;
        if (!doneChanged.wait_for(lock, kDeadlockLimit, [&done] { return done == kThreads; })) {
            ADD_FAILURE() << "the threads did not finish: deadlock";
            std::_Exit(1);
        }
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::uint64_t total = 0;
    for (const auto count : counts) {
        EXPECT_GT(count, 0U);
        total += count;
    }
    RecordProperty("operations", std::to_string(total));

    const std::string concurrent = DumpTables();
    ASSERT_TRUE(WriteAll(countsPipe[1], counts, sizeof(counts)));
    close(countsPipe[1]);
    std::uint64_t size = 0;
    ASSERT_TRUE(ReadAll(dumpPipe[0], &size, sizeof(size)));
    std::string replayed(size, '\0');
    ASSERT_TRUE(ReadAll(dumpPipe[0], replayed.data(), size));
    close(dumpPipe[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    EXPECT_GT(concurrent.size(), 100U);
    EXPECT_EQ(concurrent, replayed);
}

}  // namespace

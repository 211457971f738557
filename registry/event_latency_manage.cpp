#include "registry/event_latency_manage.h"

#include <ctime>

#include <algorithm>
#include <limits>

#include "records/wardend_log.h"
#include "registry/event_info_manage.h"

namespace vesk::wardend {

namespace {

// Samples beyond this many are dropped from the back before a new one goes in front.
constexpr std::size_t kMaxKeptBeforePush = 3600;

std::uint64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000U +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000000U;
}

DdsLatencyKey DdsKeyOf(const LatencyIndex& index) {
    return DdsLatencyKey{index.serviceId, index.instanceId, index.topicName};
}
SomeipLatencyKey SomeipKeyOf(const LatencyIndex& index) {
    return SomeipLatencyKey{index.serviceId, index.instanceId, index.eventId};
}

// A 128-bit sum, so that 3601 large samples do not wrap before they are averaged.
struct WideSum {
    std::uint64_t high{};
    std::uint64_t low{};

    void Add(std::uint64_t value) {
        low += value;
        if (low < value) {
            ++high;
        }
    }
    // The quotient's low 64 bits; they hold it whole, since an average is at most the largest
    // sample.
    std::uint64_t DividedBy(std::uint64_t divisor) const {
        const std::uint64_t limbs[] = {high >> 32U, high & 0xFFFFFFFFU, low >> 32U,
                                       low & 0xFFFFFFFFU};
        std::uint64_t remainder = 0;
        std::uint64_t quotient = 0;
        for (const std::uint64_t limb : limbs) {
            const std::uint64_t current = (remainder << 32U) | limb;
            quotient = (quotient << 32U) | (current / divisor);
            remainder = current % divisor;
        }
        return quotient;
    }
};

// The samples of one application younger than spanMs; nothing when the newest is older.
bool Summarize(const LatencySampleQueue& queue, std::uint64_t now, std::uint64_t spanMs,
               LatencyResult& result) {
    WideSum sum;
    std::uint64_t count = 0;
    std::uint64_t maximum = 0;
    std::uint64_t minimum = std::numeric_limits<std::uint64_t>::max();
    for (const LatencySample& sample : queue) {
        if (now - sample.time >= spanMs) {
            break;
        }
        sum.Add(sample.value0);
        maximum = std::max(maximum, sample.value1);
        minimum = std::min(minimum, sample.value2);
        ++count;
    }
    if (count == 0) {
        return false;
    }
    result = LatencyResult{sum.DividedBy(count), maximum, minimum};
    return true;
}

template <typename Key>
void Record(std::map<Key, std::map<String, LatencySampleQueue>>& table, const Key& key,
            const String& applicationName, const LatencySample& sample) {
    LatencySampleQueue& queue = table[key][applicationName];
    if (queue.size() > kMaxKeptBeforePush) {
        queue.pop_back();
    }
    queue.push_front(sample);
}

template <typename Key>
void Collect(const std::map<Key, std::map<String, LatencySampleQueue>>& table, const Key& key,
             std::uint64_t now, std::uint64_t spanMs, std::map<String, LatencyResult>& answer) {
    const auto entry = table.find(key);
    if (entry == table.end()) {
        return;
    }
    for (const auto& [applicationName, queue] : entry->second) {
        LatencyResult result;
        if (Summarize(queue, now, spanMs, result)) {
            answer.emplace(applicationName, result);  // an earlier driver's result stays
        }
    }
}

// Brings a status up to date with the event registry, the authority on who exists.
void Reconcile(LatencyEventStatus& status, const EventInfoWithPubSub& event) {
    if (event.pubApp != status.pubName) {
        // The names stand in the opposite order to the acknowledgement's line.
        LogWarn() << "Wardend has new duplicate pub, older pub name is " << event.pubApp
                  << ", will be replace to be " << status.pubName;
    }
    status.pubName = event.pubApp;
    for (auto it = status.subModes.begin(); it != status.subModes.end();) {
        if (std::find(event.subApps.begin(), event.subApps.end(), it->first) ==
            event.subApps.end()) {
            LogInfo() << "Sub " << it->first
                      << " is not find in wardend, erase latency status info";
            it = status.subModes.erase(it);
        } else {
            ++it;
        }
    }
}

template <typename Key>
void AnswerStatus(std::map<Key, LatencyEventStatus>& table, const Key& key,
                  const std::vector<EventInfoWithPubSub>& events, LatencyModes& answer) {
    const auto entry = table.find(key);
    if (entry != table.end()) {
        LatencyEventStatus& status = entry->second;
        if (!events.empty()) {
            Reconcile(status, events.front());
        }
        if (!status.pubName.empty()) {
            answer.pubModes.emplace(status.pubName, status.pubMode);
        }
        answer.subModes.insert(status.subModes.begin(), status.subModes.end());
        return;
    }
    if (events.empty()) {
        return;
    }
    // Without a switch everybody the registry knows is in mode 1, an empty publisher too.
    answer.pubModes.emplace(events.front().pubApp, kUnacknowledgedLatencyMode);
    for (const auto& sub : events.front().subApps) {
        answer.subModes.emplace(sub, kUnacknowledgedLatencyMode);
    }
}

void Acknowledge(LatencyEventStatus& status, const LatencyAppInfo& info) {
    if (info.status.isPub) {
        // The first acknowledgement logs this too, with an empty old name.
        if (status.pubName != info.applicationName) {
            LogWarn() << "Wardend has new duplicate pub, older pub name is " << status.pubName
                      << ", will be replace to be " << info.applicationName;
        }
        status.pubName = info.applicationName;
        status.pubMode = info.status.mode;
    }
    if (info.status.isSub) {
        status.subModes[info.applicationName] = info.status.mode;
    }
}

}  // namespace

EventLatencyManage& EventLatencyManage::GetInstance() {
    static EventLatencyManage instance;
    return instance;
}

void EventLatencyManage::SetLatencySwitchSender(LatencySwitchSender sender) {
    const std::lock_guard<std::mutex> lock(senderLock_);
    sender_ = std::move(sender);
}

void EventLatencyManage::Publish(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                                 const LatencySwitch& latencySwitch) const {
    LatencySwitchSender sender;
    {
        const std::lock_guard<std::mutex> lock(senderLock_);
        sender = sender_;
    }
    if (!sender) {
        LogWarn() << "Wardend latency switch is not sent: no latency switch event";
        return;
    }
    if (!sender(skeleton, latencySwitch)) {
        LogWarn() << "Wardend send latency switch failed";
    }
}

int EventLatencyManage::SwitchLatencyMode(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                                          const LatencySwitch& latencySwitch) {
    {
        const std::lock_guard<std::mutex> lock(statusLock_);
        // The new mode enters the table only with the acknowledgements. Here and in the
        // acknowledgement the test is for SOME/IP; the status query tests for DDS.
        for (const DriverType driver : latencySwitch.index.drivers) {
            if (driver == DriverType::SOMEIP) {
                someipStatus_.emplace(SomeipKeyOf(latencySwitch.index), LatencyEventStatus{});
            } else {
                ddsStatus_.emplace(DdsKeyOf(latencySwitch.index), LatencyEventStatus{});
            }
        }
    }
    RegisterLatencyHandler(skeleton, latencySwitch);
    Publish(skeleton, latencySwitch);
    return 0;
}

void EventLatencyManage::RegisterLatencyHandler(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                                                const LatencySwitch& latencySwitch) const {
    const EventLatencyManage* const self = this;
    auto handler = [self, skeleton, latencySwitch](const EventAllDriverIndex& index) {
        LatencySwitch late;
        late.mode = latencySwitch.mode;
        for (const DriverType driver : index.drivers) {
            if (driver != DriverType::DDS) {
                late.index.serviceId = index.someipServiceId;
                late.index.instanceId = index.someipInstanceId;
                late.index.eventId = index.eventId;
            } else {
                late.index.serviceId = index.ddsServiceId;
                late.index.instanceId = index.ddsInstanceId;
                late.index.topicName = index.topicName;
            }
            late.index.drivers.push_back(driver);
        }
        self->Publish(skeleton, late);
    };
    EventInfoManage::GetInstance().SetEventRegisterHandler(handler, latencySwitch);
}

void EventLatencyManage::UpdateLatencyStatus(const LatencyAppInfo& info) {
    const std::lock_guard<std::mutex> lock(statusLock_);
    const LatencyIndex& index = info.index;
    LogInfo() << "Wardend receive app latency ack info, service id " << index.serviceId
              << " instanceId " << index.instanceId << " topicName " << index.topicName
              << " eventId " << index.eventId;
    for (const DriverType driver : index.drivers) {
        // An acknowledgement never makes an entry.
        if (driver == DriverType::SOMEIP) {
            const auto it = someipStatus_.find(SomeipKeyOf(index));
            if (it != someipStatus_.end()) {
                Acknowledge(it->second, info);
            }
        } else {
            const auto it = ddsStatus_.find(DdsKeyOf(index));
            if (it != ddsStatus_.end()) {
                Acknowledge(it->second, info);
            }
        }
    }
}

void EventLatencyManage::RecordLatencyResult(const LatencyAppInfo& info) {
    const std::lock_guard<std::mutex> lock(resultLock_);
    LogVerbose() << "Receive latency result of applicationName" << info.applicationName;
    for (const DriverType driver : info.index.drivers) {
        const LatencySample sample{info.result.average, info.result.maximum, info.result.minimum,
                                   NowMs()};
        if (driver == DriverType::DDS) {
            Record(ddsResults_, DdsKeyOf(info.index), info.applicationName, sample);
        } else if (driver == DriverType::SOMEIP) {
            Record(someipResults_, SomeipKeyOf(info.index), info.applicationName, sample);
        }
    }
}

std::map<String, LatencyResult> EventLatencyManage::QueryLatencyResult(
    const LatencyQueryInfo& query) {
    const std::uint64_t now = NowMs();
    const std::uint64_t spanMs = static_cast<std::uint64_t>(query.period) * 1000U;
    std::map<String, LatencyResult> answer;
    const std::lock_guard<std::mutex> lock(resultLock_);
    for (const DriverType driver : query.index.drivers) {
        if (driver == DriverType::DDS) {
            Collect(ddsResults_, DdsKeyOf(query.index), now, spanMs, answer);
        } else {
            Collect(someipResults_, SomeipKeyOf(query.index), now, spanMs, answer);
        }
    }
    return answer;
}

LatencyModes EventLatencyManage::QueryLatencyStatus(const LatencyIndex& index) {
    // No blank before "topicName is ".
    LogInfo() << "Query latency mode status, serviceId " << index.serviceId << " instanceId "
              << index.instanceId << "topicName is " << index.topicName << " eventId is "
              << index.eventId;
    LatencyModes answer;
    const std::lock_guard<std::mutex> lock(statusLock_);
    auto& events = EventInfoManage::GetInstance();
    for (const DriverType driver : index.drivers) {
        if (driver != DriverType::DDS) {
            const SomeipLatencyKey key = SomeipKeyOf(index);
            AnswerStatus(someipStatus_, key,
                         events.QuerySomeipEventInfo(
                             SomeipEventKey{key.serviceId, key.instanceId, key.eventId, 0}),
                         answer);
        } else {
            const DdsLatencyKey key = DdsKeyOf(index);
            AnswerStatus(ddsStatus_, key,
                         events.QueryDDSEventInfo(
                             DDSEventKey{key.serviceId, key.instanceId, key.topicName, 0}),
                         answer);
        }
    }
    return answer;
}

}  // namespace vesk::wardend

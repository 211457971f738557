#ifndef TESTS_UNIT_SERVICE_SERVICE_FIXTURE_H
#define TESTS_UNIT_SERVICE_SERVICE_FIXTURE_H

#include <unistd.h>

#include <future>
#include <memory>

#include "catalogue/user_msg_dir.h"
#include "platform/vcc/utils/thread_pool.h"
#include "service/wardend_app_skeleton.h"
#include "service/wardend_tools_skeleton.h"
#include "tests/support/memory_log.h"
#include "tests/support/record_builders.h"

namespace wardend::test {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): test of the whole front

// Both service objects wired as the daemon wires them, with the reader pool, and the example
// .msg files as the user directory.
class ServiceTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        userMsgDir = WARDEND_EXAMPLES_MSG_DIR;
        pool_ = std::make_shared<lumo::vcc::utils::ThreadPool>(1, 2048, "wrdn_rdmsg");
        app_ = std::make_shared<WardendAppSkeleton>();
        app_->SetThreadPool(pool_);
        tools_ = std::make_shared<WardendToolsSkeleton>();
        tools_->SetAppSkeleton(app_);
    }

    void TearDown() override {
        tools_.reset();
        app_.reset();
        userMsgDir.clear();
        MemoryLogTest::TearDown();
    }

    std::uint16_t Register(const AppRegisterInfo& info) {
        return app_->RegisterAppInfo(info).get().result;
    }

    // Waits until every task queued so far on the reader pool has run.
    void DrainReader() {
        std::promise<void> done;
        auto drained = done.get_future();
        ASSERT_TRUE(pool_->Enqueue([&done] { done.set_value(); }, 0));
        ASSERT_EQ(drained.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    }

    static AppRegisterInfo EventRegistration(const String& app, const String& eventType,
                                             std::uint16_t serviceId, bool isPub,
                                             const String& dataType = "/Norvane/AP/Speed") {
        EventShape shape{app, eventType, getpid(), serviceId};
        shape.topic = eventType + "Topic";
        shape.shortName = "/Instance/" + eventType;
        AppRegisterInfo info = App(AppRegisterInfoType::EVENT, isPub);
        info.eventInfo = Event(shape, true, false);
        info.eventInfo.text = dataType;
        return info;
    }

    static AppRegisterInfo MethodRegistration(const String& app, const String& name,
                                              std::uint16_t serviceId, bool isPub) {
        MethodShape shape{app, name, getpid(), serviceId};
        shape.methodId = 7;
        shape.shortName = "/Instance/" + name;
        AppRegisterInfo info = App(AppRegisterInfoType::METHOD, isPub);
        info.methodInfo = Method(shape, false, true);
        return info;
    }

    static AppRegisterInfo FieldRegistration(const String& app, const String& fieldType,
                                             DriverType driver, std::uint16_t instanceId) {
        AppRegisterInfo info = App(AppRegisterInfoType::FIELD, true);
        info.fieldInfo =
            Field(app, fieldType, getpid(), instanceId, {{driver, "/Instance/" + fieldType}});
        return info;
    }

    // A node record; with an E2E entry it is the E2E kind, which leaves the node table alone.
    static AppRegisterInfo NodeRegistration(const String& name, bool isRegister,
                                            const EventE2EInfo* e2e = nullptr) {
        AppRegisterInfo info = NodeApp(name, getpid());
        info.nodeInfo.registerState.isRegister = isRegister;
        if (e2e != nullptr) {
            info.nodeInfo.infoKind = kNodeInfoKindNode + 1;
            info.nodeInfo.e2eList.eventE2EInfos = {*e2e};
        }
        return info;
    }

    static AppRegisterInfo LatencyRegistration(const String& app, LatencyInfoKind kind,
                                               std::uint16_t serviceId, const String& topic) {
        AppRegisterInfo info = App(AppRegisterInfoType::LATENCY);
        info.latencyInfo.kind = static_cast<std::uint8_t>(kind);
        info.latencyInfo.applicationName = app;
        info.latencyInfo.index.drivers = {DriverType::DDS};
        info.latencyInfo.index.serviceId = serviceId;
        info.latencyInfo.index.instanceId = 1;
        info.latencyInfo.index.topicName = topic;
        return info;
    }

    std::shared_ptr<lumo::vcc::utils::ThreadPool> pool_;
    std::shared_ptr<WardendAppSkeleton> app_;
    std::shared_ptr<WardendToolsSkeleton> tools_;
};

}  // namespace wardend::test

#endif

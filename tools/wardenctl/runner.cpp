#include "tools/wardenctl/runner.h"

#include <csignal>

#include <chrono>
#include <sstream>
#include <thread>

#include "platform/error/com_error_domain.h"

namespace vesk::wardenctl {

namespace {

using lumo::vcc::api::types::ComErrc;

volatile std::sig_atomic_t stopRequested = 0;

void OnStopSignal(int /*signal*/) {
    stopRequested = 1;
}

// Waits are cut into slices so that Ctrl-C ends a --watch loop at once.
constexpr std::chrono::milliseconds kSlice{50};
// The proxy makes every future ready within the timeout; the margin only guards against a
// driver that never completes a call, so that wardenctl cannot hang.
constexpr std::chrono::seconds kMargin{1};

template <typename Output>
bool WaitReady(const ara::core::Future<Output>& future, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout + kMargin;
    while (future.wait_for(kSlice) != ara::core::future_status::ready) {
        if (StopRequested() || std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
    }
    return true;
}

template <typename Output, typename MakeView>
int Ask(ara::core::Future<Output> future, const Command& command, MakeView makeView,
        std::ostream& out, std::ostream& err) {
    if (!WaitReady(future, command.timeout)) {
        return StopRequested() ? kExitAnswer
                               : ReportCallError(lumo::vcc::api::types::MakeErrorCode(
                                                     ComErrc::kCommunicationStackError, 0),
                                                 command, err);
    }
    auto result = future.GetResult();
    if (!result.HasValue()) {
        return ReportCallError(result.Error(), command, err);
    }
    const Output& output = result.Value();
    if (command.json) {
        WriteDocument(out, output);
        out << std::flush;
        return ExitCodeOf(output);
    }
    return PrintAnswer(makeView(output), out);
}

int RunOnce(const Command& c, vesk::wardend::proxy::VESKWardendToolsServiceProxy& tools,
            std::ostream& out, std::ostream& err) {
    using vesk::wardend::LatencyMode;
    switch (c.kind) {
        case CommandKind::kNodeList:
            return Ask(tools.QueryNodeInfo("ALL"), c, NodeListView, out, err);
        case CommandKind::kNodeInfo:
            return Ask(
                tools.QueryNodeInfo(c.name), c,
                [&c](const auto& o) { return NodeInfoView(o, c.name); }, out, err);
        case CommandKind::kEventList:
            return Ask(tools.QueryEventInfo("ALL"), c, EventListView, out, err);
        case CommandKind::kEventInfo:
            return Ask(
                tools.QueryEventInfo(c.name), c,
                [&c](const auto& o) { return EventInfoView(o, c.name); }, out, err);
        case CommandKind::kEventShow:
            return Ask(
                tools.QueryEventShow(c.name), c,
                [&c](const auto& o) { return EventShowView(o, c.name); }, out, err);
        case CommandKind::kEventSub:
            return Ask(tools.QuerySubNodeEventInfo(SubEventIndex(c)), c, EventSubView, out, err);
        case CommandKind::kE2e:
            return Ask(tools.QuerySubNodeEventInfo(SubEventIndex(c)), c, E2eView, out, err);
        case CommandKind::kMethodList:
            return Ask(tools.QueryMethodInfo("ALL"), c, MethodListView, out, err);
        case CommandKind::kMethodInfo:
            return Ask(
                tools.QueryMethodInfo(c.name), c,
                [&c](const auto& o) { return MethodInfoView(o, c.name); }, out, err);
        case CommandKind::kMethodType:
            return Ask(
                tools.QueryMethodType(c.name), c,
                [&c](const auto& o) { return MethodTypeView(o, c.name); }, out, err);
        case CommandKind::kTypeList:
            return Ask(tools.QueryAllDataType(), c, TypeListView, out, err);
        case CommandKind::kTypeShow:
            return Ask(
                tools.QueryDataType(c.name), c,
                [&c](const auto& o) { return TypeShowView(o, c.name); }, out, err);
        case CommandKind::kTypeRefs:
            return Ask(tools.QueryDataTypeRefList(), c, TypeRefsView, out, err);
        case CommandKind::kLatencyOn:
        case CommandKind::kLatencyOff: {
            const bool on = c.kind == CommandKind::kLatencyOn;
            vesk::wardend::LatencySwitch latencySwitch;
            latencySwitch.mode = on ? LatencyMode::kOn : LatencyMode::kOff;
            latencySwitch.index = LatencyIndexOf(c.key);
            return Ask(
                tools.SwitchLatencyMode(latencySwitch), c,
                [on](const auto& o) { return LatencySwitchView(o, on); }, out, err);
        }
        case CommandKind::kLatencyStatus:
            return Ask(tools.QueryLatencyStatus(LatencyIndexOf(c.key)), c, LatencyStatusView, out,
                       err);
        case CommandKind::kLatencyResult: {
            vesk::wardend::LatencyQueryInfo query;
            query.period = c.period;
            query.index = LatencyIndexOf(c.key);
            return Ask(
                tools.QueryLatencyResult(query), c,
                [&c](const auto& o) { return LatencyResultView(o, c.period); }, out, err);
        }
    }
    return kExitUsage;
}

// Redraws until SIGINT or SIGTERM. A failed call is reported and tried again: the daemon may
// be restarting.
int Watch(const Command& command, vesk::wardend::proxy::VESKWardendToolsServiceProxy& tools,
          std::ostream& out, std::ostream& err) {
    while (!StopRequested()) {
        std::ostringstream answer;
        std::ostringstream failure;
        RunOnce(command, tools, answer, failure);
        if (StopRequested()) {
            break;
        }
        if (!command.json) {
            out << "\033[H\033[2J";  // cursor home, clear screen
        }
        out << answer.str() << std::flush;
        err << failure.str() << std::flush;
        const auto next = std::chrono::steady_clock::now() + *command.watch;
        while (!StopRequested() && std::chrono::steady_clock::now() < next) {
            std::this_thread::sleep_for(kSlice);
        }
    }
    return kExitAnswer;
}

}  // namespace

void InstallStopSignals() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested() {
    return stopRequested != 0;
}

int PrintAnswer(const View& view, std::ostream& out) {
    out << view.text << std::flush;
    return view.exitCode;
}

int ReportCallError(const ara::core::ErrorCode& error, const Command& command, std::ostream& err) {
    err << "wardenctl: " << vesk::wardend::proxy::DescribeError(error) << " ("
        << lumo::vcc::api::types::DriverTypeName(command.driver) << ", instance "
        << command.instance << ", timeout " << command.timeout.count() << " ms)\n"
        << std::flush;
    return kExitUnreachable;
}

int RunCommand(const Command& command, vesk::wardend::proxy::VESKWardendToolsServiceProxy& tools,
               std::ostream& out, std::ostream& err) {
    return command.watch ? Watch(command, tools, out, err) : RunOnce(command, tools, out, err);
}

}  // namespace vesk::wardenctl

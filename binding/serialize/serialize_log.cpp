#include "binding/serialize/serialize_log.h"

#include <memory>

namespace lumo::serialize {

namespace {
using ara::tessel::common::log::Log;

// The contexts live as long as the process; keeping the shared pointer here saves the lookup
// under the log manager's lock on every line.
const Log& Context(const std::shared_ptr<Log>& log) {
    return *log;
}
}  // namespace

const Log& SomeipLog() {
    static const std::shared_ptr<Log> log = Log::GetLog("SOMEIPSerialize");
    return Context(log);
}

const Log& DdsLog() {
    static const std::shared_ptr<Log> log = Log::GetLog("DDSSerialize");
    return Context(log);
}

const Log& TlvLog() {
    static const std::shared_ptr<Log> log = Log::GetLog("TlvSerialize");
    return Context(log);
}

const Log& S2SLog() {
    static const std::shared_ptr<Log> log = Log::GetLog("S2SSerialize");
    return Context(log);
}

const Log& SizeCounterLog() {
    static const std::shared_ptr<Log> log = Log::GetLog("SerializeSizeCounter");
    return Context(log);
}

}  // namespace lumo::serialize

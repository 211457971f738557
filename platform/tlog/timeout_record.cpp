#include "platform/tlog/timeout_record.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

namespace kbr::tlog {

TimeoutRecord::TimeoutRecord() : TimeoutRecord(kDefaultDirectory) {}

TimeoutRecord::TimeoutRecord(String directory) : directory_(std::move(directory)) {
    if (!directory_.empty() && directory_.back() != '/') {
        directory_.push_back('/');
    }
}

bool TimeoutRecord::IsValidGuid(const String& guid) noexcept {
    if (guid.empty() || guid.size() > kMaxGuidLength || guid.front() == '.') {
        return false;
    }
    return std::all_of(guid.begin(), guid.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.' || c == ':';
    });
}

std::vector<String> TimeoutRecord::GetTimeoutRecordInfo(const MsgInfo& info) const {
    std::vector<String> records;
    if (!IsValidGuid(info.guid)) {
        return records;
    }
    const String path = directory_ + info.guid + ".tlog";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) {
        return records;
    }
    String current;
    bool cut = false;  // the rest of an over-long record is being skipped
    char chunk[512];
    const auto finishRecord = [&records, &current, &cut]() {
        if (!current.empty()) {
            records.push_back(std::move(current));
        }
        current.clear();
        cut = false;
    };
    while (records.size() < kMaxRecords &&
           std::fgets(chunk, sizeof(chunk), file.get()) != nullptr) {
        String piece(chunk);
        const bool endOfLine = !piece.empty() && piece.back() == '\n';
        if (endOfLine) {
            piece.pop_back();
            if (!piece.empty() && piece.back() == '\r') {
                piece.pop_back();
            }
        }
        if (!cut) {
            const std::size_t room = kMaxRecordLength - current.size();
            if (piece.size() > room) {
                piece.resize(room);
                cut = true;
            }
            current += piece;
        }
        if (endOfLine) {
            finishRecord();
        }
    }
    if (records.size() < kMaxRecords) {
        finishRecord();
    }
    return records;
}

}  // namespace kbr::tlog

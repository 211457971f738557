#include "platform/json/json_parser.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace ara::tessel::common::jsonParser {

namespace {

// Deepest nesting of arrays and objects outside strings. Malformed text may give any answer;
// the parser refuses it afterwards.
std::size_t NestingDepth(const String& text) noexcept {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            ++depth;
            if (depth > deepest) {
                deepest = depth;
            }
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

// Closes a descriptor on every path out of ParseFileToString.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int Get() const noexcept { return fd_; }

private:
    int fd_;
};

}  // namespace

String Value::GetString() const {
    if (!IsString()) {
        return {};
    }
    return node_->get_ref<const nlohmann::json::string_t&>();
}

std::size_t Value::Size() const noexcept {
    if (node_ == nullptr || !(node_->is_array() || node_->is_object())) {
        return 0;
    }
    return node_->size();
}

bool Value::HasMember(const String& key) const {
    return IsObject() && node_->find(key) != node_->end();
}

Value Value::operator[](const String& key) const {
    if (!IsObject()) {
        return Value();
    }
    const auto it = node_->find(key);
    return it == node_->end() ? Value() : Value(&*it);
}

Value Value::At(std::size_t index) const {
    if (!IsArray() || index >= node_->size()) {
        return Value();
    }
    return Value(&(*node_)[index]);
}

String Document::ParseFileToString(const String& path) {
    // O_NONBLOCK so that a FIFO in place of a file cannot block the open; it is refused below.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.Get() < 0) {
        return {};
    }
    struct stat info {};
    if (::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0 ||
        static_cast<std::size_t>(info.st_size) > kMaxFileSize) {
        return {};
    }
    String text;
    text.reserve(static_cast<std::size_t>(info.st_size));
    char buffer[8192];
    for (;;) {
        const ssize_t got = ::read(file.Get(), buffer, sizeof(buffer));
        if (got == 0) {
            break;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return {};
        }
        // The file may grow while it is read; the bound holds all the same.
        if (text.size() + static_cast<std::size_t>(got) > kMaxFileSize) {
            return {};
        }
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

bool Document::ParseStringToDocument(const String& text) {
    root_ = nullptr;
    valid_ = false;
    if (NestingDepth(text) > kMaxDepth) {
        return false;
    }
    // allow_exceptions = false: malformed text gives a discarded value instead of a throw.
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded()) {
        return false;
    }
    root_ = std::move(parsed);
    valid_ = true;
    return true;
}

}  // namespace ara::tessel::common::jsonParser

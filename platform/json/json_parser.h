#ifndef PLATFORM_JSON_JSON_PARSER_H
#define PLATFORM_JSON_JSON_PARSER_H

#include <cstddef>
#include <cstdint>

#include <nlohmann/json.hpp>

#include "platform/core/string.h"

namespace ara::tessel::common::jsonParser {

using ara::core::String;

// A read-only view of one node of a parsed Document. A view of something that is not there
// (a missing member, an index out of range, a member of a non-object) is a null value, so that
// lookups can be chained without checks and nothing ever throws. A view is valid while its
// Document lives and is not parsed again.
class Value {
public:
    Value() noexcept = default;
    explicit Value(const nlohmann::json* node) noexcept : node_(node) {}

    bool IsNull() const noexcept { return node_ == nullptr || node_->is_null(); }
    bool IsObject() const noexcept { return node_ != nullptr && node_->is_object(); }
    bool IsArray() const noexcept { return node_ != nullptr && node_->is_array(); }
    bool IsString() const noexcept { return node_ != nullptr && node_->is_string(); }
    bool IsBool() const noexcept { return node_ != nullptr && node_->is_boolean(); }
    bool IsNumber() const noexcept { return node_ != nullptr && node_->is_number(); }
    bool IsUint64() const noexcept { return node_ != nullptr && node_->is_number_unsigned(); }

    // The string, or empty when this is not a string.
    String GetString() const;
    bool GetBool() const noexcept {
        const auto* value =
            node_ != nullptr ? node_->get_ptr<const nlohmann::json::boolean_t*>() : nullptr;
        return value != nullptr && *value;
    }
    // The number, or 0 when this is not a non-negative integer.
    std::uint64_t GetUint64() const noexcept {
        const auto* value =
            node_ != nullptr ? node_->get_ptr<const nlohmann::json::number_unsigned_t*>() : nullptr;
        return value != nullptr ? *value : 0U;
    }

    // Elements of an array, members of an object; 0 for anything else.
    std::size_t Size() const noexcept;

    bool HasMember(const String& key) const;
    Value operator[](const String& key) const;
    Value operator[](const char* key) const { return (*this)[String(key)]; }
    // An element of an array (operator[] with a literal 0 would be ambiguous with the key forms).
    Value At(std::size_t index) const;

private:
    const nlohmann::json* node_{nullptr};
};

// One JSON document, parsed from a text. Its destructor is nlohmann::json's, which may allocate
// while it takes a deep value apart: only a failed allocation throws there.
class Document {  // NOLINT(bugprone-exception-escape): only on a failed allocation, as above
public:
    // Nesting deeper than this is refused, so that no later walk of a document can exhaust
    // the stack.
    static constexpr std::size_t kMaxDepth = 256;
    // Files larger than this are treated as unreadable.
    static constexpr std::size_t kMaxFileSize = std::size_t{64} * 1024 * 1024;

    // The whole text of a regular file, or the empty string when it cannot be read (missing,
    // not a regular file, unreadable, larger than kMaxFileSize). An empty file and a missing
    // one are the same to the caller.
    static String ParseFileToString(const String& path);

    // Replaces the content with the document parsed from text. False, and an empty (null)
    // document, when text is not one valid JSON document or nests deeper than kMaxDepth.
    bool ParseStringToDocument(const String& text);

    bool IsValid() const noexcept { return valid_; }
    Value Root() const noexcept { return Value(&root_); }

    bool HasMember(const String& key) const { return Root().HasMember(key); }
    Value operator[](const String& key) const { return Root()[key]; }
    Value operator[](const char* key) const { return Root()[String(key)]; }
    bool IsObject() const noexcept { return root_.is_object(); }
    bool IsString() const noexcept { return root_.is_string(); }
    String GetString() const { return Root().GetString(); }

private:
    nlohmann::json root_;
    bool valid_{false};
};

}  // namespace ara::tessel::common::jsonParser

#endif

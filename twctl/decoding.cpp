// SPDX-License-Identifier: MIT
// The binary form is read by reflection over the message's descriptor, so that a new field of
// tw_msg.proto shows without a change here.
#include "decoding.hpp"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <vector>

#include "tw_msg.pb.h"

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// The header of the forms STRING and BINARY, in bytes: subscriber (16 bits, low byte first),
// kind, and a zero.
constexpr std::size_t headerSize = 4;
constexpr std::size_t kindOffset = 2;
constexpr std::size_t endOffset = 3;  // always 0

// By the kind byte of the header.
constexpr std::array<std::string_view, 3> kindNames{"json", "full", "reduced"};

// Fields of type bytes that hold text; all others are shown in hex.
constexpr std::array<std::string_view, 4> textFields{"mac", "host_name", "antenna_port_name", "user_defined"};

std::uint8_t byteAt(std::string_view frame, std::size_t index) {
    return static_cast<std::uint8_t>(frame[index]);
}

// The shortest decimal that reads back as this float: widened as it is, -47.3
// would print as -47.29999923706055.
double shortestDouble(float value) {
    std::array<char, 64> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    double result = value;
    std::from_chars(text.data(), end, result);
    return result;
}

// One field as JSON. Integers of 64 bits stay exact.
nlohmann::ordered_json fieldValue(const Message& message, const FieldDescriptor* field) {
    const google::protobuf::Reflection* values = message.GetReflection();
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return values->GetInt32(message, field);
        case FieldDescriptor::CPPTYPE_UINT64:
            return values->GetUInt64(message, field);
        case FieldDescriptor::CPPTYPE_FLOAT:
            return shortestDouble(values->GetFloat(message, field));
        case FieldDescriptor::CPPTYPE_BOOL:
            return values->GetBool(message, field);
        case FieldDescriptor::CPPTYPE_STRING: {
            const std::string bytes = values->GetString(message, field);
            const bool isText =
                std::find(textFields.begin(), textFields.end(), field->name()) != textFields.end();
            return isText ? bytes : hexText(bytes);
        }
        default:
            return nullptr;  // the schema has no other types
    }
}

// In the order of their numbers; nothing for bytes that are not a tag report.
std::optional<nlohmann::ordered_json> fieldsOf(std::string_view bytes) {
    velmo::tag_data_report report;
    if (!report.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
        return std::nullopt;
    }
    std::vector<const FieldDescriptor*> fields;
    report.GetReflection()->ListFields(report, &fields);
    nlohmann::ordered_json values = nlohmann::ordered_json::object();
    for (const FieldDescriptor* field : fields) {
        values[field->name()] = fieldValue(report, field);
    }
    return values;
}

// An empty result says that the bytes are not a tag report.
std::string binaryReportText(std::string_view bytes) {
    const std::optional<nlohmann::ordered_json> fields = fieldsOf(bytes);
    // Text that is not valid UTF-8 gets replacement characters.
    return fields ? fields->dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) : "";
}

std::string unreadableLine(std::string_view frame) {
    return "unreadable frame of " + std::to_string(frame.size()) + " bytes: " + hexText(frame);
}

// Quotation marks within a JSON string have a backslash in front, so this text is always the key of
// a member, and of a report's members none but the number has this name. The searcher skips most
// bytes, in a third of the time that find() takes.
constexpr std::string_view numberKey = "\"eventNum\":";
const std::boyer_moore_horspool_searcher findNumberKey(numberKey.begin(), numberKey.end());

std::optional<std::uint64_t> numberInText(std::string_view text) {
    const auto key = std::search(text.begin(), text.end(), findNumberKey);
    std::uint64_t number = 0;
    if (key == text.end()) {
        return std::nullopt;
    }
    const char* const end = text.data() + text.size();
    const bool isNumber = std::from_chars(&*key + numberKey.size(), end, number).ec == std::errc();
    return isNumber ? std::optional(number) : std::nullopt;
}

// The fields before the number are stepped over.
std::optional<std::uint64_t> numberInFields(std::string_view bytes) {
    using google::protobuf::internal::WireFormatLite;
    constexpr std::uint32_t numberTag = WireFormatLite::MakeTag(velmo::tag_data_report::kEventNumFieldNumber,
                                                                WireFormatLite::WIRETYPE_VARINT);
    google::protobuf::io::CodedInputStream in(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                              static_cast<int>(bytes.size()));
    std::uint64_t number = 0;
    for (std::uint32_t tag = in.ReadTag(); tag != 0; tag = in.ReadTag()) {
        if (tag == numberTag) {
            return in.ReadVarint64(&number) ? std::optional(number) : std::nullopt;
        }
        if (!WireFormatLite::SkipField(&in, tag)) {
            break;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string hexText(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::optional<nlohmann::json> binaryFields(std::string_view bytes) {
    const std::optional<nlohmann::ordered_json> fields = fieldsOf(bytes);
    return fields ? std::optional<nlohmann::json>(*fields) : std::nullopt;
}

std::optional<tag_frame_s> splitTagFrame(std::string_view frame) {
    if (frame.size() >= headerSize && byteAt(frame, kindOffset) < kindNames.size() &&
        byteAt(frame, endOffset) == 0) {
        return tag_frame_s{.subscriber = byteAt(frame, 0) | byteAt(frame, 1) << 8,
                           .kind = byteAt(frame, kindOffset),
                           .body = frame.substr(headerSize)};
    }
    return std::nullopt;
}

std::optional<std::uint64_t> reportNumber(std::string_view frame) {
    constexpr std::uint8_t jsonKind = 0, fullKind = 1;
    const std::optional<tag_frame_s> parts = splitTagFrame(frame);
    if (!parts || parts->kind == jsonKind) {
        return numberInText(parts ? parts->body : frame);
    }
    return parts->kind == fullKind ? numberInFields(parts->body) : std::nullopt;
}

std::string decodeTextFrame(std::string_view frame) {
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char del = 0x7f;
    std::string line;
    line.reserve(frame.size());
    for (const char c : frame) {
        const auto byte = static_cast<unsigned char>(c);  // char has a sign on some machines only
        if (byte < firstPrintable || byte == del) {
            line += "\\u00" + hexText(std::string_view(&c, 1));
        } else {
            line += c;
        }
    }
    return line;
}

std::string decodeTagFrame(std::string_view frame) {
    const std::optional<tag_frame_s> parts = splitTagFrame(frame);
    if (!parts) {
        return frame.starts_with('{') ? decodeTextFrame(frame) : unreadableLine(frame);
    }
    const std::string text = parts->kind == 0 ? decodeTextFrame(parts->body) : binaryReportText(parts->body);
    if (text.empty()) {
        return unreadableLine(frame);
    }
    return "subscriber=" + std::to_string(parts->subscriber) +
           " kind=" + std::string(kindNames[parts->kind]) + " " + text;
}

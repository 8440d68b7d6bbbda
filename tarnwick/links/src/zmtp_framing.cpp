// SPDX-License-Identifier: MIT
#include "zmtp_framing.hpp"

namespace {

std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
    return static_cast<std::uint8_t>(bytes[index]);
}

// Eight bytes, high one first.
std::uint64_t longSize(std::string_view bytes) {
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        size = size << 8 | byteAt(bytes, i);
    }
    return size;
}

// Whether the flags at this place say that more frames follow; false while they are not there.
bool hasMoreFlag(std::string_view bytes, std::size_t index) {
    return index < bytes.size() && (byteAt(bytes, index) & 1) != 0;
}

//   | flags: 1 | size: 1, or 8 with flag 2 | body |      flag 1: more frames follow; 4: a command
frame_s flagsFirstHead(std::string_view bytes) {
    constexpr unsigned longFlag = 2;
    constexpr unsigned commandFlag = 4;
    if (bytes.size() < 2) {
        return {};
    }
    const bool command = (byteAt(bytes, 0) & commandFlag) != 0;
    const bool more = hasMoreFlag(bytes, 0);
    if ((byteAt(bytes, 0) & longFlag) == 0) {
        return {2, byteAt(bytes, 1), command, more};
    }
    return bytes.size() < 9 ? frame_s{} : frame_s{9, longSize(bytes.substr(1)), command, more};
}

//   | size: 1, or 255 and 8 | flags: 1 | body |      the size counts the flags
frame_s lengthFirstHead(std::string_view bytes) {
    if (bytes.empty()) {
        return {};
    }
    if (byteAt(bytes, 0) != 0xFF) {
        return {2, byteAt(bytes, 0) - std::uint64_t{1}, false, hasMoreFlag(bytes, 1)};
    }
    return bytes.size() < 9 ? frame_s{}
                            : frame_s{10, longSize(bytes.substr(1)) - 1, false, hasMoreFlag(bytes, 9)};
}

}  // namespace

std::size_t zmtp_framing::greetingSize(std::string_view bytes) {
    constexpr std::size_t signatureSize = 10;
    constexpr std::uint8_t revision2 = 1;
    if (bytes.empty()) {
        return std::string_view::npos;
    }
    if (byteAt(bytes, 0) != 0xFF || (bytes.size() >= signatureSize && (byteAt(bytes, 9) & 1) == 0)) {
        order_ = order_e::lengthFirst;
        return 0;
    }
    if (bytes.size() <= signatureSize) {
        return std::string_view::npos;
    }
    const std::uint8_t revision = byteAt(bytes, signatureSize);
    const std::size_t size = revision <= revision2 ? 12 : 64;
    if (bytes.size() < size) {
        return std::string_view::npos;
    }
    order_ = revision == 0 ? order_e::lengthFirst : order_e::flagsFirst;
    return size;
}

frame_s zmtp_framing::headOf(std::string_view bytes) const {
    return order_ == order_e::flagsFirst ? flagsFirstHead(bytes) : lengthFirstHead(bytes);
}

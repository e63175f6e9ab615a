#pragma once
// Reads a fuzzer's bytes as values. An exhausted input keeps answering zeros, which every reader of it
// takes as the plain, well-behaved choice, so a short input still plays a complete session.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace VelmoraFuzz {

// A text the browser may pass: null, or characters that the harness always terminates.
struct Text {
    bool null = true;
    std::string characters;

    const char* Pointer() const { return null ? nullptr : characters.c_str(); }
};

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool Exhausted() const { return position_ >= size_; }

    std::uint8_t Byte() { return position_ < size_ ? data_[position_++] : 0; }

    bool Bool() { return (Byte() & 1) != 0; }

    std::uint32_t U32() {
        std::uint32_t value = 0;
        for (int index = 0; index < 4; ++index) {
            value |= static_cast<std::uint32_t>(Byte()) << (8 * index);
        }
        return value;
    }

    std::int32_t I32() {
        const std::uint32_t raw = U32();
        std::int32_t value;
        std::memcpy(&value, &raw, sizeof value);
        return value;
    }

    // A small count or size from one byte, or a full 32-bit value when the byte is 0xFF.
    std::uint32_t Count() {
        const std::uint8_t small = Byte();
        return small == 0xFF ? U32() : small;
    }

    // The doubles a browser or a media stack gets wrong: NaN, infinities, signed zero, extremes.
    double Double() {
        const std::uint8_t tag = Byte();
        switch (tag) {
            case 1: return std::numeric_limits<double>::quiet_NaN();
            case 2: return std::numeric_limits<double>::infinity();
            case 3: return -std::numeric_limits<double>::infinity();
            case 4: return -0.0;
            case 5: return std::numeric_limits<double>::max();
            case 6: return -std::numeric_limits<double>::max();
            case 7: return std::numeric_limits<double>::denorm_min();
            case 8: {
                const std::uint64_t low = U32();
                const std::uint64_t bits = low | (static_cast<std::uint64_t>(U32()) << 32);
                double value;
                std::memcpy(&value, &bits, sizeof value);
                return value;
            }
            default: return (static_cast<double>(tag) - 9.0) * 0.5;
        }
    }

    // Length byte 0xFF means a null text; otherwise up to that many characters (embedded zeros kept in
    // the copy, so the library sees a shorter C text).
    Text TextOrNull() {
        Text text;
        const std::uint8_t length = Byte();
        if (length == 0xFF) {
            return text;
        }
        text.null = false;
        for (std::uint8_t index = 0; index < length && !Exhausted(); ++index) {
            text.characters.push_back(static_cast<char>(Byte()));
        }
        return text;
    }

    std::string String() { return TextOrNull().characters; }

    // A byte block of a length up to `limit`.
    std::vector<std::uint8_t> Block(std::size_t limit = 255) {
        std::size_t length = Byte();
        if (length > limit) {
            length = limit;
        }
        std::vector<std::uint8_t> block;
        for (std::size_t index = 0; index < length && !Exhausted(); ++index) {
            block.push_back(Byte());
        }
        return block;
    }

    template <typename Enum>
    Enum EnumUpTo(int last) {
        return static_cast<Enum>(Byte() % (last + 1));
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

}  // namespace VelmoraFuzz

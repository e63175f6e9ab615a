#pragma once
// Reads a fuzzer's bytes as values. An exhausted input keeps answering zeros, which every reader of it
// takes as the plain, well-behaved choice, so a short input still plays a complete session.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
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
    std::int32_t I32() { return static_cast<std::int32_t>(U32()); }

    std::uint32_t U32() {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            value |= static_cast<std::uint32_t>(Byte()) << shift;
        }
        return value;
    }

    // A small count or size from one byte, or a full 32-bit value when the byte is 0xFF.
    std::uint32_t Count() {
        const std::uint8_t small = Byte();
        return small == 0xFF ? U32() : small;
    }

    // The doubles a browser or a media stack gets wrong (NaN, infinities, signed zero, extremes), raw
    // bits after tag 8, and small halves otherwise.
    double Double() {
        using Limits = std::numeric_limits<double>;
        static const double kOdd[] = {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), -0.0,
                                      Limits::max(),       -Limits::max(),     Limits::denorm_min()};
        const std::uint8_t tag = Byte();
        if (tag >= 1 && tag <= 7) {
            return kOdd[tag - 1];
        }
        if (tag != 8) {
            return (static_cast<double>(tag) - 9.0) * 0.5;
        }
        std::uint64_t bits = U32();
        bits |= static_cast<std::uint64_t>(U32()) << 32;
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

    // Length byte 0xFF means a null text; otherwise up to that many characters (embedded zeros kept in
    // the copy, so the library sees a shorter C text).
    Text TextOrNull() {
        const std::uint8_t length = Byte();
        Text text;
        text.null = length == 0xFF;
        for (std::uint8_t index = 0; !text.null && index < length && !Exhausted(); ++index) {
            text.characters.push_back(static_cast<char>(Byte()));
        }
        return text;
    }

    std::string String() { return TextOrNull().characters; }

    // A byte block of a length up to `limit`.
    std::vector<std::uint8_t> Block(std::size_t limit = 255) {
        std::vector<std::uint8_t> block;
        for (std::size_t length = std::min<std::size_t>(Byte(), limit); block.size() < length && !Exhausted();) {
            block.push_back(Byte());
        }
        return block;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t position_ = 0;
};

// A value passed on (a browser call's argument, a media stack event's field), read by its type: texts may
// be null; handles (of windows, channels) are opaque, as the library never reads through them; other
// pointers are null.
template <typename T>
struct Argument {
    explicit Argument(FuzzInput& in) : value(Of(in)) {}
    static T Of(FuzzInput& in) {
        if constexpr (std::is_same_v<T, bool>) {
            return in.Bool();
        } else if constexpr (std::is_floating_point_v<T>) {
            return in.Double();
        } else if constexpr (std::is_enum_v<T>) {
            return static_cast<T>(in.Byte() % 4);
        } else if constexpr (std::is_same_v<T, void*>) {
            return reinterpret_cast<void*>(static_cast<std::uintptr_t>(in.Byte() % 4 + 1) * 0x1000);
        } else if constexpr (std::is_pointer_v<T>) {
            return nullptr;
        } else {
            return static_cast<T>(in.U32());
        }
    }
    T Get() const { return value; }
    T value;
};

template <>
struct Argument<const char*> {
    explicit Argument(FuzzInput& in) : text(in.TextOrNull()) {}
    const char* Get() const { return text.Pointer(); }
    Text text;
};

}  // namespace VelmoraFuzz

// bstype: the 32-bit type word that travels with every value a stream moves.
//
// A kind packs three fields: bits 0-15 the byte size of one value (for an
// array begin marker the width of its count, 0 for markers without data),
// bits 16-23 the type code, bits 24-31 the marker and array flags. A stream
// is told the kind of each value, so that one caller can feed a raw byte sink
// and a structured format alike.
//
//   bstype::kind t = bstype::kind_of<uint32_t>();   // 0x20004
//   stream.write(&v, t);
#pragma once

#include "comm/opcd.h"

#include <cstdint>
#include <type_traits>

namespace velk::bstype {

// A character of a key text. It is a type of its own, not char, so that
// streams can tell the name of a member from the characters of a value.
struct key
{
    char c;
};
static_assert(sizeof(key) == 1, "a key character is one byte, like char");

class kind
{
public:
    // Type codes (bits 16-23). Code 9 means nothing here: consumers treat it as unknown.
    enum type_code : uint8_t {
        type_binary = 0,
        type_int = 1,
        type_uint = 2,
        type_float = 3,
        type_bool = 4,
        type_char = 5,
        type_errcode = 6,
        type_time = 7,
        type_angle = 8,
        type_key = 10,
        type_struct_open = 11,
        type_struct_close = 12,
        type_separator = 13,
        type_compound = 255,
    };

    // Flags (bits 24-31).
    enum flag_bits : uint8_t {
        flag_element = 0x01,      // an element of an array; also on array separators
        flag_next_element = 0x02, // with 0x01, from the second element on
        flag_separators = 0x04,   // a container of unknown length: separators between elements
        flag_array_begin = 0x10,  // the data is the element count
        flag_array_end = 0x20,    // the data is the count of elements actually moved
        flag_root = 0x40,         // on struct markers: the outermost, nameless structure
    };

    // Words used as they stand.
    static constexpr uint32_t separator_word = 0xD0000;  // type_separator, size 0
    static constexpr uint32_t key_char_word = 0xA0001;   // one key character
    static constexpr uint32_t char_word = 0x50001;       // one char
    static constexpr uint32_t compound_word = 0xFF0000;  // a type with members

    constexpr kind() = default;
    constexpr kind(uint32_t word) : _word(word) {}
    constexpr kind(uint8_t type, uint16_t size, uint8_t flags = 0)
        : _word(uint32_t(size) | uint32_t(type) << 16 | uint32_t(flags) << 24)
    {}

    constexpr uint32_t word() const { return _word; }
    constexpr operator uint32_t() const { return _word; }

    constexpr uint16_t size() const { return uint16_t(_word); }
    constexpr uint8_t type() const { return uint8_t(_word >> 16); }
    constexpr uint8_t flags() const { return uint8_t(_word >> 24); }

    constexpr void set_size(uint16_t size) { _word = (_word & 0xFFFF0000u) | size; }
    constexpr void set_type(uint8_t type) { _word = (_word & 0xFF00FFFFu) | uint32_t(type) << 16; }
    constexpr void set_flags(uint8_t flags) { _word = (_word & 0x00FFFFFFu) | uint32_t(flags) << 24; }
    constexpr void add_flags(uint8_t flags) { _word |= uint32_t(flags) << 24; }

    constexpr bool has_flags(uint8_t flags) const { return (this->flags() & flags) != 0; }
    // Primitive: anything below type_compound; only those are moved as data.
    constexpr bool is_primitive() const { return type() < type_compound; }

    // The same kind with another size and flags, the type kept.
    constexpr kind with(uint16_t size, uint8_t flags) const { return kind(type(), size, flags); }

private:
    uint32_t _word = 0;
};

namespace detail {

template <class T, class = void>
struct kind_of_impl;

template <class T>
struct kind_of_impl<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                        !std::is_same_v<T, char>>>
{
    static constexpr kind value{std::is_signed_v<T> ? kind::type_int : kind::type_uint, sizeof(T)};
};
template <class T>
struct kind_of_impl<T, std::enable_if_t<std::is_floating_point_v<T>>>
{
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "floats of 4 or 8 bytes");
    static constexpr kind value{kind::type_float, sizeof(T)};
};
template <>
struct kind_of_impl<bool> { static constexpr kind value{kind::type_bool, 1}; };
template <>
struct kind_of_impl<char> { static constexpr kind value{kind::char_word}; };
template <>
struct kind_of_impl<key> { static constexpr kind value{kind::key_char_word}; };
template <>
struct kind_of_impl<opcd>
{
    static_assert(sizeof(opcd) == 8, "an error code travels as its 8-byte pointer");
    static constexpr kind value{kind::type_errcode, 8};
};

} // namespace detail

// The kind of one value of a primitive C++ type; other types don't compile.
template <class T>
constexpr kind kind_of()
{
    return detail::kind_of_impl<std::remove_cv_t<T>>::value;
}

} // namespace velk::bstype

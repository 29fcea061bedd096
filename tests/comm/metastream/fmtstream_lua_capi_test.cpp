// fmtstream_lua_capi on its own, in a real LuaJIT state: every primitive
// type written and read, markers, arrays by separator and as strings, keys,
// the read failures, and the oddities that stand as they are.
#include "comm/metastream/fmtstream_lua_capi.h"

#include "comm/binstream/container.h"
#include "comm/commassert.h"

#include "tests/support/log_capture.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <cmath>
#include <cstring>
#include <string>
#include <thread>

using velk::charstr;
using velk::dynarray;
using velk::fmtstream_lua_capi;
using velk::opcd;
using velk::token;
namespace ers = velk::ers;
using kind = velk::bstype::kind;

namespace {

// Mnemonic and detail: opcd's own equality looks at the code only.
std::string describe(opcd e)
{
    if (!e)
        return "OK";
    velk::token m = e.mnemonic();
    std::string s(m.ptr(), m.lens());
    while (!s.empty() && s.back() == ' ')
        s.pop_back();
    if (*e.info())
        s += std::string(" / ") + e.info();
    return s;
}

class LuaFormat : public ::testing::Test
{
protected:
    void SetUp() override
    {
        L = luaL_newstate();
        ASSERT_NE(L, nullptr);
        luaL_openlibs(L);
        f.L = L;
        f.top = lua_gettop(L);
    }
    void TearDown() override { lua_close(L); }

    // Runs a chunk that returns one value and leaves it on the stack.
    void push_value(const char* expression)
    {
        std::string chunk = std::string("return ") + expression;
        ASSERT_EQ(luaL_loadstring(L, chunk.c_str()), 0) << lua_tostring(L, -1);
        ASSERT_EQ(lua_pcall(L, 0, 1, 0), 0) << lua_tostring(L, -1);
    }

    // The value on the top as Lua source-like text, for comparisons.
    std::string show_top()
    {
        lua_getglobal(L, "show");
        if (lua_isnil(L, -1)) {
            lua_pop(L, 1);
            luaL_dostring(L, R"(
                function show(v)
                  if type(v) ~= "table" then
                    if type(v) == "string" then return string.format("%q", v) end
                    return tostring(v)
                  end
                  local keys = {}
                  for k in pairs(v) do keys[#keys + 1] = k end
                  table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
                  local parts = {}
                  for _, k in ipairs(keys) do parts[#parts + 1] = tostring(k) .. "=" .. show(v[k]) end
                  return "{" .. table.concat(parts, ",") .. "}"
                end)");
            lua_getglobal(L, "show");
        }
        lua_pushvalue(L, -2);
        lua_call(L, 1, 1);
        std::string s = lua_tostring(L, -1);
        lua_pop(L, 1);
        return s;
    }

    lua_State* L = nullptr;
    fmtstream_lua_capi f;
};

// -- Writing primitives --------------------------------------------------------

TEST_F(LuaFormat, WritesASignedByteSignExtended)
{
    int8_t v = -5;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<int8_t>()), opcd());
    EXPECT_EQ(lua_tointeger(L, -1), -5);
}

TEST_F(LuaFormat, WritesAnUnsignedShortZeroExtended)
{
    uint16_t v = 0xFFFE;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<uint16_t>()), opcd());
    EXPECT_EQ(lua_tointeger(L, -1), 0xFFFE);
}

TEST_F(LuaFormat, WritesA32BitInteger)
{
    int32_t v = -123456;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<int32_t>()), opcd());
    EXPECT_EQ(lua_tointeger(L, -1), -123456);
}

TEST_F(LuaFormat, WritesAnUnsignedByteZeroExtended)
{
    uint8_t v = 200;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<uint8_t>()), opcd());
    EXPECT_EQ(lua_tointeger(L, -1), 200);
}

TEST_F(LuaFormat, WritesASignedShortSignExtended)
{
    int16_t v = -300;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<int16_t>()), opcd());
    EXPECT_EQ(lua_tointeger(L, -1), -300);
}

TEST_F(LuaFormat, WritesAnUnsigned32BitValueAbove2ToThe31ZeroExtended)
{
    uint32_t v = 0xFFFFFFF0u;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<uint32_t>()), opcd());
    EXPECT_EQ(lua_tonumber(L, -1), 4294967280.0);
}

TEST_F(LuaFormat, WritesA64BitSignedValue)
{
    int64_t v = -(int64_t(1) << 40);
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<int64_t>()), opcd());
    EXPECT_EQ(lua_tonumber(L, -1), -1099511627776.0);
}

TEST_F(LuaFormat, WritesA64BitUnsignedValue)
{
    uint64_t v = uint64_t(1) << 41;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<uint64_t>()), opcd());
    EXPECT_EQ(lua_tonumber(L, -1), 2199023255552.0);
}

TEST_F(LuaFormat, WritesAFloatWidened)
{
    float v = 1.5f;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<float>()), opcd());
    EXPECT_EQ(lua_tonumber(L, -1), 1.5);
}

TEST_F(LuaFormat, WritesADouble)
{
    double v = -2.25;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<double>()), opcd());
    EXPECT_EQ(lua_tonumber(L, -1), -2.25);
}

TEST_F(LuaFormat, WritesABool)
{
    bool v = true;
    EXPECT_EQ(f.write(&v, velk::bstype::kind_of<bool>()), opcd());
    ASSERT_EQ(lua_type(L, -1), LUA_TBOOLEAN);
    EXPECT_TRUE(lua_toboolean(L, -1));
}

TEST_F(LuaFormat, WritesASingleCharAsAOneCharacterString)
{
    char c = 'q';
    EXPECT_EQ(f.write(&c, kind(kind::char_word)), opcd());
    EXPECT_EQ(show_top(), "\"q\"");
}

TEST_F(LuaFormat, PushesNothingForTimeAngleErrorCodeAndBinary)
{
    uint64_t v = 7;
    int before = lua_gettop(L);
    EXPECT_EQ(f.write(&v, kind(kind::type_time, 8)), opcd());
    EXPECT_EQ(f.write(&v, kind(kind::type_angle, 8)), opcd());
    EXPECT_EQ(f.write(&v, kind(kind::type_errcode, 8)), opcd());
    EXPECT_EQ(f.write(&v, kind(kind::type_binary, 1)), opcd());
    EXPECT_EQ(lua_gettop(L), before);
}

TEST_F(LuaFormat, RefusesToWriteAnUnknownTypeCode)
{
    uint32_t v = 1;
    EXPECT_EQ(describe(f.write(&v, kind(9, 4))), "SynEr / unknown type");
}

// -- Writing structures and arrays ----------------------------------------------

TEST_F(LuaFormat, WritingAStructureGivesATableWithStringKeys)
{
    int32_t a = 1, b = 2;
    kind open(kind::type_struct_open, 0);
    kind close(kind::type_struct_close, 0);
    ASSERT_EQ(f.write(nullptr, open), opcd());
    f.write_key("a", 0);
    f.write(&a, velk::bstype::kind_of<int32_t>());
    f.write_key("b", 1);
    f.write(&b, velk::bstype::kind_of<int32_t>());
    ASSERT_EQ(f.write(nullptr, close), opcd());
    EXPECT_EQ(show_top(), "{a=1,b=2}");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaFormat, WritingAnArrayGivesATableIndexedFrom1)
{
    int32_t values[] = {10, 20, 30};
    velk::binstream_container_fixed_array<int32_t> c(values, 3);
    uint32_t n = 3;
    kind t = c.type;
    ASSERT_EQ(f.write(&n, t.with(4, kind::flag_array_begin)), opcd());
    c.type.add_flags(kind::flag_separators);
    uint64_t count = 0;
    ASSERT_EQ(f.write_array_content(c, count, nullptr), opcd());
    ASSERT_EQ(f.write(&count, t.with(0, kind::flag_array_end)), opcd());
    EXPECT_EQ(show_top(), "{1=10,2=20,3=30}");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaFormat, ACharArrayIsPushedInOneStringWithItsZeroBytes)
{
    char text[] = {'a', 0, 'b'};
    velk::binstream_container_fixed_array<char> c(text, 3);
    uint64_t count = 0;
    ASSERT_EQ(f.write_array_content(c, count, nullptr), opcd());
    size_t len = 0;
    const char* s = lua_tolstring(L, -1, &len);
    ASSERT_EQ(len, 3u);
    EXPECT_EQ(std::string(s, len), std::string(text, 3));
}

TEST_F(LuaFormat, ABinaryArrayOfNBytesIsWrittenAsNHexCharacters)
{
    uint8_t bytes[] = {0xAB, 0x01, 0xFF};
    velk::binstream_container_fixed_array<uint8_t> c(bytes, 3, kind(kind::type_binary, 1));
    uint64_t count = 0;
    ASSERT_EQ(f.write_array_content(c, count, nullptr), opcd());
    EXPECT_EQ(show_top(), "\"AB0\"");
}

// A run of characters that must be taken one by one.
class piecewise_chars : public velk::binstream_container_fixed_array<char>
{
public:
    using binstream_container_fixed_array::binstream_container_fixed_array;
    bool is_continuous() const override { return false; }
};

// A string whose end isn't known in advance.
class endless_chars : public velk::binstream_container_fixed_array<char>
{
public:
    using binstream_container_fixed_array::binstream_container_fixed_array;
    uint64_t count() const override { return unknown_count; }
};

class LuaFormatAssertions : public LuaFormat
{
protected:
    void SetUp() override
    {
        LuaFormat::SetUp();
        velk::assert_set_break(0); // report, don't trap
    }
    void TearDown() override
    {
        velk::assert_set_break(1);
        LuaFormat::TearDown();
    }

    // The assertion's place, as the report names it.
    static bool reported_at_its_fixed_place()
    {
        for (const std::string& line : velk::testing::log_capture::lines())
            if (line.rfind("Assertion failed in fmtstream_lua_capi(490), function write_array_content:", 0) == 0)
                return true;
        return false;
    }

    velk::testing::log_capture log;
};

TEST_F(LuaFormatAssertions, AStringThatIsNotContinuousIsAnAssertionAndNotImplemented)
{
    char text[] = {'a', 'b'};
    piecewise_chars c(text, 2, kind(kind::char_word));
    uint64_t count = 0;
    EXPECT_EQ(describe(f.write_array_content(c, count, nullptr)), "!Impl");
    EXPECT_TRUE(reported_at_its_fixed_place());
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormatAssertions, AStringOfUnknownLengthIsAnAssertionAndNotImplemented)
{
    char text[] = {'a', 'b'};
    endless_chars c(text, 2, kind(kind::char_word));
    uint64_t count = 0;
    EXPECT_EQ(describe(f.write_array_content(c, count, nullptr)), "!Impl");
    EXPECT_TRUE(reported_at_its_fixed_place());
}

TEST_F(LuaFormat, ACountOfAllOnesMakesATableWithoutArraySlots)
{
    uint32_t n = UINT32_MAX;
    ASSERT_EQ(f.write(&n, kind(kind::type_int, 4, kind::flag_array_begin)), opcd());
    EXPECT_EQ(lua_type(L, -1), LUA_TTABLE);
    EXPECT_EQ(f.frames.size(), 1u);
}

// -- Reading primitives --------------------------------------------------------

TEST_F(LuaFormat, ReadsA32BitIntegerAndPopsIt)
{
    push_value("-42");
    int32_t v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<int32_t>()), opcd());
    EXPECT_EQ(v, -42);
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, ReadsAnIntegerTruncatingTheFraction)
{
    push_value("-7.9");
    int16_t v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<int16_t>()), opcd());
    EXPECT_EQ(v, -7);
}

TEST_F(LuaFormat, ReadsA64BitInteger)
{
    push_value("2^40 + 3");
    int64_t v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<int64_t>()), opcd());
    EXPECT_EQ(v, (int64_t(1) << 40) + 3);
}

TEST_F(LuaFormat, ReadsAnUnsigned32BitValueThrough64Bits)
{
    push_value("4294967295");
    uint32_t v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<uint32_t>()), opcd());
    EXPECT_EQ(v, 4294967295u);
}

TEST_F(LuaFormat, Reads2ToThe63AsTheTopBitOfAnUnsigned64BitValue)
{
    push_value("2^63");
    uint64_t v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<uint64_t>()), opcd());
    EXPECT_EQ(v, 0x8000000000000000ull);
}

TEST_F(LuaFormat, ReadsAFloat)
{
    push_value("0.5");
    float v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<float>()), opcd());
    EXPECT_EQ(v, 0.5f);
}

TEST_F(LuaFormat, ReadsADouble)
{
    push_value("1e300");
    double v = 0;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<double>()), opcd());
    EXPECT_EQ(v, 1e300);
}

TEST_F(LuaFormat, ReadsABoolAsOneOrZero)
{
    push_value("false");
    uint8_t v = 9;
    EXPECT_EQ(f.read(&v, velk::bstype::kind_of<bool>()), opcd());
    EXPECT_EQ(v, 0);
}

TEST_F(LuaFormat, ReadsASingleCharAsTheFirstByte)
{
    push_value("'xyz'");
    char c = 0;
    EXPECT_EQ(f.read(&c, kind(kind::char_word)), opcd());
    EXPECT_EQ(c, 'x');
}

TEST_F(LuaFormat, ReadsTheEmptyStringAsCharZero)
{
    push_value("''");
    char c = 'z';
    EXPECT_EQ(f.read(&c, kind(kind::char_word)), opcd());
    EXPECT_EQ(c, 0);
}

TEST_F(LuaFormat, ReadsAnErrorCodeByItsNumber)
{
    push_value("28");
    opcd e;
    EXPECT_EQ(f.read(&e, velk::bstype::kind_of<opcd>()), opcd());
    EXPECT_EQ(e, ers::no_more);
}

TEST_F(LuaFormat, ReadsATimeTruncatedTo64Bits)
{
    push_value("123.9");
    int64_t v = 0;
    EXPECT_EQ(f.read(&v, kind(kind::type_time, 8)), opcd());
    EXPECT_EQ(v, 123);
}

TEST_F(LuaFormat, ReadsAnAngleAsADouble)
{
    push_value("3.25");
    double v = 0;
    EXPECT_EQ(f.read(&v, kind(kind::type_angle, 8)), opcd());
    EXPECT_EQ(v, 3.25);
}

// -- Read failures ---------------------------------------------------------------

TEST_F(LuaFormat, ANumberInASingleCharPositionIsExpectedString)
{
    push_value("5");
    char c = 0;
    EXPECT_EQ(describe(f.read(&c, kind(kind::char_word))), "SynEr / expected string");
    EXPECT_EQ(lua_gettop(L), 0); // popped also when the conversion failed
}

TEST_F(LuaFormat, AStringWhereANumberBelongsIsExpectedNumber)
{
    push_value("'x'");
    int32_t v = 0;
    EXPECT_EQ(describe(f.read(&v, velk::bstype::kind_of<int32_t>())), "SynEr / expected number");
}

TEST_F(LuaFormat, AnUnsignedValueFromATableIsExpectedNumber)
{
    push_value("{}");
    uint8_t v = 0;
    EXPECT_EQ(describe(f.read(&v, velk::bstype::kind_of<uint8_t>())), "SynEr / expected number");
}

TEST_F(LuaFormat, AFloatFromABooleanIsExpectedNumber)
{
    push_value("true");
    double v = 0;
    EXPECT_EQ(describe(f.read(&v, velk::bstype::kind_of<double>())), "SynEr / expected number");
}

TEST_F(LuaFormat, ANumberWhereABooleanBelongsIsExpectedBoolean)
{
    push_value("1");
    bool v = false;
    EXPECT_EQ(describe(f.read(&v, velk::bstype::kind_of<bool>())), "SynEr / expected boolean");
}

TEST_F(LuaFormat, AnErrorCodeFromAStringIsExpectedNumber)
{
    push_value("'no'");
    opcd e;
    EXPECT_EQ(describe(f.read(&e, velk::bstype::kind_of<opcd>())), "SynEr / expected number");
}

TEST_F(LuaFormat, ATimeFromATableIsExpectedTime)
{
    push_value("{}");
    int64_t v = 0;
    EXPECT_EQ(describe(f.read(&v, kind(kind::type_time, 8))), "SynEr / expected time");
}

TEST_F(LuaFormat, AnAngleFromNilIsExpectedAngle)
{
    push_value("nil");
    double v = 0;
    EXPECT_EQ(describe(f.read(&v, kind(kind::type_angle, 8))), "SynEr / expected angle");
}

TEST_F(LuaFormat, ACharElementReadAloneIsNotImplemented)
{
    push_value("'a'");
    char c = 0;
    EXPECT_EQ(describe(f.read(&c, kind(kind::type_char, 1, kind::flag_element))), "!Impl");
}

TEST_F(LuaFormat, AKeyCharacterIsUnavailableAndNothingIsPopped)
{
    push_value("'k'");
    char c = 0;
    EXPECT_EQ(describe(f.read(&c, kind(kind::key_char_word))), "!Avlb");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaFormat, AnUnknownTypeCodeIsUnknownTypeOnReading)
{
    push_value("1");
    uint32_t v = 0;
    EXPECT_EQ(describe(f.read(&v, kind(9, 4))), "SynEr / unknown type");
}

TEST_F(LuaFormat, ACharArrayBeginOnATableIsExpectedString)
{
    push_value("{}");
    uint32_t n = 0;
    EXPECT_EQ(describe(f.read(&n, kind(kind::type_char, 4, kind::flag_array_begin))), "SynEr / expected string");
}

TEST_F(LuaFormat, AnArrayBeginOnAStringIsExpectedArray)
{
    push_value("'abc'");
    uint32_t n = 0;
    EXPECT_EQ(describe(f.read(&n, kind(kind::type_int, 4, kind::flag_array_begin))), "SynEr / expected array");
}

TEST_F(LuaFormat, AStructOpenOnANumberIsExpectedObjectWithoutAPop)
{
    push_value("3");
    EXPECT_EQ(describe(f.read(nullptr, kind(kind::type_struct_open, 0))), "SynEr / expected object");
    EXPECT_EQ(lua_gettop(L), 1);
}

// -- Reading arrays and strings ------------------------------------------------------

TEST_F(LuaFormat, ANumberIsTakenAsAnArrayOfChar)
{
    push_value("42");
    uint32_t n = 0;
    ASSERT_EQ(f.read(&n, kind(kind::type_char, 4, kind::flag_array_begin)), opcd());
    EXPECT_EQ(n, 2u);
    dynarray<char, uint32_t> text;
    velk::dynarray_binstream_container<char> c(text, kind(kind::char_word));
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, n, count, nullptr), opcd());
    EXPECT_EQ(std::string(text.ptr(), text.size()), "42");
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, AStringWithZeroBytesIsReadWhole)
{
    push_value("'a\\0b\\0'");
    dynarray<char, uint32_t> text;
    velk::dynarray_binstream_container<char> c(text, kind(kind::char_word));
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, 4, count, nullptr), opcd());
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(std::string(text.ptr(), text.size()), std::string("a\0b\0", 4));
}

TEST_F(LuaFormat, ACharArrayOfAnotherLengthIsArraySizeAndTheStringIsPopped)
{
    push_value("'abc'");
    dynarray<char, uint32_t> text;
    velk::dynarray_binstream_container<char> c(text, kind(kind::char_word));
    uint64_t count = 0;
    EXPECT_EQ(describe(f.read_array_content(c, 5, count, nullptr)), "Misma / array size");
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, ATableOfAnotherLengthThanTheKnownSizeIsArraySize)
{
    push_value("{1, 2, 3}");
    dynarray<int32_t, uint32_t> values;
    velk::dynarray_binstream_container<int32_t> c(values);
    uint64_t count = 0;
    EXPECT_EQ(describe(f.read_array_content(c, 2, count, nullptr)), "Misma / array size");
}

TEST_F(LuaFormat, ReadsAnArrayBySeparatorsUntilTheEnd)
{
    push_value("{4, 5, 6}");
    uint32_t n = 0;
    ASSERT_EQ(f.read(&n, kind(kind::type_int, 4, kind::flag_array_begin)), opcd());
    EXPECT_EQ(n, 3u);
    dynarray<int32_t, uint32_t> values;
    velk::dynarray_binstream_container<int32_t> c(values);
    c.type.add_flags(kind::flag_separators);
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, velk::binstream_container_base::unknown_count, count, nullptr), opcd());
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(values[0], 4);
    EXPECT_EQ(values[2], 6);
    ASSERT_EQ(f.read(&count, c.type.with(0, kind::flag_array_end)), opcd());
    EXPECT_EQ(lua_gettop(L), 0);
    EXPECT_TRUE(f.frames.is_empty());
}

TEST_F(LuaFormat, ANilInTheMiddleOfAnArrayEndsAReadBySeparator)
{
    push_value("{7, 8, nil, 9}");
    uint32_t n = 0;
    ASSERT_EQ(f.read(&n, kind(kind::type_int, 4, kind::flag_array_begin)), opcd());
    // Walk the separators directly: the length operator of a table with a
    // hole may count past it, the separator never does.
    int32_t v = 0;
    kind et(kind::type_int, 4, kind::flag_element);
    ASSERT_EQ(f.read_array_separator(et), opcd());
    ASSERT_EQ(f.read(&v, et), opcd());
    ASSERT_EQ(f.read_array_separator(et), opcd());
    ASSERT_EQ(f.read(&v, et), opcd());
    EXPECT_EQ(v, 8);
    EXPECT_EQ(describe(f.read_array_separator(et)), "NMore");
    EXPECT_EQ(lua_type(L, -1), LUA_TTABLE); // the nil was popped
}

TEST_F(LuaFormat, ABinaryArrayIsDecodedFromHexWithSpacesSkipped)
{
    push_value("'0a ff 10  '");
    dynarray<uint8_t, uint32_t> bytes;
    velk::dynarray_binstream_container<uint8_t> c(bytes, kind(kind::type_binary, 1));
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, 3, count, nullptr), opcd());
    EXPECT_EQ(count, 3u);
    ASSERT_EQ(bytes.size(), 3u);
    EXPECT_EQ(bytes[0], 0x0A);
    EXPECT_EQ(bytes[1], 0xFF);
    EXPECT_EQ(bytes[2], 0x10);
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, AShortBinaryTextIsNotEnoughArrayElements)
{
    push_value("'0a'");
    dynarray<uint8_t, uint32_t> bytes;
    velk::dynarray_binstream_container<uint8_t> c(bytes, kind(kind::type_binary, 1));
    uint64_t count = 0;
    EXPECT_EQ(describe(f.read_array_content(c, 2, count, nullptr)), "Misma / not enough array elements");
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, TextAfterTheBinaryElementsIsMoreCharacters)
{
    push_value("'0a0bzz'");
    dynarray<uint8_t, uint32_t> bytes;
    velk::dynarray_binstream_container<uint8_t> c(bytes, kind(kind::type_binary, 1));
    uint64_t count = 0;
    EXPECT_EQ(describe(f.read_array_content(c, 2, count, nullptr)),
              "Misma / more characters after array elements read");
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaFormat, ABinaryArrayOfUnknownSizeTakesEveryByte)
{
    push_value("'01 02 03'");
    dynarray<uint8_t, uint32_t> bytes;
    velk::dynarray_binstream_container<uint8_t> c(bytes, kind(kind::type_binary, 1));
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, velk::binstream_container_base::unknown_count, count, nullptr), opcd());
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(bytes[2], 3);
}

// -- Keys ----------------------------------------------------------------------

TEST_F(LuaFormat, ReadKeyPushesTheExpectedMember)
{
    push_value("{name = 'v'}");
    charstr key;
    EXPECT_EQ(f.read_key(key, 0, "name"), opcd());
    EXPECT_EQ(key, token("name"));
    EXPECT_EQ(show_top(), "\"v\"");
}

TEST_F(LuaFormat, ReadKeyOfAMissingMemberLeavesANilAndGivesNoMore)
{
    push_value("{name = 'v'}");
    charstr key;
    EXPECT_EQ(describe(f.read_key(key, 0, "other")), "NMore");
    EXPECT_EQ(lua_gettop(L), 2);
    EXPECT_TRUE(lua_isnil(L, -1));
}

TEST_F(LuaFormat, WriteKeyPushesTheKeyText)
{
    EXPECT_EQ(f.write_key("member", 3), opcd());
    EXPECT_EQ(show_top(), "\"member\"");
}

// -- Oddities that stand -------------------------------------------------------------

TEST_F(LuaFormat, ABinaryArrayEndPopsTheEnclosingFrameAndOneValueMore)
{
    push_value("{b = '01'}");
    ASSERT_EQ(f.read(nullptr, kind(kind::type_struct_open, 0)), opcd());
    charstr key;
    ASSERT_EQ(f.read_key(key, 0, "b"), opcd());
    uint32_t n = 1;
    kind bin(kind::type_binary, 1);
    ASSERT_EQ(f.read(&n, bin.with(4, kind::flag_array_begin)), opcd()); // pushes no frame
    dynarray<uint8_t, uint32_t> bytes;
    velk::dynarray_binstream_container<uint8_t> c(bytes, bin);
    uint64_t count = 0;
    ASSERT_EQ(f.read_array_content(c, 1, count, nullptr), opcd()); // pops the string
    ASSERT_EQ(f.read(&count, bin.with(0, kind::flag_array_end)), opcd());
    EXPECT_TRUE(f.frames.is_empty()); // the structure's frame went
    EXPECT_EQ(lua_gettop(L), 0);      // and so did the structure's table
}

TEST_F(LuaFormat, IsNamedFmtstreamLuaCapi)
{
    EXPECT_EQ(f.fmtstream_name(), token("fmtstream_lua_capi"));
}

} // namespace

// -- lua_streamer_context: the thread's streamer ------------------------------------

namespace {

using velk::lua_streamer_context;

class LuaStreamer : public LuaFormat
{
protected:
    lua_streamer_context& s = lua_streamer_context::get_lua_streamer(true);
};

TEST_F(LuaStreamer, IsTheSameObjectOnOneThread)
{
    EXPECT_EQ(&s, &lua_streamer_context::get_lua_streamer(true));
}

TEST_F(LuaStreamer, EachThreadHasItsOwn)
{
    lua_streamer_context* other = nullptr;
    std::thread t([&] { other = &lua_streamer_context::get_lua_streamer(true); });
    t.join();
    EXPECT_NE(other, nullptr);
    EXPECT_NE(other, &s);
}

TEST_F(LuaStreamer, ReadsAndWritesThroughItsOwnFormat)
{
    EXPECT_EQ(s.meta.fmt_read, &s.fmt);
    EXPECT_EQ(s.meta.fmt_write, &s.fmt);
}

TEST_F(LuaStreamer, BindStackRecordsTheStateAndItsTop)
{
    push_value("1");
    s.bind_stack(L);
    EXPECT_EQ(s.fmt.L, L);
    EXPECT_EQ(s.fmt.top, 1);
}

TEST_F(LuaStreamer, ToLuaPushesOneString)
{
    s.bind_stack(L);
    s.to_lua(charstr("hello"));
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_EQ(show_top(), "\"hello\"");
}

TEST_F(LuaStreamer, ToLuaKeepsZeroBytes)
{
    s.bind_stack(L);
    charstr text;
    text.set("a\0b", 3);
    s.to_lua(text);
    size_t len = 0;
    const char* p = lua_tolstring(L, -1, &len);
    EXPECT_EQ(std::string(p, len), std::string("a\0b", 3));
}

TEST_F(LuaStreamer, ToLuaOfAnEmptyStringPushesAnEmptyString)
{
    s.bind_stack(L);
    s.to_lua(charstr());
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_EQ(show_top(), "\"\"");
}

TEST_F(LuaStreamer, FromLuaReadsTheStringAndPopsIt)
{
    push_value("'some text'");
    s.bind_stack(L);
    charstr text("old");
    s.from_lua(text);
    EXPECT_EQ(text, token("some text"));
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaStreamer, FromLuaTakesANumberAsItsText)
{
    push_value("42");
    s.bind_stack(L);
    charstr text;
    s.from_lua(text);
    EXPECT_EQ(text, token("42"));
}

TEST_F(LuaStreamer, FromLuaOfAnEmptyStringGivesAnEmptyString)
{
    push_value("''");
    s.bind_stack(L);
    charstr text("old");
    s.from_lua(text);
    EXPECT_TRUE(text.is_empty());
}

TEST_F(LuaStreamer, FromLuaKeepsZeroBytes)
{
    push_value("'x\\0y'");
    s.bind_stack(L);
    charstr text;
    s.from_lua(text);
    EXPECT_EQ(std::string(text.ptr(), text.lens()), std::string("x\0y", 3));
}

TEST_F(LuaStreamer, FromLuaOfATableThrowsWithThePositionText)
{
    push_value("{}");
    s.bind_stack(L);
    charstr text;
    try {
        s.from_lua(text);
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        // The root has no frame and no name: no path before the message.
        EXPECT_EQ(std::string(e.what()),
                  " - error reading variable '', error: syntax error, format invalid : expected string");
    }
}

TEST_F(LuaStreamer, WorksAgainAfterAFailedRun)
{
    push_value("{}");
    s.bind_stack(L);
    charstr text;
    EXPECT_THROW(s.from_lua(text), velk::exception);
    lua_settop(L, 0);
    s.bind_stack(L);
    s.to_lua(charstr("again"));
    EXPECT_EQ(show_top(), "\"again\"");
}

} // namespace

// -- Structures through metastream -------------------------------------------------------

#include "tests/comm/metastream/test_types.h"

namespace {

using velk::metastream;
using velk::testing::make_shape;
using velk::testing::point;
using velk::testing::shape;

class LuaStructures : public LuaFormat
{
protected:
    void SetUp() override
    {
        LuaFormat::SetUp();
        m.fmt_read = &f;
        m.fmt_write = &f;
    }
    void TearDown() override
    {
        m.rw_state = 0; // the format ends with the fixture's state
        LuaFormat::TearDown();
    }

    shape sample() { return make_shape("square", {-1, 2}, {{0, 0}, {5, 6}}, {9, -4}, 1, -7, 2.5, true); }

    metastream m;
};

TEST_F(LuaStructures, AStructureIsWrittenAsATableKeyedByMember)
{
    point p{3, -4};
    m.write_run(p);
    EXPECT_EQ(show_top(), "{x=3,y=-4}");
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_TRUE(f.frames.is_empty());
}

TEST_F(LuaStructures, NestedStructuresAndArraysBecomeNestedTables)
{
    m.write_run(sample());
    EXPECT_EQ(show_top(),
              "{closed=true,corners={1=1,2=0,3=0,4=-7},name=\"square\",origin={x=-1,y=2},scale=2.5,"
              "vertices={1={x=0,y=0},2={x=5,y=6}},weights={1=9,2=-4}}");
    EXPECT_EQ(lua_gettop(L), 1);
}

TEST_F(LuaStructures, AStructureReadFromALuaTableEqualsTheOneWritten)
{
    shape s = sample();
    m.write_run(s);
    shape back;
    m.read_run(back);
    EXPECT_TRUE(back == s);
    EXPECT_EQ(lua_gettop(L), 0);
    EXPECT_TRUE(f.frames.is_empty());
}

TEST_F(LuaStructures, ATableWrittenByAScriptIsReadIntoAStructure)
{
    push_value("{ name = 'tri', origin = {x = 1, y = 1}, vertices = {{x = 0, y = 0}, {x = 3, y = 0}},"
               "  weights = {}, corners = {1, 2, 3, 4}, scale = 0.25, closed = false,"
               "  unknown = 'ignored' }");
    shape back;
    m.read_run(back);
    EXPECT_EQ(back.name, velk::token("tri"));
    EXPECT_EQ(back.vertices.size(), 2u);
    EXPECT_EQ(back.vertices[1].x, 3);
    EXPECT_EQ(back.corners[3], 4);
    EXPECT_EQ(back.scale, 0.25);
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaStructures, AMemberOfTheWrongTypeFailsWithItsPath)
{
    push_value("{x = 'one', y = 2}");
    point p;
    try {
        m.read_run(p);
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_EQ(std::string(e.what()), ":point - error reading variable 'x', error: syntax error, format invalid : expected number");
    }
}

// The count comes from the table itself, so a shorter table fills the front
// of a fixed array and the rest keeps its values.
TEST_F(LuaStructures, AShorterTableFillsTheFrontOfAFixedArray)
{
    push_value("{ name = 'n', origin = {x = 0, y = 0}, vertices = {}, weights = {},"
               "  corners = {1, 2}, scale = 1, closed = true }");
    shape back;
    back.corners[2] = 30;
    back.corners[3] = 40;
    m.read_run(back);
    EXPECT_EQ(back.corners[0], 1);
    EXPECT_EQ(back.corners[1], 2);
    EXPECT_EQ(back.corners[2], 30);
    EXPECT_EQ(back.corners[3], 40);
    EXPECT_EQ(lua_gettop(L), 0);
}

TEST_F(LuaStructures, AMissingMemberWithoutDefaultFails)
{
    push_value("{x = 1}");
    point p;
    try {
        m.read_run(p);
        FAIL() << "no exception";
    } catch (const velk::exception& e) {
        EXPECT_EQ(std::string(e.what()), ":point - variable 'y' not found and no default value provided");
    }
}

} // namespace

namespace {

using velk::testing::settings;

// Each absent member leaves the nil of its lookup; the next lookup takes it
// off, so a table with many absent members still reads in balance.
class LuaAbsentMembers : public LuaStructures
{
protected:
    void read_settings(const char* table)
    {
        push_value(table);
        s.level = 11;
        s.comment = "kept";
        m.read_run(s);
    }
    settings s;
};

TEST_F(LuaAbsentMembers, AnAbsentOptionalMemberKeepsItsValue)
{
    read_settings("{}");
    EXPECT_EQ(s.level, 11);
    EXPECT_EQ(s.comment, velk::token("kept"));
}

TEST_F(LuaAbsentMembers, AnAbsentMemberWithADefaultTakesIt)
{
    read_settings("{}");
    EXPECT_EQ(s.retries, 3);
    EXPECT_EQ(s.mode, velk::token("fast"));
    ASSERT_EQ(s.ports.size(), 2u);
    EXPECT_EQ(s.ports[1], 443);
}

TEST_F(LuaAbsentMembers, AnAbsentStructureMemberTakesItsDefault)
{
    read_settings("{}");
    EXPECT_EQ(s.anchor.x, 7);
    EXPECT_EQ(s.anchor.y, 8);
}

TEST_F(LuaAbsentMembers, PresentMembersWinOverDefaults)
{
    read_settings("{ retries = 9, level = 2, anchor = {x = 1, y = 2} }");
    EXPECT_EQ(s.retries, 9);
    EXPECT_EQ(s.level, 2);
    EXPECT_EQ(s.anchor.y, 2);
}

TEST_F(LuaAbsentMembers, TheStackIsBalancedAfterARunWithAbsentMembers)
{
    read_settings("{ legacy = 5 }");
    EXPECT_EQ(lua_gettop(L), 0);
    EXPECT_TRUE(f.frames.is_empty());
}

TEST_F(LuaAbsentMembers, AnAbsentLastMemberLeavesWhatLiesBelowTheTable)
{
    lua_pushstring(L, "below");
    read_settings("{ level = 1 }"); // ports, the last member, is absent
    EXPECT_EQ(lua_gettop(L), 1);
    EXPECT_EQ(show_top(), "\"below\"");
}

} // namespace

// regex: a table of patterns, texts and the match each run must give, one
// test per row, grouped by construct. Expected results follow the matcher's
// rules: for find, the earliest start and of those the longest end, where
// alternatives that meet on one instruction keep the later start ("meet");
// for match, the whole input, or the empty token where the scan stopped, or
// null; for leading, the longest match from the start.
#include "comm/regex/regex.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

using namespace std::string_view_literals;
using velk::regex;
using velk::token;

namespace {

enum flags : int { none = 0, L = 1, I = 2, D = 4 }; // literal, ignore_case, dot_all

struct row
{
    const char* group;
    std::string_view pattern;
    int flags;
    char run; // 'f' find, 'm' match, 'l' leading
    std::string_view text;
    long off; // offset of the result in text; -1: null
    long len;
};

// Bytes outside printable ASCII as \xHH, so that test names and logs stay text.
std::string printable(std::string_view s)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (char ch : s) {
        auto b = static_cast<unsigned char>(ch);
        if (b >= 0x20 && b < 0x7F) {
            out += ch;
        } else {
            out += "\\x";
            out += hex[b >> 4];
            out += hex[b & 15];
        }
    }
    return out;
}

void PrintTo(const row& r, std::ostream* os)
{
    *os << r.run << " /" << printable(r.pattern) << "/ flags " << r.flags << " on \"" << printable(r.text)
        << "\" -> " << r.off << "," << r.len;
}

// clang-format off
const row rows[] = {
    // Characters and concatenation
    {"chars", "abc", 0, 'f', "xxabcxx", 2, 3},
    {"chars", "abc", 0, 'f', "ababc", 2, 3},
    {"chars", "abc", 0, 'f', "ab", -1, 0},
    {"chars", "abc", 0, 'm', "abc", 0, 3},
    {"chars", "abc", 0, 'm', "abcd", 3, 0},
    {"chars", "abc", 0, 'm', "xabc", -1, 0},
    {"chars", "abc", 0, 'l', "abcd", 0, 3},
    {"chars", "abc", 0, 'l', "xabc", -1, 0},
    {"chars", "a", 0, 'f', "", -1, 0},
    {"chars", "a", 0, 'm', "", -1, 0},
    {"chars", "abc", 0, 'f', "abd abc", 4, 3},
    {"chars", "aa", 0, 'f', "aaa", 0, 2},
    {"chars", "ab", 0, 'f', "aab", 1, 2},
    {"chars", "hello", 0, 'f', "say hello world", 4, 5},
    {"chars", "b", 0, 'f', "abc", 1, 1},
    {"chars", "ab", 0, 'm', "ab", 0, 2},
    // The empty pattern
    {"empty", "", 0, 'f', "abc", 0, 0},
    {"empty", "", 0, 'm', "", 0, 0},
    {"empty", "", 0, 'm', "a", 0, 0},
    {"empty", "", 0, 'l', "abc", 0, 0},
    {"empty", "", 0, 'f', "", 0, 0},
    // Any character
    {"dot", "a.c", 0, 'f', "abc", 0, 3},
    {"dot", "a.c", 0, 'f', "a\nc", 0, 3},
    {"dot", "a.c", 0, 'f', "ac", -1, 0},
    {"dot", ".", 0, 'f', "", -1, 0},
    {"dot", "a.c", 0, 'f', "a\0c"sv, -1, 0},
    {"dot", "a.c", D, 'f', "a\0c"sv, 0, 3},
    {"dot", ".", 0, 'f', "\xC3\xA9", 0, 2},
    {"dot", "..", 0, 'f', "\xC3\xA9", -1, 0},
    {"dot", "a.b", 0, 'f', "a\xC3\xA9" "b", 0, 4},
    {"dot", "...", 0, 'm', "abc", 0, 3},
    {"dot", "...", 0, 'm', "ab", -1, 0},
    {"dot", ".*", 0, 'm', "anything goes", 0, 13},
    {"dot", ".*", 0, 'm', "", 0, 0},
    {"dot", ".", D, 'f', "\n", 0, 1},
    {"dot", ".", 0, 'f', "\n", 0, 1},
    {"dot", ".b", 0, 'f', "\nb", 0, 2},
    {"dot", "a.*b", 0, 'f', "xaxxbxxb", 1, 7},
    {"dot", ".+", 0, 'l', "abc", 0, 3},
    {"dot", "a.c", D, 'f', "a\nc", 0, 3},
    {"dot", ".*", D, 'm', "a\0b"sv, 0, 3},
    {"dot", ".*", 0, 'm', "a\0b"sv, 1, 0},
    // Star
    {"star", "ab*c", 0, 'f', "ac", 0, 2},
    {"star", "ab*c", 0, 'f', "abbbc", 0, 5},
    {"star", "ab*c", 0, 'f', "abxc", -1, 0},
    {"star", "a*", 0, 'f', "bbb", 0, 0},
    {"star", "a*", 0, 'f', "baaa", 0, 0},
    {"star", "a*", 0, 'f', "aaa", 0, 3},
    {"star", "a*", 0, 'l', "aaab", 0, 3},
    {"star", "a*", 0, 'm', "aab", 2, 0},
    {"star", "a*", 0, 'm', "aa", 0, 2},
    {"star", "a*", 0, 'm', "", 0, 0},
    {"star", "a*b", 0, 'f', "aaab", 0, 4},
    {"star", "a*b", 0, 'f', "xxb", 2, 1},
    {"star", "(ab)*", 0, 'f', "ababx", 0, 4},
    {"meet", "(ab)*c", 0, 'f', "ababc", 4, 1},
    {"star", "a**", 0, 'f', "aaa", 0, 3},
    {"meet", "(a*)*b", 0, 'f', "aaab", 3, 1},
    {"star", "(a*)*b", 0, 'f', "aaaa", -1, 0},
    {"star", "x*y*z*", 0, 'm', "xxyzz", 0, 5},
    {"star", "x*y*z*", 0, 'm', "xzy", 2, 0},
    {"star", "ba*", 0, 'f', "abaa", 1, 3},
    {"star", "a*", 0, 'l', "", 0, 0},
    // Plus
    {"plus", "ab+c", 0, 'f', "ac", -1, 0},
    {"plus", "ab+c", 0, 'f', "abc", 0, 3},
    {"plus", "ab+c", 0, 'f', "abbc", 0, 4},
    {"plus", "a+", 0, 'f', "baaa", 1, 3},
    {"plus", "a+", 0, 'l', "baa", -1, 0},
    {"plus", "(ab)+", 0, 'm', "abab", 0, 4},
    {"plus", "(ab)+", 0, 'm', "aba", 0, 2},
    {"plus", "a+b+", 0, 'f', "xaabbby", 1, 5},
    {"plus", "[0-9]+", 0, 'f', "ab123c", 2, 3},
    {"plus", "a+", 0, 'm', "aaaa", 0, 4},
    {"plus", "(a|b)+", 0, 'm', "abba", 0, 4},
    {"plus", "a++", 0, 'f', "aa", 0, 2},
    {"plus", "a+", 0, 'l', "aaab", 0, 3},
    {"plus", "(ab)+", 0, 'l', "ababa", 0, 4},
    // Optional
    {"quest", "ab?c", 0, 'f', "ac", 0, 2},
    {"quest", "ab?c", 0, 'f', "abc", 0, 3},
    {"quest", "ab?c", 0, 'f', "abbc", -1, 0},
    {"quest", "x?", 0, 'm', "", 0, 0},
    {"quest", "x?", 0, 'm', "x", 0, 1},
    {"quest", "x?", 0, 'm', "xx", 1, 0},
    {"quest", "colou?r", 0, 'f', "color", 0, 5},
    {"quest", "colou?r", 0, 'f', "colour", 0, 6},
    {"quest", "a?b?c?", 0, 'l', "abcd", 0, 3},
    {"meet", "(ab)?c", 0, 'f', "abc", 2, 1},
    {"quest", "(ab)?c", 0, 'f', "ac", 1, 1},
    {"quest", "a??", 0, 'f', "a", 0, 1},
    // Alternation
    {"or", "a|b", 0, 'f', "xb", 1, 1},
    {"or", "a|ab", 0, 'f', "ab", 0, 2},
    {"or", "ab|a", 0, 'f', "ab", 0, 2},
    {"or", "cat|dog", 0, 'f', "hotdog", 3, 3},
    {"or", "cat|dog", 0, 'm', "dog", 0, 3},
    {"or", "cat|dog", 0, 'm', "dogs", 3, 0},
    {"or", "cat|dog", 0, 'm', "cats", 3, 0},
    {"or", "a|b|c", 0, 'f', "c", 0, 1},
    {"or", "(a|b)c", 0, 'f', "bc", 0, 2},
    {"or", "a(b|c)*d", 0, 'f', "abcbd", 0, 5},
    {"or", "x|y", 0, 'f', "", -1, 0},
    {"or", "ab|cd", 0, 'l', "cde", 0, 2},
    {"or", "ab|cd", 0, 'l', "ace", -1, 0},
    {"or", "(a|b)*", 0, 'm', "", 0, 0},
    {"or", "abc|abd", 0, 'f', "xabd", 1, 3},
    {"or", "(x|xy)z", 0, 'f', "xyz", 0, 3},
    {"or", "ab|abcd", 0, 'l', "abcde", 0, 4},
    // Leftmost, then longest
    {"longest", "x*", 0, 'f', "axx", 0, 0},
    {"longest", "a+|b", 0, 'f', "ba", 0, 1},
    {"longest", "aa|a", 0, 'f', "a", 0, 1},
    {"meet", "a.*b|a", 0, 'f', "aab", 0, 1},
    {"meet", "(a|b)*abb", 0, 'f', "babb", 1, 3},
    {"meet", "a|aa|aaa", 0, 'f', "aaaa", 0, 1},
    {"longest", "b+|a+", 0, 'f', "aabb", 0, 2},
    {"longest", "(a|ab)(c|bcd)", 0, 'f', "abcd", 0, 4},
    {"longest", "((a)b)c", 0, 'f', "abc", 0, 3},
    // Line anchors
    {"anchor", "^a", 0, 'f', "a", 0, 1},
    {"anchor", "^a", 0, 'f', "ba", -1, 0},
    {"anchor", "^a", 0, 'f', "b\na", 2, 1},
    {"anchor", "a$", 0, 'f', "ba", 1, 1},
    {"anchor", "a$", 0, 'f', "ab", -1, 0},
    {"anchor", "a$", 0, 'f', "a\nb", 0, 1},
    {"anchor", "^$", 0, 'f', "", 0, 0},
    {"anchor", "^$", 0, 'f', "a\n\nb", 2, 0},
    {"anchor", "^abc$", 0, 'm', "abc", 0, 3},
    {"anchor", "a^b", 0, 'f', "ab", -1, 0},
    {"anchor", "$", 0, 'f', "abc", 3, 0},
    {"anchor", "a$", 0, 'f', "a\0b"sv, 0, 1},
    {"anchor", "^", 0, 'f', "abc", 0, 0},
    {"anchor", "x$", 0, 'f', "ax\nbx", 1, 1},
    {"anchor", "^b", 0, 'f', "a\nb\nb", 2, 1},
    {"anchor", "^ab|^cd", 0, 'f', "x\ncd", 2, 2},
    {"anchor", "(^a|b)c", 0, 'f', "xbc", 1, 2},
    {"anchor", "^a", 0, 'l', "ab", 0, 1},
    {"anchor", "b$", 0, 'm', "ab", -1, 0},
    {"anchor", "^a$", 0, 'f', "b\na\nc", 2, 1},
    // Classes
    {"class", "[abc]", 0, 'f', "xxb", 2, 1},
    {"class", "[abc]", 0, 'f', "xyz", -1, 0},
    {"class", "[a-c]+", 0, 'f', "xabcd", 1, 3},
    {"class", "[^a]", 0, 'f', "a\nb", 2, 1},
    {"class", "[^a]", 0, 'f', "\n", -1, 0},
    {"class", "[]", 0, 'f', "abc", -1, 0},
    {"class", "[^]", 0, 'f', "\nx", 1, 1},
    {"class", "[]a", 0, 'f', "a", -1, 0},
    {"class", "[\\-a]", 0, 'f', "-", 0, 1},
    {"class", "[a\\]]", 0, 'f', "]", 0, 1},
    {"class", "[\\^a]", 0, 'f', "^", 0, 1},
    {"class", "[a^]", 0, 'f', "^", 0, 1},
    {"class", "[a-cx-z]", 0, 'f', "y", 0, 1},
    {"class", "[a-cx-z]", 0, 'f', "d", -1, 0},
    {"class", "[z-a]", 0, 'f', "m", -1, 0},
    {"class", "[z-a]", 0, 'f', "a", -1, 0},
    {"class", "[ab-d]", 0, 'f', "c", 0, 1},
    {"class", "[a-c-e]", 0, 'f', "d", 0, 1},
    {"class", "[.]", 0, 'f', "x", -1, 0},
    {"class", "[.]", 0, 'f', ".", 0, 1},
    {"class", "[*+?|()]+", 0, 'f', "a(*)b", 1, 3},
    {"class", "[\xC3\xA9]", 0, 'f', "\xC3\xA9", 0, 2},
    {"class", "[\xCE\xB1-\xCF\x89]", 0, 'f', "a\xCE\xB2", 1, 2},
    {"class", "[^\xC3\xA9]", 0, 'f', "\xC3\xA9x", 2, 1},
    {"class", "[^a-z]", 0, 'f', "abc1", 3, 1},
    {"class", "[^-a]", 0, 'f', "b", 0, 1},
    {"class", "[^-a]", 0, 'f', "A", -1, 0},
    {"class", "[0-9a-f]+", 0, 'm', "deadbeef42", 0, 10},
    {"class", "[0-9a-f]+", 0, 'm', "deadbeefx", 8, 0},
    {"class", "[ab]", 0, 'f', "\x80", -1, 0},
    {"class", "[^ab]", 0, 'f', "\x80", 0, 1},
    {"class", "[a-a]", 0, 'f', "a", 0, 1},
    {"class", "[\\]]", 0, 'f', "]", 0, 1},
    {"class", "[a]]", 0, 'f', "a]", 0, 2},
    {"class", "[[]", 0, 'f', "[", 0, 1},
    {"class", "[a-c]", 0, 'f', "B", -1, 0},
    {"class", "[\\\\]", 0, 'f', "\\", 0, 1},
    {"class", "[a-Z]", 0, 'f', "q", -1, 0},
    {"class", "[a-bc-d]+", 0, 'm', "abcd", 0, 4},
    // Ignoring case
    {"icase", "AbC", I, 'f', "abc", 0, 3},
    {"icase", "AbC", I, 'f', "ABC", 0, 3},
    {"icase", "abc", I, 'f', "xABC", 1, 3},
    {"icase", "[a-c]", I, 'f', "B", 0, 1},
    {"icase", "[abc]", I, 'f', "B", -1, 0},
    {"icase", "[a-a]", I, 'f', "A", 0, 1},
    {"icase", "[a]", I, 'f', "A", -1, 0},
    {"icase", "[A-C]", I, 'f', "b", 0, 1},
    {"icase", "[A-C]", I, 'f', "B", 0, 1},
    {"icase", "[^a-c]", I, 'f', "B", -1, 0},
    {"icase", "[^a-c]", I, 'f', "d", 0, 1},
    {"icase", "[B]", I, 'f', "b", -1, 0},
    {"icase", "[B]", I, 'f', "B", 0, 1},
    {"icase", "a", I, 'm', "A", 0, 1},
    {"icase", "\\A", I, 'f', "a", 0, 1},
    {"icase", "xt::.*", I, 'm', "XT::Foo", 0, 7},
    {"icase", "[0-9]+", I, 'f', "a12", 1, 2},
    {"icase", "a+", I, 'f', "bAaA", 1, 3},
    {"icase", "[a-z]+", I, 'm', "MiXeD", 0, 5},
    {"icase", "ABC", 0, 'f', "abc", -1, 0},
    {"icase", "^A", I, 'f', "b\na", 2, 1},
    {"icase", "[a-Z]", I, 'f', "q", 0, 1},
    {"icase", "[a-Z]", I, 'f', "Q", 0, 1},
    // Literal patterns
    {"literal", "a.c", L, 'f', "abc", -1, 0},
    {"literal", "a.c", L, 'f', "xa.c", 1, 3},
    {"literal", "(a", L, 'f', "x(a", 1, 2},
    {"literal", "a\\.c", L, 'f', "a.c", 0, 3},
    {"literal", "[", L, 'f', "[", 0, 1},
    {"literal", "a*", L, 'f', "aa*", 1, 2},
    {"literal", "^a$", L, 'f', "x^a$", 1, 3},
    {"literal", "a|b", L, 'f', "b", -1, 0},
    {"literal", "a|b", L, 'f', "a|b", 0, 3},
    {"literal", "ABC", L | I, 'f', "abc", 0, 3},
    {"literal", "", L, 'f', "x", 0, 0},
    {"literal", "x+", L, 'm', "x+", 0, 2},
    // Quoted characters
    {"quote", "\\(", 0, 'f', "(", 0, 1},
    {"quote", "\\n", 0, 'f', "n", 0, 1},
    {"quote", "\\n", 0, 'f', "\n", -1, 0},
    {"quote", "a\\*", 0, 'f', "aa*", 1, 2},
    {"quote", "\\.", 0, 'f', "a.b", 1, 1},
    {"quote", "\\\\", 0, 'f', "a\\b", 1, 1},
    {"quote", "a\\", 0, 'f', "xa", 1, 1},
    {"quote", "\\[a\\]", 0, 'f', "[a]", 0, 3},
    {"quote", "\\|", 0, 'f', "|", 0, 1},
    {"quote", "\\t", 0, 'f', "t", 0, 1},
    {"quote", "\\$", 0, 'f', "a$", 1, 1},
    {"quote", "\\^", 0, 'f', "^", 0, 1},
    // UTF-8 text
    {"utf8", ".", 0, 'f', "\x80", 0, 1},
    {"utf8", "a.b", 0, 'f', "a\xFF" "b", 0, 3},
    {"utf8", "\x80", 0, 'f', "a\x80", 1, 1},
    {"utf8", "\x80", 0, 'f', "a\xFF", 1, 1},
    {"utf8", "\xC3\xA9", 0, 'f', "x\xC3\xA9", 1, 2},
    {"utf8", "\xC3\xA9+", 0, 'm', "\xC3\xA9\xC3\xA9\xC3\xA9", 0, 6},
    {"utf8", "\xF0\x9F\x98\x80", 0, 'f', "a\xF0\x9F\x98\x80", 1, 4},
    {"utf8", "a.c", 0, 'f', "a\xF0\x9F\x98\x80" "c", 0, 6},
    {"utf8", "\xF8\x88\x80\x80\x80", 0, 'f', "\xF8\x88\x80\x80\x80", 0, 5},
    {"utf8", "\xC3\xA9", 0, 'f', "e", -1, 0},
    {"utf8", "[^a]+", 0, 'm', "\xE6\x97\xA5\xE6\x9C\xAC", 0, 6},
    {"utf8", "...", 0, 'm', "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 0, 9},
    {"utf8", "a.b", 0, 'f', "a\xC3" "b", -1, 0},
    {"utf8", "a.", 0, 'f', "a\xC3" "b", 0, 3},
    {"utf8", "a", 0, 'f', "a\xC3", 0, 1},
    {"utf8", "a", 0, 'm', "a\xC3", 1, 0},
    // Registry-style full matches
    {"registry", "xt::.*", 0, 'm', "xt::hostprobe_plugin@wrapper", 0, 28},
    {"registry", "xt::.*", 0, 'm', "js::x", -1, 0},
    {"registry", "xt::.*", 0, 'm', "xt::", 0, 4},
    {"registry", ".*@creator\\.js", 0, 'm', "xt::a.create@creator.js", 0, 23},
    {"registry", ".*@creator\\.js", 0, 'm', "xt::a.create@creator.jsx", 0, 23},
    {"registry", ".*@creator\\.js", 0, 'm', "xt::a@wrapper", -1, 0},
    {"registry", "xt::hostprobe_plugin\\..*@[0-9]+", 0, 'm', "xt::hostprobe_plugin.create@3445205045", 0, 38},
    {"registry", "xt::hostprobe_plugin\\..*@[0-9]+", 0, 'm', "xt::hostprobe_plugin@wrapper", -1, 0},
    {"registry", "[a-z_:]+@wrapper", 0, 'm', "xt::hostprobe_plugin@wrapper", 0, 28},
    {"registry", "[a-z_:]+@wrapper", 0, 'm', "xt::iface@wrapper", 0, 17},
    {"registry", "[a-z_:]+@wrapper", 0, 'm', "xt::iface7@wrapper", -1, 0},
    {"registry", "(xt::js::|xt::lua::).*", 0, 'm', "xt::lua::hostprobe_plugin.create", 0, 32},
    {"registry", ".*@(wrapper|maker\\.js)", 0, 'm', "xt::iface3@maker.js", 0, 19},
    {"registry", ".*@(wrapper|maker\\.js)", 0, 'm', "xt::iface3@maker.lua", -1, 0},
    {"registry", "lua::register_class\\..*", 0, 'm', "lua::register_class.xt_hostprobe_plugin", 0, 39},
};
// clang-format on

class RegexTable : public ::testing::TestWithParam<row>
{};

TEST_P(RegexTable, GivesExpectedMatch)
{
    const row& r = GetParam();
    regex re;
    re.compile(token(r.pattern.data(), r.pattern.size()), r.flags & L, r.flags & I, r.flags & D);
    token in(r.text.data(), r.text.size());
    token t = r.run == 'f' ? re.find(in) : r.run == 'm' ? re.match(in) : re.leading(in);
    long off = t.ptr() ? t.ptr() - r.text.data() : -1;
    EXPECT_EQ(off, r.off);
    if (r.off >= 0) {
        EXPECT_EQ(static_cast<long>(t.lens()), r.len);
    }
}

std::string row_name(const ::testing::TestParamInfo<row>& info)
{
    return std::string(info.param.group) + "_" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Constructs, RegexTable, ::testing::ValuesIn(rows), row_name);

TEST(RegexTableSize, CoversAtLeastTwoHundredCases)
{
    EXPECT_GE(sizeof(rows) / sizeof(rows[0]), 200u);
}

} // namespace

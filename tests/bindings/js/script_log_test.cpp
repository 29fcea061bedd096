// The level words at the start of a script's log text.
#include "bindings/js/script_log.h"
#include "comm/log/logger.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct parsed
{
    int32_t type;
    std::string rest;
};

parsed parse(const char* text)
{
    velk::token t(text);
    int32_t type = velk::log_level_from_text(t);
    return {type, std::string(t.ptr(), t.lens())};
}

} // namespace

TEST(ScriptLogLevel, EachWordGivesItsLevel)
{
    struct row
    {
        const char* text;
        int32_t type;
    };
    const row rows[] = {{"error: x", 1}, {"warn: x", 2},  {"warning: x", 2}, {"msg: x", 3},
                        {"info: x", 4},  {"dbg: x", 5},   {"debug: x", 5},   {"perf: x", 6}};
    for (const row& r : rows) {
        parsed p = parse(r.text);
        EXPECT_EQ(p.type, r.type) << r.text;
        EXPECT_EQ(p.rest, "x") << r.text;
    }
}

TEST(ScriptLogLevel, CaseIsIgnored) { EXPECT_EQ(parse("WaRnInG: x").type, 2); }

TEST(ScriptLogLevel, NoWordIsInformation)
{
    parsed p = parse("just text");
    EXPECT_EQ(p.type, 4);
    EXPECT_EQ(p.rest, "just text");
}

TEST(ScriptLogLevel, WordWithoutColonIsNoWord) { EXPECT_EQ(parse("error x").type, 4); }

TEST(ScriptLogLevel, WordInsideTheTextIsNoWord) { EXPECT_EQ(parse("an error: x").type, 4); }

TEST(ScriptLogLevel, WhiteSpaceBehindTheWordGoes) { EXPECT_EQ(parse("error: \t\r\n x").rest, "x"); }

TEST(ScriptLogLevel, LeadingWhiteSpaceGoesWithoutAWord)
{
    parsed p = parse("  \tx ");
    EXPECT_EQ(p.type, 4);
    EXPECT_EQ(p.rest, "x ");
}

TEST(ScriptLogLevel, WordAloneLeavesNothing)
{
    parsed p = parse("perf:");
    EXPECT_EQ(p.type, 6);
    EXPECT_EQ(p.rest, "");
}

TEST(ScriptLogLevel, EmptyTextIsInformation) { EXPECT_EQ(parse("").type, 4); }

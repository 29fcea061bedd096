// Fuzz target of the metastream reader, driven by the text test format. An
// input is a type byte, then the text, read as one of the metastream tests'
// types: a point, a shape, settings with defaults and obsolete members, a
// framed structure with a default as a whole, a forest of branches of leaves
// (three levels of arrays of structures), or a plain charstr. What must hold
// for any input:
// - the run ends normally or with velk::exception; nothing else escapes,
//   nothing crashes and nothing leaks (the fuzzer's leak check sees it);
// - a point or a charstr that was read is written and read back equal;
// - a second run on the same stream works as the first.
#include "comm/exception.h"
#include "comm/metastream/metastream.h"
#include "fuzz/fuzz_check.h"
#include "tests/comm/metastream/test_types.h"
#include "tests/comm/metastream/text_format.h"

#include <cstdint>
#include <string>

using velk::metastream;
using velk::token;
using velk::testing::text_format;
using velk::testing::write_text;

namespace {

fuzz_inputs inputs{"metastream_fuzz", "text", "written", {}, {}};
token& text_in = inputs.first;
token& written = inputs.second;

// Reads a T from text; false when the reader failed, as it may.
template <class T>
bool read_text(const std::string& text, T& out)
{
    text_format f;
    f.set_input(text);
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    try {
        m.read_run(out);
        return true;
    } catch (const velk::exception&) {
        return false;
    }
}

// What was read comes back equal through the writer and the reader.
template <class T>
void check_round_trip(const T& v)
{
    std::string text = write_text(v);
    written = token(text.data(), text.size());
    T back;
    REQUIRE(read_text(text, back));
    REQUIRE(back == v);
    written = token();
}

template <class T>
void read_only(const std::string& text)
{
    T v;
    read_text(text, v);
}

template <class T>
void read_and_round_trip(const std::string& text)
{
    T v;
    if (read_text(text, v))
        check_round_trip(v);
}

// Two runs on one stream: the second starts from a clean state.
void read_twice(const std::string& text)
{
    text_format f;
    metastream m;
    m.fmt_read = &f;
    f.meta = &m;
    bool ok[2];
    for (bool& result : ok) {
        f.set_input(text);
        velk::testing::forest v;
        try {
            m.read_run(v);
            result = true;
        } catch (const velk::exception&) {
            result = false;
        }
    }
    REQUIRE(ok[0] == ok[1]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text_in = token(text.data(), text.size());
    switch (data[0] % 7) {
    case 0: read_and_round_trip<velk::testing::point>(text); break;
    case 1: read_only<velk::testing::shape>(text); break;
    case 2: read_only<velk::testing::settings>(text); break;
    case 3: read_only<velk::testing::framed>(text); break;
    case 4: read_only<velk::testing::forest>(text); break;
    case 5: read_and_round_trip<velk::charstr>(text); break;
    default: read_twice(text); break;
    }
    return 0;
}

// Fuzz target of registry keys: their parse and the registry's table under
// them. An input is a list of operations separated by "\n"; each is an
// operation byte and a full key text. Byte % 3: 0 registers the key, 1 looks
// it up, 2 removes it. A map from the key's lookup part to its creator is
// kept beside the registry as the model. What must hold for any input:
// - every part of a parsed key is a view into the text, and the lookup part
//   is its start; the same holds for a name split for lookups by name;
// - the key number reader gives the decimal digits of the start, wrapping;
// - a key registered is found by the same text with the creator it was
//   given; a second one under the same lookup part is refused and the first
//   stays; a removed key is no longer found, and a second removal fails;
// - the registry holds as many entries as the model, and a lookup by name
//   gives only creators that the model holds.
#include "fuzz/fuzz_check.h"
#include "interface/creator_key.h"
#include "interface/interface_register.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <string>

using velk::creator_fn;
using velk::token;

namespace {

fuzz_inputs inputs{"key_fuzz", "key", "operation", {}, {}};
token& key_in = inputs.first;
token& op_in = inputs.second;

bool within(const token& part, const token& text)
{
    if (part.lens() == 0)
        return true; // an absent part may point anywhere, or nowhere
    return part.ptr() >= text.ptr() && part.ptre() <= text.ptre();
}

// The reader's rule, spelled out: decimal digits from the start, wrapping at 2^32.
uint32_t digits_of(const token& t)
{
    uint32_t n = 0;
    for (uint32_t i = 0; i < t.lens() && t.ptr()[i] >= '0' && t.ptr()[i] <= '9'; ++i)
        n = n * 10 + uint32_t(t.ptr()[i] - '0');
    return n;
}

void check_parse(const token& full)
{
    velk::creator_key k = velk::parse_creator_key(full);
    REQUIRE(k.key.lens() == 0 || k.key.ptr() == full.ptr());
    for (const token* part : {&k.key, &k.ns, &k.class_name, &k.method, &k.kind, &k.script, &k.module})
        REQUIRE(within(*part, full));
    velk::interface_name name = velk::split_interface_name(full);
    for (const token* part : {&name.ns, &name.class_name, &name.method})
        REQUIRE(within(*part, full));
    REQUIRE(velk::read_key_number(full) == digits_of(full));
}

// Creators that the registry never calls: only their addresses count.
template <int N>
void creator() {}
const creator_fn creators[4] = {creator<0>, creator<1>, creator<2>, creator<3>};

using model = std::map<std::string, creator_fn>;

std::string lookup_part(const token& full)
{
    token key = velk::parse_creator_key(full).key;
    return std::string(key.ptr() ? key.ptr() : "", key.lens());
}

void run_operation(velk::interface_register_impl& r, model& m, uint8_t op, const token& full, uint32_t index)
{
    std::string key = lookup_part(full);
    auto found = m.find(key);
    switch (op % 3) {
    case 0: {
        creator_fn c = creators[index % 4];
        bool entered = r.hook_creator(full, c);
        REQUIRE(entered == (found == m.end()));
        if (entered)
            m[key] = c;
        REQUIRE(r.find_creator(token(key.data(), key.size())) == m[key]);
        break;
    }
    case 1:
        REQUIRE(r.find_creator(token(key.data(), key.size())) == (found == m.end() ? nullptr : found->second));
        break;
    default:
        REQUIRE(r.hook_creator(full, nullptr) == (found != m.end()));
        m.erase(key);
        REQUIRE(r.find_creator(token(key.data(), key.size())) == nullptr);
        REQUIRE(!r.hook_creator(full, nullptr));
        break;
    }
}

void check_lookup_by_name(velk::interface_register_impl& r, const model& m, const token& name)
{
    velk::dynarray<velk::creator_match> out;
    r.find_creators(name, token(), out);
    for (uint64_t i = 0; i < out.size(); ++i) {
        auto it = m.find(std::string(out[i].key.ptr() ? out[i].key.ptr() : "", out[i].key.lens()));
        REQUIRE(it != m.end() && it->second == out[i].creator);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    velk::interface_register_impl r;
    model m;
    const char* p = reinterpret_cast<const char*>(data);
    const char* end = p + size;
    uint32_t index = 0;
    while (p < end) {
        const char* line_end = static_cast<const char*>(memchr(p, '\n', size_t(end - p)));
        if (!line_end)
            line_end = end;
        if (line_end > p) {
            // The key gets a block of its own size, so that a read past it is seen.
            size_t n = size_t(line_end - p - 1);
            std::string op(p, 1);
            char* key = new char[n ? n : 1];
            memcpy(key, p + 1, n);
            op_in = token(op.data(), 1);
            key_in = token(key, n);
            check_parse(key_in);
            run_operation(r, m, uint8_t(*p), key_in, index++);
            check_lookup_by_name(r, m, key_in);
            delete[] key;
        }
        p = line_end + 1;
    }
    key_in = token();
    op_in = token();
    REQUIRE(r.count() == m.size());
    return 0;
}

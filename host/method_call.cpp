// method_call: the entries, expanded from the method list, and the readers
// and writers of the types that the rows use.
#include "host/method_call.h"

#include "host/command_line.h"

#include <cstring>
#include <tuple>
#include <utility>

namespace host {

namespace {

// -- Argument types ------------------------------------------------------------
// A reader per argument type: strict, as command_line reads numbers.

template <class T>
struct argument;

template <>
struct argument<uint32_t>
{
    static constexpr const char* usage = " N (unsigned 32-bit)";
    static bool read(const char* word, uint32_t& out, velk::charstr& error) { return parse_uint32(word, out, error); }
};

template <>
struct argument<int32_t>
{
    static constexpr const char* usage = " N (signed 32-bit)";
    static bool read(const char* word, int32_t& out, velk::charstr& error) { return parse_int32(word, out, error); }
};

// The count of words against the arity, with the words a user reads: a
// method of one number "needs a number", of none "takes no argument".
bool count_matches(const char* name, int arity, int count, velk::charstr& error)
{
    if (count == arity)
        return true;
    error << "call " << name;
    if (arity == 0)
        error << " takes no argument";
    else if (arity == 1 && count == 0)
        error << " needs a number";
    else if (arity == 1)
        error << " takes one number, not " << count << " arguments";
    else if (count < arity)
        error << " needs " << arity << " numbers";
    else
        error << " takes " << arity << " numbers, not " << count << " arguments";
    return false;
}

// -- Calls by signature ------------------------------------------------------------

template <class Sig>
struct call_by_signature;

template <class R, class... A>
struct call_by_signature<R(A...)>
{
    static constexpr int arity = sizeof...(A);

    static bool check(const char* name, int count, char** words, velk::charstr& error)
    {
        if (!count_matches(name, arity, count, error))
            return false;
        std::tuple<A...> values;
        return read_all(words, values, error, std::index_sequence_for<A...>{});
    }

    static void call(const xt::hostprobe_plugin& p, uint32_t index, char** words, velk::charstr& text)
    {
        std::tuple<A...> values;
        velk::charstr unused; // check has read these words without a failure
        read_all(words, values, unused, std::index_sequence_for<A...>{});
        text << std::apply([&](A... a) { return p.call<R(A...)>(index, a...); }, values);
    }

    static void describe(velk::charstr& out) { ((out << argument<A>::usage), ...); }

private:
    // Reads word I into value I, left to right, up to the first failure.
    template <size_t... I>
    static bool read_all(char** words, std::tuple<A...>& values, velk::charstr& error, std::index_sequence<I...>)
    {
        (void)words; // a method without arguments reads none
        return (argument<A>::read(words[I], std::get<I>(values), error) && ...);
    }
};

#define XT_HOSTPROBE_CALL(name, index, signature)                                        \
    {#name, index, &call_by_signature<signature>::check, &call_by_signature<signature>::call, \
     &call_by_signature<signature>::describe},
constexpr method_call method_calls[] = {XT_HOSTPROBE_PLUGIN_METHODS(XT_HOSTPROBE_CALL)};
#undef XT_HOSTPROBE_CALL

constexpr size_t method_call_count = sizeof method_calls / sizeof method_calls[0];

// Appends each method, as item writes it, with ", " between and " or "
// before the last.
template <class Item>
void append_sentence(velk::charstr& out, Item item)
{
    for (size_t i = 0; i < method_call_count; ++i) {
        if (i > 0)
            out << (i + 1 == method_call_count ? " or " : ", ");
        item(method_calls[i]);
    }
}

} // namespace

const method_call* find_method_call(const char* name)
{
    for (const method_call& m : method_calls)
        if (!strcmp(m.name, name))
            return &m;
    return nullptr;
}

void append_method_names(velk::charstr& out)
{
    append_sentence(out, [&](const method_call& m) { out << m.name; });
}

void append_method_usage(velk::charstr& out)
{
    append_sentence(out, [&](const method_call& m) {
        out << m.name;
        m.describe(out);
    });
}

} // namespace host

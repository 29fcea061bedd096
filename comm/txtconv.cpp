// Text and number conversion: integer fields, the fitting float writer and
// hexadecimal. See txtconv.h for the contracts.
//
// The integer writers build their digits from the last one in a stack array
// and grow the string once. The float writer decides first how many digits
// the span can hold (and whether it needs an exponent), rounds the value once
// by adding half a unit of the last digit kept, and then only truncates.
#include "comm/txtconv.h"

#include "comm/charstr.h"
#include "comm/commassert.h"
#include "comm/token.h"

#include <cmath>
#include <cstring>
#include <new>

namespace velk {

namespace {

// -- Digits -----------------------------------------------------------------

// "00" to "99": two digits per division.
constexpr char digit_pairs[] = "00010203040506070809101112131415161718192021222324"
                               "25262728293031323334353637383940414243444546474849"
                               "50515253545556575859606162636465666768697071727374"
                               "75767778798081828384858687888990919293949596979899";

// The digits of radixes up to 36: lower case for the text writers.
constexpr char radix_digits_lower[] = "0123456789abcdefghijklmnopqrstuvwxyz";

// Decimal digits of m ending at end, the last one first; gives the first.
template <class U>
char* dec_digits(U m, char* end)
{
    while (m >= 100) {
        U r = m % 100;
        m /= 100;
        end -= 2;
        memcpy(end, digit_pairs + 2 * r, 2);
    }
    if (m >= 10) {
        end -= 2;
        memcpy(end, digit_pairs + 2 * m, 2);
    } else {
        *--end = static_cast<char>('0' + m);
    }
    return end;
}

// Digits of m in radix 2 to 36 ending at end; gives the first.
char* radix_digits(uint64_t m, uint32_t radix, char* end)
{
    if (radix == 10)
        return dec_digits(m, end);
    if ((radix & (radix - 1)) == 0) { // a power of two: shifts, not divisions
        uint32_t bits = static_cast<uint32_t>(__builtin_ctz(radix));
        do {
            *--end = radix_digits_lower[m & (radix - 1)];
            m >>= bits;
        } while (m);
        return end;
    }
    do {
        *--end = radix_digits_lower[m % radix];
        m /= radix;
    } while (m);
    return end;
}

// The magnitude in unsigned 64 bits: the most negative value has no positive.
uint64_t magnitude(int64_t v) { return v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v); }

// Copies the digits [first, end) through one append_buffer.
void append_digits(charstr& dst, const char* first, const char* end)
{
    uint32_t n = static_cast<uint32_t>(end - first);
    memcpy(dst.append_buffer(n), first, n);
}

// -- Number fields --------------------------------------------------------------
//
// The layout of append_num: lead blanks, the sign, zeros, the digits, then
// the tail fill and the terminator, which append_buffer writes. Centre keeps
// the whole padding for the tail after a lead of padding / 2, as the layout
// always did, so a centred field runs beyond min_size.
// The string is grown for all of it, so nothing is written out of bounds.

// Writes a field of sign (0 for none) and the digit text; gives the position
// behind the digits.
uint32_t append_field(charstr& dst, char sign, const char* digits, uint32_t ndigits, uint32_t min_size,
                      int32_t align)
{
    uint32_t width = ndigits + (sign ? 1 : 0);
    if (min_size <= width) { // no padding, whatever the align: the common case
        char* p = dst.append_buffer(width);
        if (sign)
            *p++ = sign;
        memcpy(p, digits, ndigits);
        return static_cast<uint32_t>(p + ndigits - dst.ptr());
    }
    uint32_t padding = min_size - width;
    uint32_t lead = 0, zeros = 0, tail = 0;
    char tail_char = ' ';
    switch (align) {
    case align_right:
        lead = padding;
        break;
    case align_center:
        lead = padding > 1 ? padding / 2 : 0;
        tail = padding; // not padding - lead: see above
        break;
    case align_right_zeros:
        zeros = padding;
        break;
    case align_left_zero_bytes:
        tail = padding;
        tail_char = 0;
        break;
    default:
        tail = padding;
        break;
    }
    char* p = dst.append_buffer(lead + width + zeros + tail);
    memset(p, ' ', lead);
    p += lead;
    if (sign)
        *p++ = sign;
    memset(p, '0', zeros);
    p += zeros;
    memcpy(p, digits, ndigits);
    p += ndigits;
    memset(p, tail_char, tail);
    return static_cast<uint32_t>(p - dst.ptr());
}

char sign_char(int32_t sign) { return sign < 0 ? '-' : sign > 0 ? '+' : 0; }

// -- Powers of ten ------------------------------------------------------------------

// 10^0 to 10^308, the largest finite power of a double: each entry is the
// literal, so the compiler gives the double nearest to the power.
#define VELK_DECADE(p) p##0, p##1, p##2, p##3, p##4, p##5, p##6, p##7, p##8, p##9
constexpr double pow10_table[309] = {
    VELK_DECADE(1e),   VELK_DECADE(1e1),  VELK_DECADE(1e2),  VELK_DECADE(1e3),  VELK_DECADE(1e4),
    VELK_DECADE(1e5),  VELK_DECADE(1e6),  VELK_DECADE(1e7),  VELK_DECADE(1e8),  VELK_DECADE(1e9),
    VELK_DECADE(1e10), VELK_DECADE(1e11), VELK_DECADE(1e12), VELK_DECADE(1e13), VELK_DECADE(1e14),
    VELK_DECADE(1e15), VELK_DECADE(1e16), VELK_DECADE(1e17), VELK_DECADE(1e18), VELK_DECADE(1e19),
    VELK_DECADE(1e20), VELK_DECADE(1e21), VELK_DECADE(1e22), VELK_DECADE(1e23), VELK_DECADE(1e24),
    VELK_DECADE(1e25), VELK_DECADE(1e26), VELK_DECADE(1e27), VELK_DECADE(1e28), VELK_DECADE(1e29),
    1e300, 1e301, 1e302, 1e303, 1e304, 1e305, 1e306, 1e307, 1e308};
#undef VELK_DECADE
constexpr int pow10_max = 308;

// v * 10^k. Negative powers divide by the positive ones, which are exact up
// to 10^22, so that v / 10^k is one rounding. Beyond 10^308 in two steps, as
// the values of a double reach from 10^-324 to 10^308.
double scale10(double v, int k)
{
    if (k >= 0) {
        if (k <= pow10_max)
            return v * pow10_table[k];
        return k <= 2 * pow10_max ? v * pow10_table[pow10_max] * pow10_table[k - pow10_max] : v * HUGE_VAL;
    }
    k = -k;
    if (k <= pow10_max)
        return v / pow10_table[k];
    return k <= 2 * pow10_max ? v / pow10_table[pow10_max] / pow10_table[k - pow10_max] : 0.0;
}

// Half a unit of the n-th digit behind the point: what rounding adds.
double half_unit(int64_t n)
{
    if (n > 2 * pow10_max)
        return 0.0;
    if (n < -2 * pow10_max)
        return HUGE_VAL;
    return scale10(0.5, static_cast<int>(-n));
}

// Whether v >= 10^k, for a finite v > 0 and k within a double's range.
// Multiplying by an exact positive power keeps the comparison exact down to
// 10^-22; below that the power is the nearest double.
bool at_least_pow10(double v, int k)
{
    if (k >= 0)
        return k <= pow10_max && v >= pow10_table[k];
    return scale10(v, -k) >= 1.0;
}

// floor(log10(v)) for a finite v > 0. v lies in [2^(b-1), 2^b), so log10(v)
// lies in [(b-1) log10 2, b log10 2), a range narrower than 1; 78913 / 2^18
// is log10 2 within 2^-20, which puts the estimate within one of the floor
// for every exponent of a double. Two comparisons with powers settle it.
int decimal_exponent(double v)
{
    uint64_t bits;
    memcpy(&bits, &v, sizeof bits);
    int b = static_cast<int>((bits >> 52) & 0x7FF) - 1022; // v = f 2^b, f in [0.5, 1)
    if (b == -1022)                                          // a subnormal
        std::frexp(v, &b);
    int e = ((b - 1) * 78913) >> 18; // an arithmetic shift: floor for negatives too
    if (!at_least_pow10(v, e))
        --e;
    else if (at_least_pow10(v, e + 1))
        ++e;
    return e;
}

// Digits of the decimal exponent's magnitude: 1 to 3 for a double.
int exponent_digits(int x)
{
    x = x < 0 ? -x : x;
    return x >= 100 ? 3 : x >= 10 ? 2 : 1;
}

// 2^64: the values below it have their integer part in 64 bits, exactly.
constexpr double two_to_64 = 18446744073709551616.0;

int64_t clamp_to_int32(int64_t v) { return v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : v; }

// -- The float writer's pieces ------------------------------------------------------

// A span that can't show the value: "?" throughout.
char* fill_unknown(char* start, char* end)
{
    memset(start, '?', static_cast<size_t>(end - start));
    return end;
}

// k digits of f (0 <= f < 1) by multiplying by 10 and truncating; with
// drop_zeros the text ends behind the last digit that isn't 0, but at least
// one digit stands. A digit is at most 9: a fraction that rounding carried
// to 1 shows as nines.
char* fraction_digits(char* p, double f, int64_t k, bool drop_zeros)
{
    char* last = p + 1;
    for (int64_t i = 0; i < k; ++i) {
        f *= 10.0;
        int d = static_cast<int>(f); // f >= 0: truncation is the floor
        if (d > 9)
            d = 9;
        f -= d;
        *p++ = static_cast<char>('0' + d);
        if (d)
            last = p;
    }
    return drop_zeros ? last : p;
}

// The exponent "e", "-" for a negative x, and its digits.
char* write_exponent(char* p, int x)
{
    *p++ = 'e';
    if (x < 0) {
        *p++ = '-';
        x = -x;
    }
    char digits[4];
    char* end = digits + sizeof digits;
    char* first = dec_digits(static_cast<uint32_t>(x), end);
    memcpy(p, first, static_cast<size_t>(end - first));
    return p + (end - first);
}

// The scientific form of v > 0 with decimal exponent e, in [p, end): one
// digit, ".", further digits up to most as they fit before the exponent, the
// exponent; the mantissa is rounded at its most-th digit. A span without room
// for "d.e" and the exponent is filled with "?" from start, the sign included.
char* write_scientific(char* start, char* p, char* end, double v, int e, int64_t most, bool drop_zeros)
{
    // Rounded after the scaling: near the largest double, the value plus
    // half a unit would overflow to infinity, and so would the mantissa.
    double m = scale10(v, -e) + half_unit(most); // in [1, 10] but for the rounding of the scaling
    if (m >= 10.0) {
        m /= 10.0;
        ++e;
    } else if (m < 1.0) {
        m *= 10.0;
        --e;
    }
    int64_t xlen = 1 + (e < 0 ? 1 : 0) + exponent_digits(e);
    if (end - p < 2 + xlen)
        return fill_unknown(start, end);
    int first = static_cast<int>(m);
    *p++ = static_cast<char>('0' + first);
    *p++ = '.';
    int64_t fit = (end - p) - xlen;
    int64_t k = most < fit ? most : fit;
    if (k > 0)
        p = fraction_digits(p, m - first, k, drop_zeros);
    return write_exponent(p, e);
}

// The point and the fraction behind a plain form, when nfrac asks for one
// and there is room for the point and a digit: a point with no digit behind
// it is left out. n is the number of decimals decided, sign of nfrac kept.
char* write_point_fraction(char* p, char* end, double fraction, int64_t n, int32_t nfrac)
{
    if (nfrac == 0 || n <= 0 || end - p < 2)
        return p;
    *p++ = '.';
    int32_t asked = static_cast<int32_t>(clamp_to_int32(nfrac > 0 ? n : -n));
    return charstrconv::append_fraction(p, end, fraction, asked, false);
}

// The plain form of a value from 1 up: the integer part
// and the fraction, given apart (see append_float), or, with whole set, a
// value of 2^64 or more, which has no fraction. An integer part wider than
// the span (after a rounding carry) becomes its leading one or two digits and
// an exponent, or "!!!", or "?"s, and no fraction follows.
char* write_plain_above_one(char* start, char* p, char* end, uint64_t ip, double fraction, double whole,
                            int64_t n, int32_t nfrac)
{
    char digits[24];
    char* dend = digits + sizeof digits;
    char* dfirst;
    int64_t zeros = 0; // the digits of a value above 2^64 end in zeros
    if (whole == 0) {
        dfirst = dec_digits(ip, dend);
    } else { // 19 leading digits, the rest zeros
        zeros = decimal_exponent(whole) - 18;
        double top = scale10(whole, -static_cast<int>(zeros)); // below 10^19, but for rounding
        if (top >= 1e19) {
            top /= 10;
            ++zeros;
        }
        dfirst = dec_digits(static_cast<uint64_t>(top), dend);
    }
    int64_t ndigits = (dend - dfirst) + zeros;
    int64_t room = end - p;
    if (ndigits <= room) {
        memcpy(p, dfirst, static_cast<size_t>(dend - dfirst));
        p += dend - dfirst;
        memset(p, '0', static_cast<size_t>(zeros));
        p += zeros;
        return write_point_fraction(p, end, fraction, n, nfrac);
    }
    for (int64_t lead = 2; lead >= 1; --lead) {
        int x = static_cast<int>(ndigits - lead);
        if (lead + 1 + exponent_digits(x) <= room) {
            memcpy(p, dfirst, static_cast<size_t>(lead));
            return write_exponent(p + lead, x);
        }
    }
    if (room >= 3) {
        memcpy(p, "!!!", 3);
        return p + 3;
    }
    return fill_unknown(start, end);
}

// The plain form of 0 <= v < 1: "0", the point and the
// fraction. No room even for the "0": "?"s, as for the other forms.
char* write_plain_below_one(char* start, char* p, char* end, double v, int64_t n, int32_t nfrac)
{
    if (p >= end)
        return fill_unknown(start, end);
    *p++ = '0';
    return write_point_fraction(p, end, v, n, nfrac);
}

// The report of append_fixed's checks, at fixed places so reports read the same everywhere.
void report_fixed(int32_t line, const char* expression)
{
    assert_message none;
    if (assert_report(none, "comm/txtconv", line, "velk::charstrconv::append_fixed", expression, 1))
        VELK_TRAP();
}

} // namespace

namespace charstrconv {

// -- Integers into a charstr ----------------------------------------------------

void append_dec(charstr& dst, uint32_t v)
{
    char digits[10]; // 2^32 - 1 has 10 digits
    char* end = digits + sizeof digits;
    append_digits(dst, dec_digits(v, end), end);
}

void append_dec(charstr& dst, uint16_t v) { append_dec(dst, static_cast<uint32_t>(v)); }

void append_dec(charstr& dst, uint64_t v)
{
    char digits[20]; // 2^64 - 1 has 20 digits
    char* end = digits + sizeof digits;
    append_digits(dst, dec_digits(v, end), end);
}

void append_dec(charstr& dst, int32_t v)
{
    char digits[11]; // 2^31 has 10 digits, and the sign
    char* end = digits + sizeof digits;
    uint32_t m = v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v);
    char* first = dec_digits(m, end);
    if (v < 0)
        *--first = '-';
    append_digits(dst, first, end);
}

void append_dec(charstr& dst, int64_t v)
{
    char digits[20]; // 2^63 has 19 digits, and the sign
    char* end = digits + sizeof digits;
    char* first = dec_digits(magnitude(v), end);
    if (v < 0)
        *--first = '-';
    append_digits(dst, first, end);
}

uint32_t append_num(charstr& dst, uint32_t radix, uint64_t magnitude, int32_t sign, uint32_t min_size, int32_t align)
{
    VELK_ASSERT(radix >= 2 && radix <= 36);
    if (radix < 2 || radix > 36)
        radix = 10;
    char digits[64]; // 2^64 - 1 in radix 2
    char* end = digits + sizeof digits;
    char* first = radix_digits(magnitude, radix, end);
    return append_field(dst, sign_char(sign), first, static_cast<uint32_t>(end - first), min_size, align);
}

uint32_t append_num_thousands(charstr& dst, int64_t value, char separator, uint32_t min_size, int32_t align)
{
    if (value == 0)
        return append_num(dst, 10, 0, 0, min_size, align);
    // Groups of three from the low end, each with the separator before it;
    // then the top group as it is.
    char text[27]; // 20 digits and 6 separators of 2^64 - 1, one spare
    char* end = text + sizeof text;
    char* p = end;
    uint64_t rest = magnitude(value);
    while (rest >= 1000) {
        uint32_t group = static_cast<uint32_t>(rest % 1000);
        rest /= 1000;
        p -= 3;
        p[0] = static_cast<char>('0' + group / 100);
        memcpy(p + 1, digit_pairs + 2 * (group % 100), 2);
        if (separator)
            *--p = separator;
    }
    p = dec_digits(rest, p);
    return append_field(dst, value < 0 ? '-' : 0, p, static_cast<uint32_t>(end - p), min_size, align);
}

void append_num_metric(charstr& dst, int64_t value, uint32_t width, int32_t align, char separator)
{
    static constexpr char letters[] = " kMGTPEZY";
    uint64_t m = magnitude(value);
    // The digits by the decimal logarithm of the value in double precision, on
    // purpose: a value just below a power of ten may round up, as it always has.
    int d = m ? static_cast<int>(std::floor(std::log10(static_cast<double>(m)))) + 1 : 0;
    uint32_t least = separator ? 7 : 6;
    if (width && width < least)
        width = least;
    int index = d / 3; // the plain quotient: three digits already take "k"
    bool suffix = width && align >= 1;
    uint32_t follow = suffix ? (separator ? 2 : 1) : 0;
    if (d < 4) {
        append_num(dst, 10, m, value < 0 ? -1 : 0, width - follow, align);
    } else {
        uint32_t span = width ? width - follow : 5;
        double scaled = scale10(static_cast<double>(value), -3 * index);
        char* p = dst.append_buffer(span);
        char* q = append_fixed(p, p + span, scaled, d - 3 * index - 3, align);
        // Every form from -2 to 2 fills the field; the others write nothing.
        if (align < -2 || align > 2)
            dst.resize(static_cast<int32_t>(q - dst.ptr()));
    }
    if (suffix) {
        if (separator)
            dst.append(separator);
        dst.append(letters[index]);
    }
}

void append_fill(charstr& dst, uint32_t n, char c)
{
    if (n)
        memset(dst.append_buffer(n), c, n);
}

// -- Floating point --------------------------------------------------------------
//
// The steps of append_float, with e the decimal exponent, room the
// bytes left behind the sign and n the number of decimals:
// 1. "-" for a negative value; 0 goes straight to the digits.
// 2-4. Fit: with e < 0 and nfrac > 0, n counts significant digits, and an
//    exponent form is taken when even the leading zeros don't fit. With
//    e >= 0 and a text wider than the room, n shrinks to what fits, or an
//    exponent form is taken when the integer part doesn't fit.
// 5. Round once, by half a unit of the n-th decimal.
// 6-9. e again (rounding may carry), then the exponent form or a plain one.
//    A plain form is written from its integer part and its fraction apart,
//    and rounds the fraction alone: the same sum, in more precision.
//
// Where the steps above leave a gap, the span decides: no point without a
// digit behind it, no fraction behind an integer part shown with an
// exponent, the "-" of a negative exponent counted in the exponent form's
// room, and the mantissa's digits kept to the significant ones (with trailing
// zeros dropped for nfrac > 0), so that no digit shows the rounding's half.

char* append_float(char* start, char* end, double value, int32_t nfrac)
{
    if (start >= end)
        return start;
    if (!std::isfinite(value)) // nothing passes these; they show as a value that doesn't fit
        return fill_unknown(start, end);
    char* p = start;
    if (value < 0) {
        *p++ = '-';
        value = -value;
    }
    int64_t n = nfrac < 0 ? -static_cast<int64_t>(nfrac) : nfrac;
    if (value == 0)
        return write_plain_below_one(start, p, end, value, n, nfrac);

    int64_t room = end - p;
    int e = decimal_exponent(value);
    bool scientific = false;
    if (e < 0 && nfrac > 0) {
        if (e + room < n) { // the leading zeros would push out the digits
            scientific = true;
            int64_t fits = room - 3 - exponent_digits(e);
            n = n < fits ? n : fits;
        }
        n += -e - 1; // significant digits become decimals
    } else if (e >= 0 && room < e + 1 + (nfrac ? n + 1 : 0)) {
        if (e + 1 > room) {
            scientific = true;
            n = room - exponent_digits(e) - e - 3;
        } else if (e + 1 == room) {
            n = 0;
        } else {
            n = room - e - 2;
        }
    }

    if (scientific) // the mantissa's digits behind its point: n less the places before
        return write_scientific(start, p, end, value, e, n + e, nfrac > 0);
    // A plain form rounds at n >= 0 decimals. Above 2^64 there is nothing to
    // round. Below, the half unit goes to the fraction alone, which is exact
    // and has the precision that the whole value lacks: added to a value of
    // 2^52 or more, half a unit would round to even instead of up.
    if (value >= two_to_64)
        return write_plain_above_one(start, p, end, 0, 0.0, value, n, nfrac);
    uint64_t ip = static_cast<uint64_t>(value);
    double fraction = value - static_cast<double>(ip) + half_unit(n);
    if (fraction >= 1.0) { // the rounding carried
        ++ip;
        fraction -= 1.0;
    }
    if (ip == 0)
        return write_plain_below_one(start, p, end, fraction, n, nfrac);
    return write_plain_above_one(start, p, end, ip, fraction, 0.0, n, nfrac);
}

char* append_fraction(char* start, char* end, double fraction, int32_t nfrac, bool round)
{
    int64_t room = end > start ? end - start : 0;
    int64_t asked = nfrac < 0 ? -static_cast<int64_t>(nfrac) : nfrac;
    int64_t n = room < asked ? room : asked;
    if (n < 1)
        return nfrac > 0 ? start + 1 : start;
    if (round)
        fraction += half_unit(n);
    return fraction_digits(start, fraction, n, nfrac > 0);
}

char* append_fixed(char* start, char* end, double value, int32_t nfrac, int32_t align)
{
    if (end < start) {
        report_fixed(40, "end>=buf");
        return start;
    }
    uint32_t form = static_cast<uint32_t>(align);
    if (form >= 3 && form <= 0xFFFFFFFDu) // neither left (-1, -2) nor 0 to 2
        return start;
    char* text_end = append_float(start, end, value, nfrac);
    if (align < 0) { // left: the fill follows the text
        memset(text_end, align == align_left_zero_bytes ? 0 : ' ', static_cast<size_t>(end - text_end));
        return text_end;
    }
    // The text moves right within the span instead of being written into a
    // copy first: the same result, with no limit on the span's size.
    ptrdiff_t d = end - text_end; // the unused room
    if (d < 0) {
        report_fixed(26, "d >= 0");
        return end;
    }
    size_t len = static_cast<size_t>(text_end - start);
    switch (align) {
    case align_center: {
        ptrdiff_t lead = d / 2;
        memmove(start + lead, start, len);
        memset(start, ' ', static_cast<size_t>(lead));
        memset(start + lead + len, ' ', static_cast<size_t>(d - lead));
        return start + lead + len;
    }
    case align_right:
        memmove(start + d, start, len);
        memset(start, ' ', static_cast<size_t>(d));
        return end;
    default: { // align_right_zeros: the sign stays first, the zeros follow it
        size_t sign = len && start[0] == '-' ? 1 : 0;
        memmove(start + sign + d, start + sign, len - sign);
        memset(start + sign, '0', static_cast<size_t>(d));
        return end;
    }
    }
}

// -- Hexadecimal --------------------------------------------------------------------

namespace {

// 0 to 15 for a hex digit of either case, -1 for anything else.
int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

uint32_t hex_decode(token& src, void* dst, uint32_t n, char separator)
{
    const char* p = src.ptr();
    const char* e = src.ptre();
    uint8_t* out = static_cast<uint8_t*>(dst);
    uint32_t i = 0;
    for (; i < n; ++i) {
        if (i > 0 && separator && p < e && *p == separator)
            ++p;
        int hi = p < e ? hex_value(*p) : -1;
        if (hi < 0)
            break;
        out[i] = static_cast<uint8_t>(hi << 4);
        int lo = p + 1 < e ? hex_value(p[1]) : -1;
        if (lo < 0) // src stays at the pair's first digit; the high half stays stored
            break;
        out[i] = static_cast<uint8_t>(out[i] | lo);
        p += 2;
    }
    src = token(p, e);
    return n - i;
}

void hex_encode(const void* src, char*& dst, uint32_t count, uint32_t item_size, char separator)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    const uint8_t* item = static_cast<const uint8_t*>(src);
    char* d = dst;
    for (uint32_t i = 0; i < count; ++i, item += item_size) {
        if (i && separator)
            *d++ = separator;
        for (uint32_t b = item_size; b > 0; --b) { // the last byte first
            uint8_t v = item[b - 1];
            *d++ = digits[v >> 4];
            *d++ = digits[v & 15];
        }
    }
    dst = d;
}

uint32_t hex_record(char* dst, uint16_t address, uint8_t count, const void* data)
{
    char* d = dst;
    *d++ = ':';
    const uint8_t head[4] = {count, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address), 0};
    hex_encode(head, d, 4, 1);
    hex_encode(data, d, count, 1);
    // The checksum makes the bytes of the record sum to 0 in 8 bits: they
    // are read back from the digits just written.
    uint32_t sum = 0;
    token written(dst + 1, d);
    uint8_t byte;
    while (hex_decode(written, &byte, 1) == 0)
        sum += byte;
    const uint8_t check = static_cast<uint8_t>(0u - sum);
    hex_encode(&check, d, 1, 1);
    memcpy(d, "\r\n", 3); // with the zero byte
    return static_cast<uint32_t>(d + 2 - dst);
}

} // namespace charstrconv

} // namespace velk

// opcd: the table of the 65 codes and the operations on values.
#include "comm/opcd.h"

#include "comm/token.h"

#include <cstring>

namespace velk {

// Row 0 exists for its text only: the value of code 0 is null, never a pointer to it.
const opcd_record<6> opcd_rows[65] = {
    {0, "\0\0\0\0\0"},
    {1, "?????"},
    {2, "FrErr"},
    {3, "Spcfc"},
    {4, "Abort"},
    {5, "ADel "},
    {6, "Exist"},
    {7, "Busy "},
    {8, "Deny "},
    {9, "Exc  "},
    {10, "Exit "},
    {11, "Fail "},
    {12, "Assrt"},
    {13, "Ignor"},
    {14, "State"},
    {15, "IntEr"},
    {16, "ICred"},
    {17, "IName"},
    {18, "IParm"},
    {19, "IType"},
    {20, "IVer "},
    {21, "ILgn "},
    {22, "LGnam"},
    {23, "LGpwd"},
    {24, "IOerr"},
    {25, "Misma"},
    {26, "NChng"},
    {27, "NMtch"},
    {28, "NMore"},
    {29, "!Mem "},
    {30, "!VMem"},
    {31, "!Fnd "},
    {32, "!Impl"},
    {33, "!Rdy "},
    {34, "Obslt"},
    {35, "OoRng"},
    {36, "Rjctd"},
    {37, "Retry"},
    {38, "SynEr"},
    {39, "TimeO"},
    {40, "!Avlb"},
    {41, "?Cmd "},
    {42, "FEcon"},
    {43, "FEchn"},
    {44, "FEden"},
    {45, "FEdis"},
    {46, "FEexc"},
    {47, "FEvSr"},
    {48, "FEvSc"},
    {49, "FEacc"},
    {50, "FEnss"},
    {51, "FEnla"},
    {52, "FE!at"},
    {53, "FE!au"},
    {54, "FE!pr"},
    {55, "FE!rd"},
    {56, "FEdlt"},
    {57, "FE?m "},
    {58, "FErch"},
    {59, "FErcg"},
    {60, "FE???"},
    {61, "intOv"},
    {62, "!know"},
    {63, "discn"},
    {64, "Isess"},
};

namespace {

struct opcd_row
{
    int16_t group; // the parent's code, or a non-positive value for none
    const char* text;
};

// Rows 1 and 60 share a text, as do row 12 and the assertion exception's.
const opcd_row rows[65] = {
    {0, "OK"},
    {-1, "unknown error"},
    {-2, "framework error"},
    {-3, "object specific"},
    {-4, "aborted"},
    {-5, "object already deleted"},
    {-6, "object already exists, cannot be created"},
    {-7, "host busy"},
    {-8, "request denied, insufficient access rights"},
    {-9, "internal exception"},
    {-10, "exit"},
    {-11, "failure (general)"},
    {-12, "assertion failed"},
    {-13, "ignore"},
    {-14, "object is in improper state for the operation"},
    {-15, "internal error"},
    {-16, "invalid credentials"},
    {-17, "invalid name or string"},
    {-18, "invalid parameters"},
    {-19, "invalid type specified"},
    {-20, "invalid version"},
    {-21, "invalid login"},
    {21, "invalid login name"},
    {21, "invalid password"},
    {-24, "io error during processing"},
    {-25, "mismatched (format of something)"},
    {-26, "no change from last call (cache)"},
    {-27, "no object matches the requisites"},
    {-28, "no more (data)"},
    {-29, "not enough allocatable memory"},
    {-30, "out of address space"},
    {-31, "requested object not found"},
    {-32, "method not implemented"},
    {-33, "object not ready (asynchronous)"},
    {-34, "obsolete (version)"},
    {-35, "index or value out of range"},
    {-36, "request rejected"},
    {-37, "retry"},
    {-38, "syntax error, format invalid"},
    {-39, "timeout"},
    {-40, "operation is unavailable at this time/state"},
    {-41, "unknown/unrecognized command"},
    {2, "already connected"},
    {2, "error on communication link"},
    {2, "connection denied"},
    {2, "disconnected from source"},
    {2, "client side exception"},
    {2, "invalid velk server version"},
    {2, "invalid service version"},
    {2, "no access mode fits"},
    {2, "no such service"},
    {2, "nonlocal autoclient"},
    {2, "no such service attached (obj.id out of bounds)"},
    {2, "not authentified"},
    {2, "not a primary service"},
    {2, "not yet ready"},
    {2, "service was already deleted"},
    {2, "unknown method"},
    {2, "host unreachable"},
    {2, "unrecognized request"},
    {2, "unknown error"},
    {-42, "integer overflow during conversion"},
    {-43, "not known"},
    {-44, "disconnected"},
    {-45, "invalid session identifer"},
};

const char* record_text(const void* record)
{
    return static_cast<const opcd_record<6>*>(record)->text;
}

} // namespace

void opcd::set_code(uint32_t n)
{
    _record = n == 0 ? nullptr : &opcd_rows[n < row_count ? n : 1];
}

const char* opcd::text() const
{
    return rows[code()].text;
}

const char* opcd::info() const
{
    // The detail begins right after the five characters of the mnemonic.
    if (code() == 0)
        return "";
    return record_text(_record) + 5;
}

token opcd::mnemonic() const
{
    if (code() == 0)
        return token("");
    return token(record_text(_record), 5);
}

uint16_t opcd::find_by_mnemonic(const char* text, uint32_t n)
{
    if (strncmp(text, "OK", n) == 0)
        return 0;
    // Six bytes at most: the sixth is the record's next byte, 0 in a row.
    uint32_t m = n < 6 ? n : 6;
    for (uint16_t c = 0; c < row_count; ++c) {
        if (strncmp(opcd_rows[c].text, text, m) == 0)
            return c;
    }
    return 1;
}

bool opcd::group_matches(uint32_t code, int32_t value)
{
    return code < row_count && rows[code].group == value;
}

} // namespace velk

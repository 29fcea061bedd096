// opcd: the result code of the library, one pointer wide.
//
// Null is success. Every other value points at a constant record: a 16-bit
// code, a 5-character mnemonic and, right behind it, a detail text that is
// empty for the table's own rows. Values compare by their code alone, so a
// value with a detail equals the plain value of its code. Codes above the
// table count as 1, "unknown error".
//
//   opcd e = stream.read(...);
//   if (e == ers::no_more) ...              // the normal end of data
//   throw ers::syntax_expected_string;     // a detailed value, made at compile time
#pragma once

#include <cstdint>

namespace velk {

class token;

// The layout of every record: code, then the mnemonic and the detail joined.
template <unsigned N>
struct opcd_record
{
    uint16_t code;
    char text[N];
};

// The 65 rows' own records; the detail of each is empty.
extern const opcd_record<6> opcd_rows[65];

class opcd
{
public:
    static constexpr uint32_t row_count = 65;

    constexpr opcd() = default;
    // 0 is success; no other integer converts.
    constexpr opcd(decltype(nullptr)) {}
    template <unsigned N>
    constexpr opcd(const opcd_record<N>* record) : _record(record) {}

    // 0 gives success, 65 and above row 1 ("?????"), others their row.
    void set_code(uint32_t n);

    // The clamped code on which all comparison rests: null 0, above 64 counts as 1.
    uint16_t code() const
    {
        if (!_record)
            return 0;
        uint16_t c = *static_cast<const uint16_t*>(_record);
        return c < row_count ? c : 1;
    }

    bool operator==(const opcd& other) const { return code() == other.code(); }
    // An error: not null, and a code other than 0.
    explicit operator bool() const { return code() != 0; }

    // The row's text; success gives "OK".
    const char* text() const;
    // The detail; never null, empty for success and for plain values.
    const char* info() const;
    // The five characters of the mnemonic, not zero-terminated; empty for success.
    token mnemonic() const;

    // The code of the first row whose mnemonic equals text (n bytes, at most
    // 6 compared); "OK" gives 0, no row gives 1.
    static uint16_t find_by_mnemonic(const char* text, uint32_t n);
    // True when row code's group, as signed 16 bits, equals value.
    static bool group_matches(uint32_t code, int32_t value);

private:
    const void* _record = nullptr;
};

} // namespace velk

// A detailed value: the mnemonic and the detail joined at compile time.
#define VELK_OPCD_DETAILED(name, code, mnemonic, detail)                                      \
    constexpr ::velk::opcd_record<sizeof(mnemonic detail)> name##_record{code, mnemonic detail}; \
    constexpr ::velk::opcd name{&name##_record}

namespace velk::ers {

// One constant per row, after the row's text; the mnemonic stands beside it.
constexpr opcd unknown{&opcd_rows[1]};            // "?????"
constexpr opcd framework{&opcd_rows[2]};          // "FrErr"
constexpr opcd object_specific{&opcd_rows[3]};    // "Spcfc"
constexpr opcd aborted{&opcd_rows[4]};            // "Abort"
constexpr opcd already_deleted{&opcd_rows[5]};    // "ADel "
constexpr opcd exists{&opcd_rows[6]};             // "Exist"
constexpr opcd busy{&opcd_rows[7]};               // "Busy "
constexpr opcd denied{&opcd_rows[8]};             // "Deny "
constexpr opcd internal_exception{&opcd_rows[9]}; // "Exc  "
constexpr opcd exit{&opcd_rows[10]};              // "Exit "
constexpr opcd failed{&opcd_rows[11]};            // "Fail "
constexpr opcd assertion{&opcd_rows[12]};         // "Assrt"
constexpr opcd ignore{&opcd_rows[13]};            // "Ignor"
constexpr opcd improper_state{&opcd_rows[14]};    // "State"
constexpr opcd internal_error{&opcd_rows[15]};    // "IntEr"
constexpr opcd invalid_credentials{&opcd_rows[16]}; // "ICred"
constexpr opcd invalid_name{&opcd_rows[17]};      // "IName"
constexpr opcd invalid_params{&opcd_rows[18]};    // "IParm"
constexpr opcd invalid_type{&opcd_rows[19]};      // "IType"
constexpr opcd invalid_version{&opcd_rows[20]};   // "IVer "
constexpr opcd invalid_login{&opcd_rows[21]};     // "ILgn "
constexpr opcd invalid_login_name{&opcd_rows[22]}; // "LGnam"
constexpr opcd invalid_password{&opcd_rows[23]};  // "LGpwd"
constexpr opcd io_error{&opcd_rows[24]};          // "IOerr"
constexpr opcd mismatched{&opcd_rows[25]};        // "Misma"
constexpr opcd no_change{&opcd_rows[26]};         // "NChng"
constexpr opcd no_match{&opcd_rows[27]};          // "NMtch"
constexpr opcd no_more{&opcd_rows[28]};           // "NMore"
constexpr opcd out_of_memory{&opcd_rows[29]};     // "!Mem "
constexpr opcd out_of_address_space{&opcd_rows[30]}; // "!VMem"
constexpr opcd not_found{&opcd_rows[31]};         // "!Fnd "
constexpr opcd not_implemented{&opcd_rows[32]};   // "!Impl"
constexpr opcd not_ready{&opcd_rows[33]};         // "!Rdy "
constexpr opcd obsolete{&opcd_rows[34]};          // "Obslt"
constexpr opcd out_of_range{&opcd_rows[35]};      // "OoRng"
constexpr opcd rejected{&opcd_rows[36]};          // "Rjctd"
constexpr opcd retry{&opcd_rows[37]};             // "Retry"
constexpr opcd syntax{&opcd_rows[38]};            // "SynEr"
constexpr opcd timeout{&opcd_rows[39]};           // "TimeO"
constexpr opcd unavailable{&opcd_rows[40]};       // "!Avlb"
constexpr opcd unknown_command{&opcd_rows[41]};   // "?Cmd "
constexpr opcd fe_already_connected{&opcd_rows[42]}; // "FEcon"
constexpr opcd fe_link_error{&opcd_rows[43]};     // "FEchn"
constexpr opcd fe_connection_denied{&opcd_rows[44]}; // "FEden"
constexpr opcd fe_disconnected{&opcd_rows[45]};   // "FEdis"
constexpr opcd fe_client_exception{&opcd_rows[46]}; // "FEexc"
constexpr opcd fe_server_version{&opcd_rows[47]}; // "FEvSr"
constexpr opcd fe_service_version{&opcd_rows[48]}; // "FEvSc"
constexpr opcd fe_no_access_mode{&opcd_rows[49]}; // "FEacc"
constexpr opcd fe_no_such_service{&opcd_rows[50]}; // "FEnss"
constexpr opcd fe_nonlocal_autoclient{&opcd_rows[51]}; // "FEnla"
constexpr opcd fe_not_attached{&opcd_rows[52]};   // "FE!at"
constexpr opcd fe_not_authentified{&opcd_rows[53]}; // "FE!au"
constexpr opcd fe_not_primary{&opcd_rows[54]};    // "FE!pr"
constexpr opcd fe_not_ready{&opcd_rows[55]};      // "FE!rd"
constexpr opcd fe_service_deleted{&opcd_rows[56]}; // "FEdlt"
constexpr opcd fe_unknown_method{&opcd_rows[57]}; // "FE?m "
constexpr opcd fe_host_unreachable{&opcd_rows[58]}; // "FErch"
constexpr opcd fe_unrecognized_request{&opcd_rows[59]}; // "FErcg"
constexpr opcd fe_unknown{&opcd_rows[60]};        // "FE???"
constexpr opcd integer_overflow{&opcd_rows[61]};  // "intOv"
constexpr opcd not_known{&opcd_rows[62]};         // "!know"
constexpr opcd disconnected{&opcd_rows[63]};      // "discn"
constexpr opcd invalid_session{&opcd_rows[64]};   // "Isess"

// The detailed values the system uses.
VELK_OPCD_DETAILED(io_error_data_left, 24, "IOerr", "data left in input buffer");
VELK_OPCD_DETAILED(io_error_write_failed, 24, "IOerr", "write operation failed");
VELK_OPCD_DETAILED(mismatched_cached_elements_left, 25, "Misma", "elements left in cached array");
VELK_OPCD_DETAILED(mismatched_redundant_member, 25, "Misma", "redundant member data");
VELK_OPCD_DETAILED(mismatched_not_enough_elements, 25, "Misma", "not enough array elements");
VELK_OPCD_DETAILED(mismatched_characters_after_array, 25, "Misma", "more characters after array elements read");
VELK_OPCD_DETAILED(mismatched_array_size, 25, "Misma", "array size");
VELK_OPCD_DETAILED(no_more_required_data, 28, "NMore", "required more data than available");
VELK_OPCD_DETAILED(not_found_variable, 31, "!Fnd ", "no such variable");
VELK_OPCD_DETAILED(not_found_member_variable, 31, "!Fnd ", "no such member variable");
VELK_OPCD_DETAILED(syntax_unknown_type, 38, "SynEr", "unknown type");
VELK_OPCD_DETAILED(syntax_expected_string, 38, "SynEr", "expected string");
VELK_OPCD_DETAILED(syntax_expected_array, 38, "SynEr", "expected array");
VELK_OPCD_DETAILED(syntax_expected_object, 38, "SynEr", "expected object");
VELK_OPCD_DETAILED(syntax_expected_number, 38, "SynEr", "expected number");
VELK_OPCD_DETAILED(syntax_expected_boolean, 38, "SynEr", "expected boolean");
VELK_OPCD_DETAILED(syntax_expected_time, 38, "SynEr", "expected time");
VELK_OPCD_DETAILED(syntax_expected_angle, 38, "SynEr", "expected angle");

} // namespace velk::ers

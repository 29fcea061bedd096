// hostprobe-locate: runs the plug-in's public address and location lookup
// once and prints the record, one "name: value" line per field. Values are
// printed as they are: the status of a failure is the JSON reader's error
// text, which takes lines of its own.
//
// The services come from HOSTPROBE_ADDRESS_URL and HOSTPROBE_LOCATION_URL
// when set (a test points them at a local server); otherwise the defaults.
// Exit status: 0 when the address was identified, 1 for the failure record
// or an exception of the lookup, 2 for a wrong command line.
#include "plugin/public_location.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace {

void print_help(FILE* out)
{
    fputs("usage: hostprobe-locate\n"
          "finds this machine's public address and its location, and prints them\n"
          "environment:\n"
          "  HOSTPROBE_ADDRESS_URL   address echo answering in plain text\n"
          "  HOSTPROBE_LOCATION_URL  geolocation prefix; the address is appended\n",
          out);
}

// Replaces url with the variable's value when it is set and not empty.
void override_from_env(velk::charstr& url, const char* variable)
{
    const char* value = getenv(variable);
    if (value && *value)
        url = velk::token(value);
}

void print_field(const char* name, const velk::token& value)
{
    velk::charstr line;
    line << name << ": " << value << '\n';
    fwrite(line.c_str(), 1, line.lens(), stdout);
}

// Six decimals at most, trailing zeros dropped: enough for a 32-bit float.
void print_float(const char* name, float value)
{
    velk::charstr text;
    text << value;
    print_field(name, text);
}

void print_record(const xt::public_location& loc)
{
    print_field("status", loc.status);
    print_field("message", loc.message);
    print_field("ip", loc.ip);
    print_field("country", loc.country);
    print_field("region", loc.region);
    print_float("latitude", loc.latitude);
    print_float("longitude", loc.longitude);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1) {
        bool help = !strcmp(argv[1], "--help") || !strcmp(argv[1], "-h");
        print_help(help ? stdout : stderr);
        return help ? 0 : 2;
    }
    xt::location_services services;
    override_from_env(services.address_url, "HOSTPROBE_ADDRESS_URL");
    override_from_env(services.location_url, "HOSTPROBE_LOCATION_URL");
    try {
        xt::public_location loc = xt::lookup_public_location(services);
        print_record(loc);
        return loc.status == "IPidentified" ? 0 : 1;
    } catch (const std::exception& e) {
        fprintf(stderr, "hostprobe-locate: %s\n", e.what());
        return 1;
    }
}

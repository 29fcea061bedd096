// creator_key: the parse of a registry key into its parts.
//
// A full key, as a module hands it to the registry:
//
//   full-key    = key [ "*" module-part ]
//   key         = name [ "@" suffix ]
//   name        = [ namespace "::" ] class [ "." method ]
//   suffix      = kind [ "." script ]
//   module-part = file-name [ ":" handle ]
//
// The parse goes from the back, so each separator splits at its last
// occurrence; only the suffix splits at its first ".". Invariant: every token
// of the result is a view into the parsed text (empty parts included), so the
// parts live exactly as long as that text.
//
//   creator_key k = parse_creator_key("xt::js::hostprobe_plugin.create");
//   // k.ns "xt::js", k.class_name "hostprobe_plugin", k.method "create"
#pragma once

#include "comm/token.h"

#include <cstdint>

namespace velk {

struct creator_key
{
    token key;          // the leading part that lookups compare
    token ns;           // namespace, empty if none
    token class_name;
    token method;       // after the last "." of the name, empty if none
    token kind;         // the suffix up to its first "."; "client" for a client hook
    token script;       // the suffix after its first ".", empty if none
    token module;       // file name of the registering module, empty if none
    uint64_t module_handle = 0; // decimal behind the module's last ":", 0 if none
    uint32_t hash = 0;  // number read from the suffix, 0 if none
};

// Splits full into its parts. Never fails: any text is a key, and parts that
// are absent come back empty. Numbers are read in wrapping arithmetic up to
// the first non-digit.
creator_key parse_creator_key(const token& full);

// A name as lookups by name take it: "[ns::]class[.method]".
struct interface_name
{
    token ns;         // before the last run of ":", empty if none
    token class_name; // up to the first "." of the rest
    token method;     // after that ".", empty if none
};

// Splits name. Unlike parse_creator_key, the class ends at the first ".",
// and a run of ":" of any length separates the namespace. Never fails.
interface_name split_interface_name(const token& name);

// The parse's number reader: decimal digits from the start of t, up to the
// first non-digit, wrapping at 2^32; no digit gives 0.
uint32_t read_key_number(const token& t);

} // namespace velk

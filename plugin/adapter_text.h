// The adapter text: one text that stands for all network adapters at once.
//
// Byte k (0 to 5) of every adapter's address is summed into counter k, and
// the six sums are written one after the other in lower-case hexadecimal,
// without prefix, padding or separator. The width of each part follows from
// its value, so the text can't be split back into bytes; it stays the same
// as long as the set of adapters does, whatever their order.
//
//   adapter_text({{0x00, 0x1A, 0x2B, 0x03, 0x4D, 0x5E}}) == "01a2b34d5e"
#pragma once

#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "plugin/os/adapters.h"

#include <span>

namespace xt {

// The text of the six byte sums over adapters; empty when there is none.
// Pure: reads nothing but its argument. Throws std::bad_alloc.
velk::charstr adapter_text(std::span<const adapter_address> adapters);

// How the adapter list is obtained: the platform's lister, or a test's.
using adapter_lister = bool (*)(velk::dynarray<adapter_address>& out);

// Lists the adapters through list and gives their text. A failing list
// counts as no adapter at all, whatever it wrote: the text is empty, and
// nothing is logged or thrown. Throws std::bad_alloc.
velk::charstr query_adapter_text(adapter_lister list);

} // namespace xt

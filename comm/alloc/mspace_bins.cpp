// The set-up of the small bins; the tree bins are inline in mspace_tree.h.
#include "comm/alloc/mspace_bins.h"

namespace velk::mspace_impl {

void init_bins(mspace_state* m)
{
    for (uint32_t i = 0; i < small_bin_count; ++i) {
        chunk* bin = small_bin(m, i);
        bin->fd = bin->bk = bin;
    }
}

} // namespace velk::mspace_impl

#pragma once

namespace orvo::timing::detail {

// Room for the sum of three 64-bit numbers, and for the product of two.
__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 Uint128;

}  // namespace orvo::timing::detail

#pragma once
// The second delta32 decoder, with which the product's is compared: the plain one.
#include "plain/delta32_plain.hpp"

namespace orvo::test::model {

using Delta32Model = plain::Delta32Decoder;

}  // namespace orvo::test::model

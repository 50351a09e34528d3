#pragma once
// The second packed_delta decoder, with which the product's is compared: the plain one.
#include "plain/packed_delta_plain.hpp"

namespace orvo::test::model {

using PackedModel = plain::PackedDeltaDecoder;

}  // namespace orvo::test::model

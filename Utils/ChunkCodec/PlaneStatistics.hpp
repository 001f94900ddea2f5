// Cheap looks at bytes that tell whether a search for matches can pay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace ChunkCodec {

/// Whether nearly all bytes are equal to their neighbours, as in planes of exponents, or in all
/// planes of values that stay the same for a while.
bool IsRuns(std::span<const std::uint8_t> bytes);

/// How often, per look, three bytes are found again within reach of a match (32 KiB). Meant for
/// bytes that are evenly distributed: there true noise has some 1/1000, neighbouring values that
/// are close have more, and a column of a period within reach has at least 1/16 and mostly 1/2.
double RepeatShare(std::span<const std::uint8_t> bytes);

}  // namespace ChunkCodec

// SPDX-License-Identifier: Apache-2.0
#pragma once

// Chunks as they are stored: bytes that are compressed in one of four ways. Threads: any.

#include "dravik/files/zarr/detail/array_metadata.h"

#include <span>
#include <string>

namespace Quorvel::Dravik::Files::Detail {

/// Throws std::runtime_error unless `stored` is as many bytes as fill `bytes`, and puts them there.
void decompress(Compression const& how, std::span<char const> stored, std::span<char> bytes);

/// @throws std::runtime_error
std::string compress(Compression const& how, int sampleBytes, std::span<char const> bytes);

}  // namespace Quorvel::Dravik::Files::Detail

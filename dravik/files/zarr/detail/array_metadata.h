// SPDX-License-Identifier: Apache-2.0
#pragma once

// ArrayMetadata: what `.zarray` and `.zattrs` tell of one array. A plain record. Threads: as `int`; functions from any.

#include "dravik/adt/core/fixed_vector.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// How the bytes of a chunk are compressed.
struct Compression {
    enum class Kind { None, Blosc, Zstd, Zlib };

    Kind kind = Kind::None;
    int level = 1;
    std::string bloscName = "lz4";
    int bloscShuffle = 1;  ///< as blosc counts them; -1: by the size of a sample
    int bloscBlockBytes = 0;
};

struct ArrayMetadata {
    std::vector<int> shape;          ///< samples per axis, one to four
    Adt::FixedVector<4, int> size;   ///< the same of all four axes
    Adt::FixedVector<4, int> chunk;  ///< samples per axis of every chunk, those at the end included
    std::type_info const* sampleType = nullptr;
    int sampleBytes = 0;
    bool isSwapped = false;           ///< stored in the other byte order than this machine's
    bool isFortran = false;           ///< the first axis varies fastest inside a chunk
    std::optional<std::string> fill;  ///< the bytes of a sample that nobody has written, in this machine's order
    char separator = '.';             ///< between the numbers of a chunk's name
    Compression compression;
    std::vector<std::string> axes;  ///< names, empty where unknown; one per axis
    std::string unit;
    std::vector<std::pair<std::string, std::string>> attributes;

    std::int64_t chunkSamples() const noexcept;
    std::int64_t chunkBytes() const noexcept { return chunkSamples() * sampleBytes; }
};

/// Of the texts of `.zarray` and `.zattrs`, the latter empty where there is none.
/// @throws std::runtime_error in one line that begins with `place`
ArrayMetadata arrayMetadataOf(std::string const& place, std::string_view zarray, std::string_view zattrs);

/// The same of an array in a group: its own files, else the group's consolidated metadata; nothing where neither
/// knows it.
/// @throws as arrayMetadataOf; std::system_error for a file that cannot be read
std::optional<ArrayMetadata> findArray(std::filesystem::path const& root, std::string const& array);

/// Arrays below `root`, in order, whether or not they can be opened.
/// @throws as findArray
std::vector<std::string> arraysBelow(std::filesystem::path const& root);

/// `root` with `array` behind it, which may be empty.
/// @throws std::invalid_argument for a name that leads out of the root
std::filesystem::path arrayFolder(std::filesystem::path const& root, std::string const& array);

}  // namespace Quorvel::Dravik::Files::Detail

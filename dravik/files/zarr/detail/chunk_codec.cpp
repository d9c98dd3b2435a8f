// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/zarr/detail/chunk_codec.h"

#include <blosc.h>
#include <zlib.h>
#include <zstd.h>

#include <cstring>
#include <stdexcept>

namespace Quorvel::Dravik::Files::Detail {

namespace {

[[noreturn]] void fail(std::string const& what) {
    throw std::runtime_error(what);
}

void expectBytes(std::size_t found, std::size_t wanted) {
    if (found != wanted) {
        fail("holds " + std::to_string(found) + " bytes of samples in place of " + std::to_string(wanted));
    }
}

void fromBlosc(std::span<char const> stored, std::span<char> bytes) {
    std::size_t count = 0;
    if (blosc_cbuffer_validate(stored.data(), stored.size(), &count) < 0) {
        fail("is not what blosc writes");
    }
    expectBytes(count, bytes.size());
    int const done = blosc_decompress_ctx(stored.data(), bytes.data(), bytes.size(), /*numinternalthreads=*/1);
    if (done < 0) {
        fail("cannot be decompressed by blosc");
    }
    expectBytes(static_cast<std::size_t>(done), bytes.size());
}

void fromZstd(std::span<char const> stored, std::span<char> bytes) {
    std::size_t const done = ZSTD_decompress(bytes.data(), bytes.size(), stored.data(), stored.size());
    if (ZSTD_isError(done) != 0) {
        fail(std::string("cannot be decompressed by zstd: ") + ZSTD_getErrorName(done));
    }
    expectBytes(done, bytes.size());
}

void fromZlib(std::span<char const> stored, std::span<char> bytes) {
    auto done = static_cast<uLongf>(bytes.size());
    int const result = uncompress(
        reinterpret_cast<Bytef*>(bytes.data()), &done, reinterpret_cast<Bytef const*>(stored.data()),
        static_cast<uLong>(stored.size()));
    if (result != Z_OK) {
        fail("cannot be decompressed by zlib: error " + std::to_string(result));
    }
    expectBytes(done, bytes.size());
}

std::string toBlosc(Compression const& how, int sampleBytes, std::span<char const> bytes) {
    std::string stored(bytes.size() + BLOSC_MAX_OVERHEAD, '\0');
    int const automatic = sampleBytes == 1 ? BLOSC_BITSHUFFLE : BLOSC_SHUFFLE;
    int const done = blosc_compress_ctx(
        how.level, how.bloscShuffle < 0 ? automatic : how.bloscShuffle, static_cast<std::size_t>(sampleBytes),
        bytes.size(), bytes.data(), stored.data(), stored.size(), how.bloscName.c_str(),
        static_cast<std::size_t>(how.bloscBlockBytes), /*numinternalthreads=*/1);
    if (done <= 0) {
        fail("cannot be compressed by blosc with \"" + how.bloscName + "\"");
    }
    stored.resize(static_cast<std::size_t>(done));
    return stored;
}

std::string toZstd(Compression const& how, std::span<char const> bytes) {
    std::string stored(ZSTD_compressBound(bytes.size()), '\0');
    std::size_t const done = ZSTD_compress(stored.data(), stored.size(), bytes.data(), bytes.size(), how.level);
    if (ZSTD_isError(done) != 0) {
        fail(std::string("cannot be compressed by zstd: ") + ZSTD_getErrorName(done));
    }
    stored.resize(done);
    return stored;
}

std::string toZlib(Compression const& how, std::span<char const> bytes) {
    uLongf done = compressBound(static_cast<uLong>(bytes.size()));
    std::string stored(done, '\0');
    int const result = compress2(
        reinterpret_cast<Bytef*>(stored.data()), &done, reinterpret_cast<Bytef const*>(bytes.data()),
        static_cast<uLong>(bytes.size()), how.level);
    if (result != Z_OK) {
        fail("cannot be compressed by zlib: error " + std::to_string(result));
    }
    stored.resize(done);
    return stored;
}

}  // namespace

void decompress(Compression const& how, std::span<char const> stored, std::span<char> bytes) {
    switch (how.kind) {
    case Compression::Kind::Blosc:
        return fromBlosc(stored, bytes);
    case Compression::Kind::Zstd:
        return fromZstd(stored, bytes);
    case Compression::Kind::Zlib:
        return fromZlib(stored, bytes);
    case Compression::Kind::None:
        expectBytes(stored.size(), bytes.size());
        std::memcpy(bytes.data(), stored.data(), bytes.size());
    }
}

std::string compress(Compression const& how, int sampleBytes, std::span<char const> bytes) {
    switch (how.kind) {
    case Compression::Kind::Blosc:
        return toBlosc(how, sampleBytes, bytes);
    case Compression::Kind::Zstd:
        return toZstd(how, bytes);
    case Compression::Kind::Zlib:
        return toZlib(how, bytes);
    case Compression::Kind::None:
        break;
    }
    return std::string(bytes.data(), bytes.size());
}

}  // namespace Quorvel::Dravik::Files::Detail

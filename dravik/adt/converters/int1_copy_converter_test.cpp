#include "dravik/adt/converters/int1_copy_converter.h"

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Bytes = std::vector<unsigned char>;

bool bitAt(Bytes const& bytes, int position) {
    return (bytes[static_cast<std::size_t>(position / 8)] >> (position % 8) & 1) != 0;
}

void setBit(Bytes& bytes, int position, bool bit) {
    unsigned char& byte = bytes[static_cast<std::size_t>(position / 8)];
    unsigned const mask = 1u << (position % 8);
    byte = static_cast<unsigned char>(bit ? byte | mask : byte & ~mask);
}

Bytes randomBytes(Testing::Random& random, int count) {
    Bytes bytes(static_cast<std::size_t>(count));
    std::generate(bytes.begin(), bytes.end(), [&] { return random.between<unsigned char>(0, 255); });
    return bytes;
}

TEST(Int1CopyConverter, CopiesTheLowestBitOfAByteAlone) {
    Int1CopyConverter const copy;
    for (unsigned char const in : Bytes{0xfe, 0x01}) {
        unsigned char out = 0xa5;
        copy.convert(&in, &out);
        EXPECT_EQ(out, in == 0x01 ? 0xa5 : 0xa4);
    }
}

TEST(Int1CopyConverter, CopiesRunsOfEveryLengthAtEveryPairOfPhases) {
    Testing::Random random;
    Int1CopyConverter const copy;
    Bytes const noise = randomBytes(random, 64);
    for (int inPhase = 0; inPhase < 8; ++inPhase) {
        for (int outPhase = 0; outPhase < 8; ++outPhase) {
            for (int count = -1; count <= 257; ++count) {
                // The input ends with the byte of its last bit, so that a sanitizer sees a read beyond.
                Bytes const in = randomBytes(random, (inPhase + std::max(count, 0) + 7) / 8);
                Bytes expected = noise;
                for (int k = 0; k < count; ++k) {
                    setBit(expected, outPhase + k, bitAt(in, inPhase + k));
                }
                Bytes actual = noise;
                copy.convertContiguous(in.data(), inPhase, actual.data(), outPhase, count);
                ASSERT_EQ(actual, expected) << inPhase << " to " << outPhase << ", " << count << " bits";
            }
        }
    }
}

TEST(Int1CopyConverter, FillsRunsWithOneBit) {
    Testing::Random random;
    Int1CopyConverter const copy;
    Bytes const noise = randomBytes(random, 40);
    for (int round = 0; round < 500; ++round) {
        int const source = random.between(0, 319);
        int const first = random.between(0, 100);
        int const count = random.edgy(-1, 200);
        Bytes expected = noise;
        for (int k = 0; k < count; ++k) {
            setBit(expected, first + k, bitAt(noise, source));
        }
        // In place: the bit is read before the first one is written.
        Bytes actual = noise;
        copy.convertStrided(actual.data(), source, 0, actual.data(), first, 1, count);
        ASSERT_EQ(actual, expected) << source << " fills " << count << " from " << first;
    }
}

TEST(Int1CopyConverter, CopiesInTurnWithAnyStrideAndWhereBuffersOverlap) {
    Testing::Random random;
    Int1CopyConverter const copy;
    Bytes const noise = randomBytes(random, 100);
    for (int round = 0; round < 2000; ++round) {
        int const inStride = random.oneOf({1, 1, 2, -1, -3, 9});
        int const outStride = random.oneOf({1, 1, 0, 2, -1, -5});
        int const count = random.edgy(0, 70);
        int const inFirst = (inStride < 0 ? -inStride * count : 0) + random.between(0, 40);
        int const outFirst = (outStride < 0 ? -outStride * count : 0) + random.between(0, 40);
        Bytes expected = noise;
        for (int k = 0; k < count; ++k) {
            setBit(expected, outFirst + k * outStride, bitAt(expected, inFirst + k * inStride));
        }
        Bytes actual = noise;
        if (inStride == 1 && outStride == 1) {
            copy.convertContiguous(actual.data(), inFirst, actual.data(), outFirst, count);
        } else {
            copy.convertStrided(actual.data(), inFirst, inStride, actual.data(), outFirst, outStride, count);
        }
        ASSERT_EQ(actual, expected) << inFirst << "+" << inStride << " to " << outFirst << "+" << outStride << ", "
                                    << count << " bits";
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

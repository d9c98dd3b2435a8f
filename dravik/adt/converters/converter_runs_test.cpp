// SPDX-License-Identifier: Apache-2.0
// Every converter over runs of every shape, against one value after the other.

#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/random.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <limits>
#include <ostream>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Bytes = std::vector<unsigned char>;
using Factory = ValueConverterFactory;

bool bitAt(Bytes const& bytes, int position) {
    return (bytes[static_cast<std::size_t>(position / 8)] >> (position % 8) & 1) != 0;
}

void setBit(Bytes& bytes, int position, bool bit) {
    unsigned char& byte = bytes[static_cast<std::size_t>(position / 8)];
    unsigned const mask = 1u << (position % 8);
    byte = static_cast<unsigned char>(bit ? byte | mask : byte & ~mask);
}

// One side of a run: positions in values, the base anywhere, also at odd addresses.
struct Side {
    int base;  // bytes
    int index, stride;

    int at(int k) const { return index + k * stride; }
    friend std::ostream& operator<<(std::ostream& out, Side const& s) {
        return out << s.base << "[" << s.index << "+" << s.stride << "k]";
    }
};

struct Subject {
    IValueConverter::ConstPtr converter;
    bool isCopy;
    int inBits = TypeRegister::sizeofTypeInBits(converter->getInputType());
    int outBits = TypeRegister::sizeofTypeInBits(converter->getOutputType());

    // What a run is defined by: for copies the bits, for conversions what convert gives, which has rules of its own.
    void one(Bytes const& in, Side const& from, Bytes& out, Side const& to, int k) const {
        if (!isCopy) {
            converter->convert(
                in.data() + from.base + from.at(k) * inBits / 8, out.data() + to.base + to.at(k) * outBits / 8);
            return;
        }
        std::bitset<64> value;
        for (int bit = 0; bit < inBits; ++bit) {
            value[static_cast<std::size_t>(bit)] = bitAt(in, 8 * from.base + from.at(k) * inBits + bit);
        }
        for (int bit = 0; bit < outBits; ++bit) {
            setBit(out, 8 * to.base + to.at(k) * outBits + bit, value[static_cast<std::size_t>(bit)]);
        }
    }

    friend std::ostream& operator<<(std::ostream& out, Subject const& s) {
        return out << s.converter->getInputType().name() << " to " << s.converter->getOutputType().name();
    }
};

std::vector<Subject> subjects() {
    std::vector<Subject> all;
    for (int const bits : {1, 8, 16, 32, 64}) {
        all.push_back({Factory::getCopyConverter(bits), /*isCopy=*/true});
    }
    std::type_info const* const types[] = {&typeid(unsigned char), &typeid(char),         &typeid(unsigned short),
                                           &typeid(short),         &typeid(int),          &typeid(float),
                                           &typeid(unsigned int),  &typeid(std::int64_t), &typeid(double)};
    for (auto const* const type : {&typeid(short), &typeid(float), &typeid(std::int64_t)}) {
        all.push_back({boost::make_shared<ByteSwapConverter>(*type), /*isCopy=*/false});
    }
    for (int choice = 0; choice < 2 * 81; ++choice) {
        ScaleOffset const transform = choice < 81 ? ScaleOffset() : ScaleOffset(0.37, -3);
        try {
            auto const converter =
                Factory::getTypeConverter(*types[choice % 9], *types[choice / 9 % 9], transform, /*copyIfSame=*/false);
            if (converter) {
                all.push_back({converter, /*isCopy=*/false});
            }
        } catch (Exceptions::NotImplementedException const&) {
            continue;
        }
    }
    return all;
}

Bytes randomBytes(Testing::Random& random, int count) {
    Bytes bytes(static_cast<std::size_t>(count));
    std::generate(bytes.begin(), bytes.end(), [&] { return random.between<unsigned char>(0, 255); });
    return bytes;
}

TEST(ConverterRuns, CopiesKeepEveryBit) {
    Testing::Random random;
    for (Subject const& copy : subjects()) {
        for (int round = 0; copy.isCopy && round < 50; ++round) {
            Bytes const in = round == 0 ? Bytes{0x45, 0x23, 0xa1, 0x7f, 0, 0, 0xf1, 0xff} : randomBytes(random, 8);
            Bytes actual = randomBytes(random, 9), expected = actual;
            copy.one(in, {}, expected, {}, 0);
            copy.converter->convert(in.data(), actual.data());
            ASSERT_EQ(actual, expected) << copy;
        }
    }
}

// One run inside a copy of `noise`, beside the same one value by value.
void expectInTurn(
    Subject const& subject, Bytes const& noise, Side const& from, Side const& to, int count, bool isContiguous) {
    Bytes expected = noise;
    bool const isFill = from.stride == 0 && to.stride == 1;
    bool const readsFirst = subject.isCopy && (isContiguous ? subject.inBits >= 8 : isFill);
    for (int k = 0; k < count; ++k) {
        subject.one(readsFirst ? noise : expected, from, expected, to, k);
    }
    Bytes actual = noise;
    unsigned char* const bytes = actual.data();
    if (isContiguous) {
        subject.converter->convertContiguous(bytes + from.base, from.index, bytes + to.base, to.index, count);
    } else {
        subject.converter->convertStrided(
            bytes + from.base, from.index, from.stride, bytes + to.base, to.index, to.stride, count);
    }
    ASSERT_EQ(actual, expected) << subject << ", " << count << " values from " << from << " to " << to;
}

TEST(ConverterRuns, ConvertInTurnWhereBuffersOverlap) {
    Testing::Random random, noisy(Testing::randomSeed());
    Bytes const noise = randomBytes(noisy, 9000);
    auto all = subjects();
    std::rotate(all.begin(), all.begin() + random.between<std::ptrdiff_t>(0, std::ssize(all) - 1), all.end());
    for (Subject const& subject : all) {
        for (int round = 0; round < (subject.isCopy ? 2000 : 200); ++round) {
            // Small arenas overlap nearly always, large ones seldom; above 256 values a run passes in blocks.
            bool const isSmall = round % 2 == 0, isContiguous = round % 3 == 0;
            int const count = random.edgy(-1, isSmall ? 8 : 300);
            auto const draw = [&] {
                int const stride = isContiguous ? 1 : random.oneOf({1, 1, 0, 2, 3, -1, -2});
                int const reach = std::max(0, count - 1) * std::abs(stride);
                int const index = (stride < 0 ? reach : 0) + random.between(0, 7);
                int const largest =
                    (isSmall ? 300 : 9000) - (reach + 8) * std::max(subject.inBits, subject.outBits) / 8 - 1;
                return Side{random.between(0, largest), index, stride};
            };
            Side from = draw(), to = draw();
            if (random.chance(50)) {
                from.base = to.base = std::min(from.base, to.base);
            }
            expectInTurn(subject, noise, from, to, count, isContiguous);
        }
    }
}

TEST(ConverterRuns, BitsCopyAtEveryPairOfPhases) {
    Testing::Random random;
    Subject const bits{Factory::getCopyConverter(1), /*isCopy=*/true};
    Bytes const noise = randomBytes(random, 50);
    for (int phases = 0; phases < 64; ++phases) {
        for (int count = 0; count <= 257; ++count) {
            Side const from{random.between(0, 9), phases % 8 + 8 * random.between(0, 3), 1};
            Side const to{random.between(0, 9), phases / 8 + 8 * random.between(0, 3), 1};
            // The input ends with the byte of its last bit, so that a sanitizer sees a read beyond.
            Bytes const in = randomBytes(random, from.base + (from.at(count) + 7) / 8);
            Bytes actual = noise, expected = noise;
            for (int k = 0; k < count; ++k) {
                bits.one(in, from, expected, to, k);
            }
            bits.converter->convertContiguous(
                in.data() + from.base, from.index, actual.data() + to.base, to.index, count);
            ASSERT_EQ(actual, expected) << count << " bits from " << from << " to " << to;
        }
    }
}

// Buffers of 8 GiB of which only the pages touched take memory.
struct SparseBytes {
    static constexpr std::size_t kSize = std::size_t{8} << 30;

    SparseBytes()
        : data(static_cast<unsigned char*>(
              mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))) {}
    SparseBytes(SparseBytes const&) = delete;
    SparseBytes& operator=(SparseBytes const&) = delete;
    ~SparseBytes() { munmap(data, kSize); }

    unsigned char* data;
};

struct FarRow {
    char const* name;
    int index, stride;
};

void expectFarRun(FarRow const& row, Subject const& subject) {
    constexpr int kCount = 1100;
    SparseBytes const dense, sparse, back;
    auto const sample = [&](unsigned char* base, std::int64_t position, int k) {
        int const value = k % 253;
        return subject.inBits == 8 ? base[position] == value
                                   : (base[position / 8] >> (position % 8) & 1) == (k % 3 == 0);
    };
    for (int k = 0; k < kCount; ++k) {
        auto& byte = dense.data[subject.inBits == 8 ? k : k / 8];
        byte = static_cast<unsigned char>(subject.inBits == 8 ? k % 253 : byte | (k % 3 == 0) << k % 8);
    }
    IValueConverter const& converter = *subject.converter;
    if (row.stride == 1) {
        converter.convertContiguous(dense.data, 0, sparse.data, row.index, kCount);
        converter.convertContiguous(sparse.data, row.index, back.data, 0, kCount);
    } else {
        converter.convertStrided(dense.data, 0, 1, sparse.data, row.index, row.stride, kCount);
        converter.convertStrided(sparse.data, row.index, row.stride, back.data, 0, 1, kCount);
    }
    for (int k = 0; k < kCount; ++k) {
        ASSERT_TRUE(sample(sparse.data, row.index + std::int64_t{row.stride} * k, k)) << "written " << k;
        ASSERT_TRUE(sample(back.data, k, k)) << "read back " << k;
    }
}

TEST(ConverterRuns, ReachPositionsBeyond32BitsPlainAndChained) {
    auto const bits = Factory::getCopyConverter(1);
    auto const toShort = Factory::getTypeConverter(typeid(unsigned char), typeid(short));
    auto const toByte = Factory::getTypeConverter(typeid(short), typeid(unsigned char));
    Subject const all[] = {
        {bits, true},
        {Factory::getCopyConverter(8), true},
        {CompositeConverter::getCompositeConverter(bits, bits, bits), true},
        {CompositeConverter::getCompositeConverter(toShort, toByte, toShort), true},
    };
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr FarRow kRows[] = {
        {"SecondChunk", 5, 1},        {"SecondChunkBackwards", 3000, -2}, {"RowAlongTheFirstAxis", 0, 6'000'000},
        {"Straddles", kMax - 600, 1}, {"StraddlesInSteps", kMax - 5, 7},  {"StaysBelow", kMax, -1'900'000},
    };
    for (FarRow const& row : kRows) {
        for (Subject const& subject : all) {
            SCOPED_TRACE(testing::Message() << row.name << " " << subject);
            expectFarRun(row, subject);
        }
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

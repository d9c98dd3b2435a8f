// Every converter, over runs of every shape, against one value after the other.

#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Bytes = std::vector<unsigned char>;
using ConverterPtr = IValueConverter::ConstPtr;

struct Subject {
    std::string name;
    ConverterPtr converter;
    int inBytes;
    int outBytes;
    bool isCopy;
};

std::vector<Subject> subjects() {
    std::type_info const* const types[] = {&typeid(unsigned char), &typeid(char), &typeid(unsigned short),
                                           &typeid(short),         &typeid(int),  &typeid(float)};
    std::vector<Subject> all;
    auto const add = [&](ConverterPtr const& converter, bool isCopy) {
        std::ostringstream name;
        name << all.size() << ": " << converter->getInputType().name() << " to " << converter->getOutputType().name();
        all.push_back(
            {name.str(), converter, TypeRegister::sizeofTypeInBits(converter->getInputType()) / 8,
             TypeRegister::sizeofTypeInBits(converter->getOutputType()) / 8, isCopy});
    };
    for (int const bits : {8, 16, 32, 64}) {
        add(ValueConverterFactory::getCopyConverter(bits), true);
    }
    for (ScaleOffset const& transform : {ScaleOffset(), ScaleOffset(0.37, -3)}) {
        for (std::type_info const* const in : types) {
            for (std::type_info const* const out : types) {
                try {
                    if (auto const converter = ValueConverterFactory::getTypeConverter(*in, *out, transform, false)) {
                        add(converter, false);
                    }
                } catch (Exceptions::NotImplementedException const&) {
                    continue;
                }
            }
        }
    }
    return all;
}

// One strided run; positions in values, the bases in bytes of one shared arena.
struct Shape {
    int inBase, inIndex, inStride;
    int outBase, outIndex, outStride;
    int count;
};

void applyInTurn(Subject const& subject, Shape const& shape, Bytes& arena) {
    Bytes const before = arena;
    // A copy's fill reads its value before it writes any.
    bool const fill = subject.isCopy && shape.inStride == 0 && shape.outStride == 1;
    for (int k = 0; k < shape.count; ++k) {
        Bytes const& source = fill ? before : arena;
        subject.converter->convert(
            source.data() + shape.inBase + (shape.inIndex + k * shape.inStride) * subject.inBytes,
            arena.data() + shape.outBase + (shape.outIndex + k * shape.outStride) * subject.outBytes);
    }
}

// A shape inside an arena of `bytes` bytes, its bases anywhere: at odd addresses, and on top of one another.
Shape drawShape(Testing::Random& random, Subject const& subject, int bytes, int largestCount) {
    Shape shape{};
    shape.count = random.edgy(-1, largestCount);
    auto const side = [&](int valueBytes, int& base, int& index, int& stride) {
        stride = random.oneOf({1, 1, 0, 2, 3, -1, -2});
        int const reach = std::max(0, shape.count - 1) * std::abs(stride);
        index = (stride < 0 ? reach : 0) + random.between(0, 3);
        int const span = (reach + 4) * valueBytes;
        base = random.between(0, bytes - span);
    };
    side(subject.inBytes, shape.inBase, shape.inIndex, shape.inStride);
    side(subject.outBytes, shape.outBase, shape.outIndex, shape.outStride);
    return shape;
}

std::string describe(Subject const& subject, Shape const& s) {
    std::ostringstream text;
    text << subject.name << ", " << s.count << " values from " << s.inBase << "[" << s.inIndex << "+" << s.inStride
         << "k] to " << s.outBase << "[" << s.outIndex << "+" << s.outStride << "k]";
    return text.str();
}

Bytes randomBytes(Testing::Random& random, std::size_t size) {
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        byte = random.between<unsigned char>(0, 255);
    }
    return bytes;
}

TEST(ConverterRuns, StridedRunsConvertInTurnAlsoWhereBuffersOverlap) {
    Testing::Random random;
    Bytes const noise = randomBytes(random, 9000);
    for (Subject const& subject : subjects()) {
        for (int round = 0; round < 60; ++round) {
            // Small arenas overlap nearly always, large ones seldom; above 256 values a run passes in blocks.
            bool const small = round % 2 == 0;
            Shape const shape = drawShape(random, subject, small ? 300 : 9000, small ? 8 : 300);
            Bytes expected = noise;
            applyInTurn(subject, shape, expected);
            Bytes actual = noise;
            subject.converter->convertStrided(
                actual.data() + shape.inBase, shape.inIndex, shape.inStride, actual.data() + shape.outBase,
                shape.outIndex, shape.outStride, shape.count);
            ASSERT_EQ(actual, expected) << describe(subject, shape);
        }
    }
}

TEST(ConverterRuns, ContiguousRunsOfEveryLengthTouchNothingElse) {
    Testing::Random random;
    Bytes const noise = randomBytes(random, 4200);
    for (Subject const& subject : subjects()) {
        for (int count = 0; count <= 257; ++count) {
            // The run ends with the input's last byte, so that a sanitizer sees a read beyond.
            Bytes const input(noise.begin() + random.between(0, 2000), noise.begin() + 2000 + count * subject.inBytes);
            int const inBase = static_cast<int>(input.size()) - count * subject.inBytes;
            Shape const shape{inBase, 0, 1, random.between(0, 9), random.between(0, 2), 1, count};
            Bytes expected = noise;
            for (int k = 0; k < count; ++k) {
                subject.converter->convert(
                    input.data() + inBase + k * subject.inBytes,
                    expected.data() + shape.outBase + (shape.outIndex + k) * subject.outBytes);
            }
            Bytes actual = noise;
            subject.converter->convertContiguous(
                input.data() + inBase, 0, actual.data() + shape.outBase, shape.outIndex, count);
            ASSERT_EQ(actual, expected) << describe(subject, shape);
        }
    }
}

TEST(ConverterRuns, OverlappingContiguousRunsConvertInTurnAndCopiesMoveAsABlock) {
    Testing::Random random;
    Bytes const noise = randomBytes(random, 2200);
    for (Subject const& subject : subjects()) {
        for (int round = 0; round < 60; ++round) {
            Shape shape{random.between(0, 40), random.between(0, 2), 1, random.between(0, 40), random.between(0, 2), 1,
                        random.edgy(-1, 250)};
            if (random.chance(20)) {
                shape.outBase = shape.inBase;
                shape.outIndex = shape.inIndex;
            }
            Bytes expected = noise;
            if (subject.isCopy && shape.count > 0) {
                std::memcpy(
                    expected.data() + shape.outBase + shape.outIndex * subject.outBytes,
                    noise.data() + shape.inBase + shape.inIndex * subject.inBytes,
                    static_cast<std::size_t>(shape.count * subject.inBytes));
            } else {
                applyInTurn(subject, shape, expected);
            }
            Bytes actual = noise;
            subject.converter->convertContiguous(
                actual.data() + shape.inBase, shape.inIndex, actual.data() + shape.outBase, shape.outIndex,
                shape.count);
            ASSERT_EQ(actual, expected) << describe(subject, shape);
        }
    }
}

TEST(ConverterRuns, CopiesKeepEveryBitOfANotANumber) {
    std::uint32_t const signalling = 0x7fa12345;
    std::uint32_t copied = 0;
    ConverterPtr const copy = ValueConverterFactory::getCopyConverter(32);
    copy->convert(&signalling, &copied);
    EXPECT_EQ(copied, signalling);
    std::uint32_t strided[2] = {};
    copy->convertStrided(&signalling, 0, 0, strided, 0, 1, 2);
    EXPECT_EQ(strided[1], signalling);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

// Conversions of runs of 16384 samples in cache, beside the memory copy that moves as many bytes in and out together, a
// plain loop compiled for this machine, and, where it is installed, OpenCV's Mat::convertTo.

#include "race.h"

#include "dravik/adt/converters/value_converter_factory.h"

#ifdef DRAVIK_ADT_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace Quorvel::Dravik::Adt;
using Benchmarks::keep;
using Benchmarks::Race;
using Converters::ValueConverterFactory;

constexpr int kCount = 16384;

template <class T>
struct Name;
template <>
struct Name<unsigned char> {
    static constexpr char const* kText = "u8";
};
template <>
struct Name<char> {
    static constexpr char const* kText = "i8";
};
template <>
struct Name<unsigned short> {
    static constexpr char const* kText = "u16";
};
template <>
struct Name<short> {
    static constexpr char const* kText = "i16";
};
template <>
struct Name<int> {
    static constexpr char const* kText = "i32";
};
template <>
struct Name<float> {
    static constexpr char const* kText = "f32";
};

// What a careful person writes without a library. It gives no rule for NaN, infinities and what is beyond 32 bits.
template <class D, class T>
D narrowed(T value) {
    if constexpr (std::is_same_v<D, float>) {
        return static_cast<float>(value);
    } else if constexpr (std::is_same_v<T, float>) {
        constexpr auto kLowest = static_cast<float>(std::numeric_limits<D>::lowest());
        constexpr auto kHighest = static_cast<float>(std::numeric_limits<D>::max());
        float const rounded = std::nearbyint(value);
        return static_cast<D>(rounded < kLowest ? kLowest : rounded > kHighest ? kHighest : rounded);
    } else {
        int const wide = value;
        constexpr int kLowest = std::numeric_limits<D>::lowest();
        constexpr int kHighest = std::numeric_limits<D>::max();
        return static_cast<D>(wide < kLowest ? kLowest : wide > kHighest ? kHighest : wide);
    }
}

template <class S, class D>
void plainLoop(S const* __restrict in, D* __restrict out) {
    for (int k = 0; k < kCount; ++k) {
        out[k] = narrowed<D>(in[k]);
    }
}

template <class S, class D>
void plainStridedLoop(S const* __restrict in, std::ptrdiff_t stride, D* __restrict out) {
    for (int k = 0; k < kCount; ++k) {
        out[k] = narrowed<D>(in[k * stride]);
    }
}

template <class S, class D>
void plainScaledLoop(S const* __restrict in, D* __restrict out, double scale, double offset) {
    for (int k = 0; k < kCount; ++k) {
        out[k] = narrowed<D>(static_cast<float>(scale * in[k] + offset));
    }
}

// Samples that mostly fit the narrower types, as they do in practice.
template <class T>
std::vector<T> samples(int count) {
    std::mt19937 random(1);
    std::normal_distribution<double> distribution(60, 40);
    std::vector<T> values(static_cast<std::size_t>(count));
    for (T& value : values) {
        value = narrowed<T>(static_cast<float>(distribution(random)));
    }
    return values;
}

void printHeader(char const* title) {
    std::printf("\n%-28s %9s %9s %9s %9s\n", title, "ns", "x memcpy", "x loop", "x OpenCV");
}

void printRow(std::string const& name, Race const& race, std::size_t peers) {
    std::printf("%-28s %9.0f", name.c_str(), race.time(0));
    for (std::size_t peer = 1; peer < peers; ++peer) {
        std::printf(" %9.3f", race.ratio(0, peer));
    }
    std::printf("\n");
}

template <class S, class D>
void measure(ScaleOffset const& transform, int stride) {
    auto const converter = ValueConverterFactory::getTypeConverter(typeid(S), typeid(D), transform, false);
    std::vector<S> const in = samples<S>(kCount * stride);
    std::vector<D> out(kCount);
    Race race;
    race.add([&] {
        if (stride == 1) {
            converter->convertContiguous(in.data(), 0, out.data(), 0, kCount);
        } else {
            converter->convertStrided(in.data(), 0, stride, out.data(), 0, 1, kCount);
        }
    });

    std::vector<char> from(kCount * (sizeof(S) + sizeof(D)) / 2);
    std::vector<char> to(from.size());
    race.add([&] {
        std::memcpy(to.data(), from.data(), to.size());
        keep(to.data());
    });

    bool const scaled = !(transform == ScaleOffset::identity());
    double const scale = static_cast<float>(transform.getScale());
    double const offset = static_cast<float>(transform.getOffset());
    race.add([&] {
        if (scaled) {
            plainScaledLoop(in.data(), out.data(), scale, offset);
        } else if (stride == 1) {
            plainLoop(in.data(), out.data());
        } else {
            plainStridedLoop(in.data(), stride, out.data());
        }
        keep(out.data());
    });
    std::size_t peers = 3;

#ifdef DRAVIK_ADT_BENCH_OPENCV
    using CvIn = std::conditional_t<std::is_same_v<S, char>, schar, S>;
    using CvOut = std::conditional_t<std::is_same_v<D, char>, schar, D>;
    // A column of a matrix is what OpenCV has for a strided run.
    cv::Mat const all(kCount, stride, cv::DataType<CvIn>::type, const_cast<S*>(in.data()));
    cv::Mat const source = stride == 1 ? all.reshape(1, 1) : all.col(0);
    cv::Mat destination(source.rows, source.cols, cv::DataType<CvOut>::type, out.data());
    race.add([&] { source.convertTo(destination, destination.type(), scaled ? scale : 1, scaled ? offset : 0); });
    ++peers;
#endif

    race.run();
    printRow(std::string(Name<S>::kText) + " -> " + Name<D>::kText, race, peers);
}

void measureBits(int inBit, int outBit) {
    auto const converter = ValueConverterFactory::getCopyConverter(1);
    std::vector<unsigned char> in(kCount / 8 + 2, 0x5a);
    std::vector<unsigned char> out(in.size());
    Race race;
    race.add([&] { converter->convertContiguous(in.data(), inBit, out.data(), outBit, kCount); });
    race.add([&] {
        std::memcpy(out.data(), in.data(), kCount / 8);
        keep(out.data());
    });
    std::vector<bool> const boolsIn(kCount + 8, true);
    std::vector<bool> boolsOut(kCount + 8);
    race.add([&] {
        std::copy(boolsIn.begin() + inBit, boolsIn.begin() + inBit + kCount, boolsOut.begin() + outBit);
        keep(&boolsOut);
    });
    race.run();
    printRow("bits " + std::to_string(inBit) + " -> " + std::to_string(outBit), race, 3);
}

template <class S, class D>
void plain() {
    measure<S, D>(ScaleOffset(), 1);
}

template <class S, class D>
void scaled() {
    measure<S, D>(ScaleOffset(0.37, 3.1), 1);
}

template <class D>
void scaledFromAll() {
    scaled<unsigned char, D>();
    scaled<char, D>();
    scaled<unsigned short, D>();
    scaled<short, D>();
    if constexpr (!std::is_same_v<D, int>) {
        scaled<int, D>();
        scaled<float, D>();
    }
}

template <class S>
void narrowToAll() {
    plain<S, unsigned char>();
    plain<S, char>();
    plain<S, unsigned short>();
    plain<S, short>();
}

}  // namespace

int main() {
    printHeader("widening");
    plain<unsigned char, short>();
    plain<unsigned char, int>();
    plain<unsigned char, float>();
    plain<char, short>();
    plain<char, int>();
    plain<char, float>();
    plain<unsigned short, int>();
    plain<unsigned short, float>();
    plain<short, int>();
    plain<short, float>();
    plain<int, float>();
    printHeader("narrowing");
    plain<unsigned char, char>();
    plain<char, unsigned char>();
    plain<unsigned short, unsigned char>();
    plain<unsigned short, char>();
    plain<unsigned short, short>();
    plain<short, unsigned char>();
    plain<short, char>();
    plain<short, unsigned short>();
    narrowToAll<int>();
    narrowToAll<float>();
    printHeader("scaled");
    scaledFromAll<unsigned char>();
    scaledFromAll<char>();
    scaledFromAll<unsigned short>();
    scaledFromAll<short>();
    scaledFromAll<int>();
    scaledFromAll<float>();
    printHeader("every 7th value");
    measure<float, unsigned char>(ScaleOffset(), 7);
    measure<float, char>(ScaleOffset(), 7);
    measure<float, unsigned short>(ScaleOffset(), 7);
    measure<float, short>(ScaleOffset(), 7);
    std::printf("\n%-28s %9s %9s %9s\n", "one-bit runs", "ns", "x memcpy", "x v<bool>");
    measureBits(3, 3);
    measureBits(0, 0);
    measureBits(3, 6);
    measureBits(6, 1);
    return EXIT_SUCCESS;
}

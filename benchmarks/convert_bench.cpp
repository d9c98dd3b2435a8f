// Conversions of runs of 16384 samples in cache, beside the memory copy that moves as many bytes in and out together, a
// plain loop compiled for this machine, and, where it is installed, OpenCV's Mat::convertTo.

#include "report.h"

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
using Benchmarks::Contest;
using Benchmarks::keep;
using Benchmarks::Report;
using Benchmarks::Wanted;
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

/// What a conversion may cost beside each of its peers.
struct Goals {
    Wanted copy = {}, best = {}, loop = {}, openCv = {};
};

constexpr char const* kMemcpy = "memcpy";
constexpr char const* kLoop = "plain loop";
constexpr char const* kOpenCv = "OpenCV";

/// One pair of types: what takes part, and that it makes of the samples what our converter makes of them.
template <class S, class D>
class Pair {
  public:
    Pair(ScaleOffset const& transform, int stride)
        : contest_(std::string(Name<S>::kText) + " → " + Name<D>::kText),
          stride_(stride),
          isScaled_(!(transform == ScaleOffset::identity())),
          scale_(static_cast<float>(transform.getScale())),
          offset_(static_cast<float>(transform.getOffset())),
          converter_(ValueConverterFactory::getTypeConverter(typeid(S), typeid(D), transform, false)),
          in_(samples<S>(kCount * stride)),
          out_(kCount),
          from_(kCount * (sizeof(S) + sizeof(D)) / 2),
          to_(from_.size()) {}

    void measure(Report& report, Goals const& goals) {
        enter("", 0, [this] { convert(); });
        enter(kLoop, 0, [this] { loop(); });
        enterOpenCv();
        contest_.enter(kMemcpy, [this] {
            std::memcpy(to_.data(), from_.data(), to_.size());
            keep(to_.data());
            return 0;
        });
        contest_.run();
        report.ratio(contest_, "", kMemcpy, goals.copy);
        if (goals.best.atMost != 0) {
            report.ratioToBest(contest_, "", {kLoop, kOpenCv}, goals.best);
        } else {
            report.ratio(contest_, "", kLoop, goals.loop);
            report.ratio(contest_, "", kOpenCv, goals.openCv);
        }
    }

  private:
    void convert() {
        if (stride_ == 1) {
            converter_->convertContiguous(in_.data(), 0, out_.data(), 0, kCount);
        } else {
            converter_->convertStrided(in_.data(), 0, stride_, out_.data(), 0, 1, kCount);
        }
    }

    void loop() {
        if (isScaled_) {
            plainScaledLoop(in_.data(), out_.data(), double{scale_}, double{offset_});
        } else if (stride_ == 1) {
            plainLoop(in_.data(), out_.data());
        } else {
            plainStridedLoop(in_.data(), stride_, out_.data());
        }
    }

#ifdef DRAVIK_ADT_BENCH_OPENCV
    void enterOpenCv() {
        using CvIn = std::conditional_t<std::is_same_v<S, char>, schar, S>;
        using CvOut = std::conditional_t<std::is_same_v<D, char>, schar, D>;
        // A column of a matrix is what OpenCV has for a strided run.
        cv::Mat const all(kCount, stride_, cv::DataType<CvIn>::type, in_.data());
        cv::Mat const source = stride_ == 1 ? all.reshape(1, 1) : all.col(0);
        cv::Mat const destination(source.rows, source.cols, cv::DataType<CvOut>::type, out_.data());
        // It scales in single precision.
        double const difference = !isScaled_ ? 0 : std::is_same_v<D, float> ? 1e-4 : 1;
        enter(kOpenCv, difference, [this, source, destination] {
            source.convertTo(
                destination, destination.type(), isScaled_ ? double{scale_} : 1, isScaled_ ? double{offset_} : 0);
        });
    }
#else
    void enterOpenCv() {}
#endif

    /// `work` fills out_; a sample may differ by so much from that of the first to enter.
    template <class Work>
    void enter(std::string const& name, double difference, Work work) {
        std::fill(out_.begin(), out_.end(), D{});
        work();
        expected_ = expected_.empty() ? out_ : expected_;
        for (std::size_t k = 0; k < out_.size(); ++k) {
            if (std::abs(static_cast<double>(out_[k]) - static_cast<double>(expected_[k])) > difference) {
                std::fprintf(
                    stderr, "%s: %s makes %g of sample %zu, not %g\n", contest_.title().c_str(), name.c_str(),
                    static_cast<double>(out_[k]), k, static_cast<double>(expected_[k]));
                std::exit(EXIT_FAILURE);
            }
        }
        contest_.enter(name, [this, work] {
            work();
            keep(out_.data());
            return 0;
        });
    }

    Contest contest_;
    int stride_;
    bool isScaled_;
    float scale_, offset_;
    boost::shared_ptr<IValueConverter const> converter_;
    std::vector<S> in_;
    std::vector<D> out_, expected_;
    std::vector<char> from_, to_;
};

bool bitOf(std::vector<unsigned char> const& bytes, std::size_t bit) {
    return (bytes[bit / 8] >> bit % 8 & 1) != 0;
}

void measureBits(Report& report, int inBit, int outBit) {
    auto const converter = ValueConverterFactory::getCopyConverter(1);
    std::vector<unsigned char> const in = samples<unsigned char>(kCount / 8 + 2);
    std::vector<unsigned char> out(in.size()), copied(in.size());
    std::vector<bool> boolsIn(kCount + 8), boolsOut(kCount + 8);
    for (std::size_t bit = 0; bit < boolsIn.size(); ++bit) {
        boolsIn[bit] = bitOf(in, bit);
    }
    Contest contest("bit " + std::to_string(inBit) + " → bit " + std::to_string(outBit));
    contest.enter("", [&] {
        converter->convertContiguous(in.data(), inBit, out.data(), outBit, kCount);
        keep(out.data());
        return 0;
    });
    contest.enter(kMemcpy, [&] {
        std::memcpy(copied.data(), in.data(), kCount / 8);
        keep(copied.data());
        return 0;
    });
    contest.enter("std::vector<bool>", [&] {
        std::copy(boolsIn.begin() + inBit, boolsIn.begin() + inBit + kCount, boolsOut.begin() + outBit);
        keep(&boolsOut);
        return 0;
    });
    contest.run();
    for (int k = 0; k < kCount; ++k) {
        auto const bit = static_cast<std::size_t>(outBit + k);
        if (bitOf(out, bit) != boolsOut[bit]) {
            std::fprintf(stderr, "%s: bit %d is not the same\n", contest.title().c_str(), k);
            std::exit(EXIT_FAILURE);
        }
    }
    report.ratio(contest, "", kMemcpy, {inBit == outBit ? 1.3 : 6});
    report.ratio(contest, "", "std::vector<bool>", {inBit == outBit ? 0 : 0.02});
}

/// Every pair of a group of conversions.
class Group {
  public:
    Group(char const* subject, char const* about, Goals const& goals, ScaleOffset const& transform = {}, int stride = 1)
        : report_(subject, about), goals_(goals), transform_(transform), stride_(stride) {}

    template <class S, class... Ds>
    Group& from() {
        (Pair<S, Ds>(transform_, stride_).measure(report_, goals_), ...);
        return *this;
    }

  private:
    Report report_;
    Goals goals_;
    ScaleOffset transform_;
    int stride_;
};

using U8 = unsigned char;
using I8 = char;
using U16 = unsigned short;
using I16 = short;

}  // namespace

int main() {
    ScaleOffset const scaled(0.37, 3.1);
    Group(
        "Conversion: integers, and integers to float",
        "Runs of 16384 samples; memcpy moves as many bytes, half of them in and half of them out.",
        {.copy = {1.15}, .best = {0.9}})
        .from<U8, I8, I16, int, float>()
        .from<I8, U8, I16, int, float>()
        .from<U16, U8, I8, I16, int, float>()
        .from<I16, U8, I8, U16, int, float>()
        .from<int, U8, I8, U16, I16, float>();
    Group("Conversion: float to integers", "Runs of 16384 samples.", {.openCv = {0.6}}).from<float, U8, I8, U16, I16>();
    Group("Conversion: 8 and 16 bits scaled", "Runs of 16384 samples, times 0.37, plus 3.1.", {.openCv = {0.6}}, scaled)
        .from<U8, U8, I8, U16, I16, int, float>()
        .from<I8, U8, I8, U16, I16, int, float>()
        .from<U16, U8, I8, U16, I16, int, float>()
        .from<I16, U8, I8, U16, I16, int, float>();
    Group(
        "Conversion: int and float scaled",
        "As above. The plain loop computes in double precision, with the same bits as result; OpenCV does not.",
        {.loop = {0.5}}, scaled)
        .from<int, U8, I8, U16, I16, float>()
        .from<float, U8, I8, U16, I16, float>();
    Group("Conversion: every 7th float to integers", "16384 samples; OpenCV converts a column.", {.best = {0.6}}, {}, 7)
        .from<float, U8, I8, U16, I16>();
    Report bits("Conversion: one-bit runs", "16384 bits, copied from one place in a byte to another.");
    measureBits(bits, 3, 3);
    measureBits(bits, 0, 0);
    measureBits(bits, 3, 6);
    measureBits(bits, 6, 1);
}

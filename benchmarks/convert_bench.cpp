// SPDX-License-Identifier: Apache-2.0
// Conversions of runs in cache, beside the memory copy that moves as many bytes in and out together, loops compiled for
// this machine, plain and with Highway, and, where it is installed, OpenCV's Mat::convertTo.

#include "report.h"

#include "dravik/adt/converters/value_converter_factory.h"

#ifdef DRAVIK_ADT_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

#define HWY_COMPILE_ONLY_STATIC
#include <hwy/highway.h>

#include <algorithm>
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

namespace hn = hwy::HWY_NAMESPACE;

/// Samples from 16 bytes into a page on, which is where the allocator puts large blocks: no figure hangs on what was
/// allocated before.
template <class T>
class Buffer {
  public:
    explicit Buffer(std::size_t count) : bytes_(count * sizeof(T) + 2 * kPage), count_(count) {
        auto const address = reinterpret_cast<std::uintptr_t>(bytes_.data());
        first_ = reinterpret_cast<T*>(bytes_.data() + (kPage - address % kPage) + 16);
    }
    Buffer(Buffer const&) = delete;
    Buffer& operator=(Buffer const&) = delete;

    T* data() { return first_; }
    T* begin() { return first_; }
    T* end() { return first_ + count_; }
    std::size_t size() const { return count_; }
    T& operator[](std::size_t k) { return first_[k]; }

  private:
    static constexpr std::size_t kPage = 4096;

    std::vector<unsigned char> bytes_;
    std::size_t count_;
    T* first_;
};

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
void plainLoop(S const* __restrict in, std::ptrdiff_t stride, D* __restrict out, int count) {
    if (stride == 1) {
        for (int k = 0; k < count; ++k) {
            out[k] = narrowed<D>(in[k]);
        }
        return;
    }
    for (int k = 0; k < count; ++k) {
        out[k] = narrowed<D>(in[k * stride]);
    }
}

template <class S, class D>
void plainScaledLoop(S const* __restrict in, D* __restrict out, int count, double scale, double offset) {
    for (int k = 0; k < count; ++k) {
        out[k] = narrowed<D>(static_cast<float>(scale * in[k] + offset));
    }
}

// `char` holds what signed char holds.
template <class T>
using Number = std::conditional_t<std::is_same_v<T, char>, signed char, T>;

// One conversion of Highway's where there is one, else by way of 32-bit integers.
template <class S, class D>
void highwayLoop(S const* in, D* out, int count) {
    using Wider = std::conditional_t<(sizeof(S) > sizeof(D)), Number<S>, Number<D>>;
    hn::Rebind<Number<S>, hn::ScalableTag<Wider>> const from;
    hn::Rebind<Number<D>, hn::ScalableTag<Wider>> const to;
    constexpr bool kBothInteger = std::is_integral_v<S> && std::is_integral_v<D>;
    for (int k = 0; k < count; k += static_cast<int>(hn::Lanes(from))) {
        auto const v = hn::LoadU(from, reinterpret_cast<Number<S> const*>(in + k));
        auto* const result = reinterpret_cast<Number<D>*>(out + k);
        if constexpr (kBothInteger && sizeof(S) < sizeof(D)) {
            hn::StoreU(hn::PromoteTo(to, v), to, result);
        } else if constexpr (kBothInteger && sizeof(S) > sizeof(D) && std::is_signed_v<Number<S>>) {
            hn::StoreU(hn::DemoteTo(to, v), to, result);
        } else if constexpr (std::is_same_v<S, int>) {
            hn::StoreU(hn::ConvertTo(to, v), to, result);
        } else if constexpr (std::is_same_v<S, float>) {
            hn::StoreU(hn::DemoteTo(to, hn::NearestInt(v)), to, result);
        } else {
            hn::Rebind<std::int32_t, decltype(to)> const ints;
            hn::StoreU(hn::ConvertTo(to, hn::PromoteTo(ints, v)), to, result);
        }
    }
}

// Not between integers of the same width, from unsigned ones to narrower ones, nor from signed ones to wider unsigned.
template <class S, class D>
constexpr bool highwayConverts() {
    constexpr bool kFromSigned = std::is_signed_v<Number<S>>;
    if (std::is_same_v<S, D> || sizeof(S) == sizeof(D)) {
        return std::is_same_v<D, float> && !std::is_same_v<S, float>;
    }
    return sizeof(S) > sizeof(D) ? kFromSigned : !kFromSigned || std::is_signed_v<Number<D>>;
}

// What no conversion can do without: loads every sample and stores as many bytes as come out.
template <class S, class D>
void loadAndStore(S const* in, std::ptrdiff_t stride, D* out, int count) {
    using Vector [[gnu::vector_size(64)]] = unsigned;
    constexpr std::size_t kLoads = sizeof(S) > sizeof(D) ? sizeof(S) / sizeof(D) : 1;
    constexpr std::size_t kStores = sizeof(D) > sizeof(S) ? sizeof(D) / sizeof(S) : 1;
    constexpr std::size_t kSamples = kLoads * sizeof(Vector) / sizeof(S);
    for (std::size_t k = 0; k < static_cast<std::size_t>(count); k += kSamples) {
        Vector all{};
        for (std::size_t load = 0; load < kLoads; ++load) {
            Vector v{};
            if (stride == 1) {
                std::memcpy(&v, in + k + load * sizeof(v) / sizeof(S), sizeof v);
            } else {
                for (std::size_t lane = 0; lane < 16; ++lane) {
                    std::memcpy(&v[lane], in + static_cast<std::ptrdiff_t>(k + load * 16 + lane) * stride, 4);
                }
            }
            all |= v;
        }
        for (std::size_t store = 0; store < kStores; ++store) {
            std::memcpy(out + k + store * sizeof(all) / sizeof(D), &all, sizeof all);
        }
    }
}

// Samples that mostly fit the narrower types, as they do in practice.
template <class T>
void fill(Buffer<T>& buffer) {
    std::mt19937 random(1);
    std::normal_distribution<double> distribution(60, 40);
    for (T& value : buffer) {
        value = narrowed<T>(static_cast<float>(distribution(random)));
    }
}

/// What a conversion may cost beside each of its peers.
struct Goals {
    Wanted copy = {}, best = {}, loop = {}, openCv = {};
    bool tellBound = false;  ///< also beside loads and stores alone
};

constexpr char const* kMemcpy = "memcpy";
constexpr char const* kLoop = "plain loop";
constexpr char const* kHighway = "Highway";
constexpr char const* kOpenCv = "OpenCV";
constexpr char const* kLoadAndStore = "loads and stores alone";

/// One pair of types: what takes part, and that it makes of the samples what our converter makes of them.
template <class S, class D>
class Pair {
  public:
    Pair(ScaleOffset const& transform, int count, int stride)
        : contest_(std::string(Name<S>::kText) + " → " + Name<D>::kText),
          count_(count),
          stride_(stride),
          isScaled_(!(transform == ScaleOffset::identity())),
          scale_(static_cast<float>(transform.getScale())),
          offset_(static_cast<float>(transform.getOffset())),
          converter_(ValueConverterFactory::getTypeConverter(typeid(S), typeid(D), transform, false)),
          in_(static_cast<std::size_t>(count * stride)),
          out_(static_cast<std::size_t>(count)),
          from_(out_.size() * (sizeof(S) + sizeof(D)) / 2),
          to_(from_.size()) {
        fill(in_);
    }

    void measure(Report& report, Goals const& goals) {
        enter("", 0, [this] { convert(); });
        enter(kLoop, 0, [this] { loop(); });
        if constexpr (highwayConverts<S, D>()) {
            if (!isScaled_ && stride_ == 1) {
                enter(kHighway, 0, [this] { highwayLoop(in_.data(), out_.data(), count_); });
            }
        }
        enterOpenCv();
        enterUnchecked(kLoadAndStore, [this] { loadAndStore(in_.data(), stride_, out_.data(), count_); });
        enterUnchecked(kMemcpy, [this] {
            std::memcpy(to_.data(), from_.data(), to_.size());
            keep(to_.data());
        });
        contest_.run();
        report.ratio(contest_, "", kMemcpy, goals.copy);
        if (goals.best.atMost != 0) {
            report.ratioToBest(contest_, "", {kLoop, kHighway, kOpenCv}, goals.best);
        } else {
            report.ratio(contest_, "", kLoop, goals.loop);
            report.ratio(contest_, "", kOpenCv, goals.openCv);
        }
        if (goals.tellBound) {
            report.ratio(contest_, "", kLoadAndStore);
        }
    }

  private:
    void convert() {
        if (stride_ == 1) {
            converter_->convertContiguous(in_.data(), 0, out_.data(), 0, count_);
        } else {
            converter_->convertStrided(in_.data(), 0, stride_, out_.data(), 0, 1, count_);
        }
    }

    void loop() {
        if (isScaled_) {
            plainScaledLoop(in_.data(), out_.data(), count_, double{scale_}, double{offset_});
        } else {
            plainLoop(in_.data(), stride_, out_.data(), count_);
        }
    }

#ifdef DRAVIK_ADT_BENCH_OPENCV
    void enterOpenCv() {
        using CvIn = std::conditional_t<std::is_same_v<S, char>, schar, S>;
        using CvOut = std::conditional_t<std::is_same_v<D, char>, schar, D>;
        // A column of a matrix is what OpenCV has for a strided run.
        cv::Mat const all(count_, stride_, cv::DataType<CvIn>::type, in_.data());
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
        if (expected_.empty()) {
            expected_.assign(out_.begin(), out_.end());
        }
        for (std::size_t k = 0; k < out_.size(); ++k) {
            if (std::abs(static_cast<double>(out_[k]) - static_cast<double>(expected_[k])) > difference) {
                std::fprintf(
                    stderr, "%s: %s makes %g of sample %zu, not %g\n", contest_.title().c_str(), name.c_str(),
                    static_cast<double>(out_[k]), k, static_cast<double>(expected_[k]));
                std::exit(EXIT_FAILURE);
            }
        }
        enterUnchecked(name, work);
    }

    template <class Work>
    void enterUnchecked(std::string const& name, Work work) {
        contest_.enter(name, [this, work] {
            work();
            keep(out_.data());
            return 0;
        });
    }

    Contest contest_;
    int count_;
    int stride_;
    bool isScaled_;
    float scale_, offset_;
    boost::shared_ptr<IValueConverter const> converter_;
    Buffer<S> in_;
    Buffer<D> out_;
    std::vector<D> expected_;
    Buffer<char> from_, to_;
};

bool bitOf(Buffer<unsigned char>& bytes, std::size_t bit) {
    return (bytes[bit / 8] >> bit % 8 & 1) != 0;
}

constexpr int kCount = 16384;  // where nothing else is said

void measureBits(Report& report, int inBit, int outBit) {
    auto const converter = ValueConverterFactory::getCopyConverter(1);
    Buffer<unsigned char> in(kCount / 8 + 2), out(in.size()), copied(in.size());
    fill(in);
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
    constexpr char const* kEnds =
        "2 KiB are copied in a dozen nanoseconds, beside which the masked bytes at both ends show.";
    constexpr char const* kWords =
        "two loads, two shifts and a store for every 16 bytes, where memcpy moves 32 or more.";
    report.ratio(contest, "", kMemcpy, inBit == outBit ? Wanted{1.3, kEnds} : Wanted{4, kWords});
    report.ratio(contest, "", "std::vector<bool>", {inBit == outBit ? 0 : 0.02});
}

/// Every pair of a group of conversions.
class Group {
  public:
    Group(
        std::string subject, std::string about, Goals const& goals, ScaleOffset const& transform = {},
        int count = kCount, int stride = 1)
        : report_(std::move(subject), std::move(about)),
          goals_(goals),
          transform_(transform),
          count_(count),
          stride_(stride) {}

    template <class S, class... Ds>
    Group& from() {
        (Pair<S, Ds>(transform_, count_, stride_).measure(report_, goals_), ...);
        return *this;
    }

  private:
    Report report_;
    Goals goals_;
    ScaleOffset transform_;
    int count_;
    int stride_;
};

using U8 = unsigned char;
using I8 = char;
using U16 = unsigned short;
using I16 = short;

constexpr char const* kTraffic = "no slower than loads and stores alone, the last row of a pair, where the best loops "
                                 "stand as well: what is left is "
                                 "the traffic between both levels of the cache. memcpy of so many bytes is the "
                                 "processor's string instruction, which "
                                 "is faster than any loop of loads and stores.";
constexpr char const* kInFirstLevel =
    "loads and stores alone, the last row of a pair, take as long within a fifth, and so do the best loops for this "
    "machine.";
constexpr char const* kDoubles =
    "beside loads and stores alone, the last row of a pair, little is left for int. Float goes to double and back for "
    "the sake of the last bit, and these conversions are the price.";
constexpr char const* kEveryLine = "loads and stores alone, the last row of a pair, take as long: nearly every sample "
                                   "comes from a line of the cache of its own.";

void measureUnscaled(int count) {
    std::string const runs = ", runs of " + std::to_string(count);
    char const* const why = count == kCount ? kTraffic : kInFirstLevel;
    Group(
        "Conversion: integers, and integers to float" + runs,
        "memcpy moves as many bytes, half of them in and half of them out.",
        {.copy = {1.15, why}, .best = {0.9, why}, .tellBound = true}, {}, count)
        .from<U8, I8, I16, int, float>()
        .from<I8, U8, I16, int, float>()
        .from<U16, U8, I8, I16, int, float>()
        .from<I16, U8, I8, U16, int, float>()
        .from<int, U8, I8, U16, I16, float>();
    Group(
        "Conversion: float to integers" + runs, "To the nearest, saturated.", {.openCv = {0.6, why}, .tellBound = true},
        {}, count)
        .from<float, U8, I8, U16, I16>();
}

void measureScaled() {
    ScaleOffset const scaled(0.37, 3.1);
    Group(
        "Conversion: 8 and 16 bits scaled", "Runs of 16384, times 0.37, plus 3.1.",
        {.openCv = {0.6, kTraffic}, .tellBound = true}, scaled)
        .from<U8, U8, I8, U16, I16, int, float>()
        .from<I8, U8, I8, U16, I16, int, float>()
        .from<U16, U8, I8, U16, I16, int, float>()
        .from<I16, U8, I8, U16, I16, int, float>();
    Group(
        "Conversion: int and float scaled",
        "As above. The plain loop computes in double precision, with the same bits as result; OpenCV does not.",
        {.loop = {0.5, kDoubles}, .tellBound = true}, scaled)
        .from<int, U8, I8, U16, I16, float>()
        .from<float, U8, I8, U16, I16, float>();
}

}  // namespace

int main() {
    measureUnscaled(kCount);
    measureUnscaled(2048);
    measureScaled();
    Group(
        "Conversion: every 7th float to integers", "Runs of 16384; OpenCV converts a column.",
        {.best = {0.6, kEveryLine}, .tellBound = true}, {}, kCount, 7)
        .from<float, U8, I8, U16, I16>();
    Report bits("Conversion: one-bit runs", "16384 bits, copied from one place in a byte to another.");
    measureBits(bits, 3, 3);
    measureBits(bits, 0, 0);
    measureBits(bits, 3, 6);
    measureBits(bits, 6, 1);
}

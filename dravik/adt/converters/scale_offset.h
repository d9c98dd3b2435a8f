// SPDX-License-Identifier: Apache-2.0
#pragma once

// ScaleOffset: the linear value transform y = scale * x + offset. A plain value that owns nothing. Threads: as `int`.

#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"

namespace Quorvel::Dravik::Adt {

/// A linear transform of sample values.
///
/// Equality is tolerant: two transforms whose scales and offsets differ by less than one part in 2^23 (of 1 + their
/// magnitude, so near zero the tolerance is absolute) are equal. It is therefore not transitive, and there is no hash.
/// A NaN equals nothing.
///
///     auto const toBytes = ScaleOffset::getRangeTransform({-1.0, 1.0}, {0.0, 255.0});
///     toBytes.convertFloat(0.0f);  // 127.5
class ScaleOffset {
  public:
    /// The identity.
    constexpr ScaleOffset() noexcept = default;
    constexpr ScaleOffset(double scale, double offset) noexcept : scale_(scale), offset_(offset) {}

    constexpr double getScale() const noexcept { return scale_; }
    constexpr double getOffset() const noexcept { return offset_; }

    /// The transform that undoes this one. A scale of 0 gives what the floating-point division gives.
    constexpr ScaleOffset getInverse() const noexcept { return {1 / scale_, -(offset_ / scale_)}; }

    /// y for x. Scale and offset are narrowed to float first, then product and sum are formed in double and rounded to
    /// float once: the same bits as a scaled conversion of samples.
    constexpr float convertFloat(float x) const noexcept {
        // The product of two floats is exact in double, so a program that fuses it with the sum gets the same bits.
        double const product = double{static_cast<float>(scale_)} * double{x};
        return static_cast<float>(product + double{static_cast<float>(offset_)});
    }

    /// y for x, all in double: a product, then a sum.
    DRAVIK_ADT_EXPORT double convertDouble(double x) const noexcept;

    /// Scale 1, offset 0: one object for the whole process, there before any other static is initialised.
    DRAVIK_ADT_EXPORT static ScaleOffset const& identity() noexcept;

    /// The transform that applies `first` and then `second`.
    DRAVIK_ADT_EXPORT static ScaleOffset getComposition(ScaleOffset const& first, ScaleOffset const& second) noexcept;

    /// The transform that, followed by `last`, equals `whole`.
    static constexpr ScaleOffset getDifference(ScaleOffset const& whole, ScaleOffset const& last) noexcept {
        return {whole.scale_ / last.scale_, (whole.offset_ - last.offset_) / last.scale_};
    }

    /// The transform that maps the ends of `source` to the ends of `target`; ranges whose max lies below their min
    /// mirror. A target without width gives the smallest positive normal scale, so that the transform stays invertible.
    /// @throws std::invalid_argument where only the source has no width
    DRAVIK_ADT_EXPORT static ScaleOffset getRangeTransform(
        ClosedRange<1, double> const& source, ClosedRange<1, double> const& target);

    friend constexpr bool operator==(ScaleOffset const& left, ScaleOffset const& right) noexcept {
        bool const identical = left.scale_ == right.scale_ && left.offset_ == right.offset_;
        return identical || (areClose(left.scale_, right.scale_) && areClose(left.offset_, right.offset_));
    }

    /// Writes "2*x+1".
    template <class Traits>
    friend std::basic_ostream<char, Traits>& operator<<(
        std::basic_ostream<char, Traits>& out, ScaleOffset const& transform) {
        return out << transform.scale_ << "*x" << (transform.offset_ < 0 ? "" : "+") << transform.offset_;
    }

  private:
    static constexpr double kTolerance = 0x1p-23;

    static constexpr double magnitude(double x) noexcept { return x < 0 ? -x : x; }
    static constexpr bool areClose(double x, double y) noexcept {
        return magnitude(x - y) / (0.5 * (magnitude(x) + magnitude(y)) + 1) < kTolerance;
    }

    static ScaleOffset const identity_;

    double scale_ = 1;
    double offset_ = 0;
};

}  // namespace Quorvel::Dravik::Adt

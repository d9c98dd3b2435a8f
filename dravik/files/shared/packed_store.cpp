// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/shared/packed_store.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Files {

namespace {

using Adt::BulkView::AccessTraits;
using Adt::BulkView::IBrickStore;
using Box = Adt::OpenEndedRange<4, int>;
using Size = Adt::FixedVector<4, int>;

// Unpacks, with samples of type S made of numbers of type N.
template <class N, class S>
class PackedStore final : public IBrickStore {
  public:
    PackedStore(std::unique_ptr<StoredNumbers> numbers, Size const& size, AccessTraits traits, Packing const& packing)
        : numbers_(std::move(numbers)), size_(size), traits_(traits), packing_(packing) {
        traits_.sampleType = &typeid(S);
        traits_.bitSize = static_cast<int>(8 * sizeof(S));
    }

    Size size() const override { return size_; }
    AccessTraits traits() const override { return traits_; }
    bool servesParts() const override { return numbers_->servesParts(); }
    bool servesSteps() const override { return numbers_->servesSteps(); }
    bool hasSamples(Box const& box) const override { return numbers_->hasSamples(box); }
    void flush() override { numbers_->flush(); }

    void read(Box const& box, void* samples) const override {
        readUnpacked(box.pointCount(), samples, [&](void* numbers) { numbers_->read(box, numbers); });
    }
    void readSteps(Adt::ExtentK<4, int> const& region, void* samples) const override {
        std::int64_t count = 1;
        for (int axis = 0; axis < 4; ++axis) {
            count *= region[axis].count;
        }
        readUnpacked(count, samples, [&](void* numbers) { numbers_->readSteps(region, numbers); });
    }

    void write(Box const& box, void const* samples) override {
        if (!traits_.writable) {
            return IBrickStore::write(box, samples);
        }
        if (std::is_same_v<N, S> && packing_.isPlain()) {
            return numbers_->write(box, samples);
        }
        std::vector<N> numbers(static_cast<std::size_t>(box.pointCount()));
        auto const* from = static_cast<S const*>(samples);
        std::transform(from, from + numbers.size(), numbers.begin(), [&](S sample) { return packed(sample); });
        numbers_->write(box, numbers.data());
    }

  private:
    // Of `count` samples, whose numbers readNumbers puts where it is told.
    template <class ReadNumbers>
    void readUnpacked(std::int64_t count, void* samples, ReadNumbers readNumbers) const {
        auto* const to = static_cast<S*>(samples);
        auto const size = static_cast<std::size_t>(count);
        if constexpr (std::is_same_v<N, S>) {
            readNumbers(samples);
            unpack(to, to, size);
        } else {
            auto const numbers = std::make_unique_for_overwrite<N[]>(size);
            readNumbers(numbers.get());
            unpack(numbers.get(), to, size);
        }
    }

    void unpack(N const* from, S* to, std::size_t count) const {
        if (packing_.isPlain()) {
            if constexpr (!std::is_same_v<N, S>) {
                std::transform(from, from + count, to, [](N number) { return static_cast<S>(number); });
            }
            return;
        }
        if (packing_.missing.size() > 2) {
            std::transform(from, from + count, to, [&](N number) { return unpacked(number); });
            return;
        }
        // Locals, and no branch on what a loop needs not: the compiler makes vector code of it.
        double const scale = packing_.scale, offset = packing_.offset;
        double const none = std::numeric_limits<double>::quiet_NaN();
        double const first = packing_.missing.empty() ? none : packing_.missing.front();
        double const second = packing_.missing.empty() ? none : packing_.missing.back();
        if (!packing_.isScaled()) {
            auto const one = static_cast<S>(first), other = static_cast<S>(second);
            for (std::size_t k = 0; k < count; ++k) {
                S const sample = static_cast<S>(from[k]);
                to[k] = sample == one || sample == other ? std::numeric_limits<S>::quiet_NaN() : sample;
            }
            return;
        }
        for (std::size_t k = 0; k < count; ++k) {
            double const number = static_cast<double>(from[k]);
            to[k] = static_cast<S>(number == first || number == second ? none : number * scale + offset);
        }
    }

    S unpacked(N number) const {
        auto const stored = static_cast<double>(number);
        return packing_.isMissing(stored) ? std::numeric_limits<S>::quiet_NaN()
               : packing_.isScaled()      ? static_cast<S>(stored * packing_.scale + packing_.offset)
                                          : static_cast<S>(number);
    }

    N packed(S sample) const {
        if (std::isnan(static_cast<double>(sample)) && !packing_.missing.empty()) {
            return static_cast<N>(packing_.missing.front());
        }
        double const number = (static_cast<double>(sample) - packing_.offset) / packing_.scale;
        if constexpr (std::is_floating_point_v<N>) {
            return static_cast<N>(number);
        } else {
            // The nearest that there is; the highest number of 64 bits is no double.
            auto const low = static_cast<double>(std::numeric_limits<N>::min());
            auto const high = static_cast<double>(std::numeric_limits<N>::max());
            double const rounded = std::nearbyint(number);
            return std::isnan(rounded) ? N{0}
                   : rounded <= low    ? std::numeric_limits<N>::min()
                   : rounded >= high   ? std::numeric_limits<N>::max()
                                       : static_cast<N>(rounded);
        }
    }

    std::unique_ptr<StoredNumbers> numbers_;
    Size size_;
    AccessTraits traits_;
    Packing packing_;
};

// Missing values as N has them. One that N cannot hold is dropped, since no stored number equals it.
template <class N>
Packing storable(Packing packing) {
    constexpr auto kLow = static_cast<double>(std::numeric_limits<N>::lowest());
    constexpr auto kHigh = static_cast<double>(std::numeric_limits<N>::max());
    std::vector<double> missing;
    for (double value : packing.missing) {
        // Told with the sign that the type has not in classic files.
        value += std::is_unsigned_v<N> && value < 0 ? kHigh + 1 : 0;
        bool const isHeld = std::is_integral_v<N> ? value >= kLow && value < kHigh + 1 && value == std::trunc(value)
                                                  : value >= kLow && value <= kHigh;
        if (isHeld) {
            missing.push_back(static_cast<double>(static_cast<N>(value)));
        }
    }
    packing.missing = std::move(missing);
    return packing;
}

template <class N>
std::shared_ptr<IBrickStore> storeOf(
    std::unique_ptr<StoredNumbers> numbers, Size const& size, AccessTraits const& traits, Packing const& told) {
    auto const packing = storable<N>(told);
    if (packing.isPlain()) {
        return std::make_shared<PackedStore<N, N>>(std::move(numbers), size, traits, packing);
    }
    constexpr bool isWide = std::is_same_v<N, double> || (std::is_integral_v<N> && sizeof(N) >= 4);
    using Shown = std::conditional_t<isWide, double, float>;
    return std::make_shared<PackedStore<N, Shown>>(std::move(numbers), size, traits, packing);
}

}  // namespace

StoredNumbers::~StoredNumbers() = default;

bool StoredNumbers::hasSamples(Box const& /*box*/) const {
    return true;
}

bool StoredNumbers::servesSteps() const {
    return false;
}

void StoredNumbers::readSteps(Adt::ExtentK<4, int> const& /*region*/, void* /*numbers*/) const {
    throw std::logic_error("[StoredNumbers] Read by boxes.");
}

std::shared_ptr<IBrickStore> makePackedStore(
    std::unique_ptr<StoredNumbers> numbers, std::type_info const& stored, Size const& size, AccessTraits const& traits,
    Packing const& packing) {
    std::shared_ptr<IBrickStore> store;
    auto const make = [&]<class... N>(N...) {
        return ((stored == typeid(N) && (store = storeOf<N>(std::move(numbers), size, traits, packing))) || ...);
    };
    if (!make(
            char(), static_cast<unsigned char>(0), short(), static_cast<unsigned short>(0), 0, 0u, std::int64_t(), 0.f,
            0.)) {
        throw std::invalid_argument("[PackedStore] Invalid argument: no numbers of up to 64 bits.");
    }
    return store;
}

}  // namespace Quorvel::Dravik::Files

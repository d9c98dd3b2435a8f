// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/filters/detail/cache_index.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail {
namespace {

using Position = CacheIndex::Position;
using Box = CacheIndex::Box;

// Holds no position, and no union or comparison of it overflows.
constexpr Box kNothing{
    Position::Filled(std::numeric_limits<int>::max()), Position::Filled(std::numeric_limits<int>::min())};

bool isEmpty(Box const& box, int axes) {
    bool empty = false;
    for (int axis = 0; axis < axes; ++axis) {
        empty = empty || box.max.data()[axis] <= box.min.data()[axis];
    }
    return empty;
}

// What every processor compares in one instruction.
constexpr int kInts = 4;
using Ints [[gnu::vector_size(kInts * sizeof(int))]] = int;

Ints load(int const* from) {
    Ints ints;
    std::memcpy(&ints, from, sizeof ints);
    return ints;
}

// Samples in `box`: none if it is empty, wherever its corners are.
template <class Multiply>
std::uint64_t product(Box const& box, int axes, Multiply multiply) {
    std::uint64_t count = isEmpty(box, axes) ? 0 : 1;
    for (int axis = 0; axis < axes && count != 0; ++axis) {
        count = multiply(count, static_cast<std::uint64_t>(box.size(axis)));
    }
    return count;
}

unsigned sampleCount(Box const& box, int axes) {
    return static_cast<unsigned>(product(box, axes, std::multiplies<>()));
}

std::uint64_t clampedSampleCount(Box const& box, int axes) {
    return product(box, axes, [](std::uint64_t count, std::uint64_t length) {
        return std::min<std::uint64_t>(count * length, std::numeric_limits<unsigned>::max());
    });
}

template <int N>
bool contains(Box const& box, Position const& position) {
    bool inside = true;
    for (int axis = 0; axis < N; ++axis) {
        int const index = position.data()[axis];
        inside = inside && box.min.data()[axis] <= index && index < box.max.data()[axis];
    }
    return inside;
}

}  // namespace

CacheIndex::Group::Group() noexcept : access() {
    std::fill_n(&min[0][0], 4 * kLanes, std::numeric_limits<int>::max());
    std::fill_n(&max[0][0], 4 * kLanes, std::numeric_limits<int>::min());
}

CacheIndex::CacheIndex(int axes, Limits const& limits) : axes_(axes), limits_(limits), grid_(axes) {}

template <int N>
inline bool CacheIndex::holds(Group const& at, Position const& position) noexcept {
    Ints any{};
    for (int in = 0; in < kLanes; in += kInts) {
        Ints tooHigh{};
        Ints belowEnd = ~Ints{};
        for (int axis = 0; axis < N; ++axis) {
            tooHigh |= load(&at.min[axis][in]) > position.data()[axis];
            belowEnd &= load(&at.max[axis][in]) > position.data()[axis];
        }
        any |= belowEnd & ~tooHigh;
    }
    auto const words = std::bit_cast<std::array<std::int64_t, 2>>(any);
    return (words[0] | words[1]) != 0;
}

template <int N>
int CacheIndex::guess(Position const& position, AdtEnums::Access access) const noexcept {
    // The direction is asked about only where there is a choice: at random, it turns every other time.
    int found = kNone;
    for (int entry = grid_.newest<N>(position); entry != kNone;) {
        bool const isServed = serves<N>(entry, position, access);
        found = isServed ? entry : found;
        entry = grid_.older(entry);
        if (entry != kNone && isServed && backward_) {
            break;
        }
    }
    return found;
}

template <int N>
int CacheIndex::scan(Position const& position, AdtEnums::Access access) const noexcept {
    int const groups = static_cast<int>(groups_.size());
    for (int step = 0; step < groups; ++step) {
        int const number = backward_ ? groups - 1 - step : step;
        if (holds<N>(groups_[static_cast<unsigned>(number)], position)) {
            int const found = firstIn<N>(number, position, access);
            if (found != kNone) {
                return found;
            }
        }
    }
    return kNone;
}

template <int N>
int CacheIndex::firstIn(int number, Position const& position, AdtEnums::Access access) const noexcept {
    int const first = number * kLanes;
    for (int in = 0; in < kLanes; ++in) {
        int const entry = backward_ ? first + kLanes - 1 - in : first + in;
        if (serves<N>(entry, position, access)) {
            return entry;
        }
    }
    return kNone;
}

template <int N>
int CacheIndex::search(Position const& position, AdtEnums::Access access) noexcept {
    if (size_ == 0 || !contains<N>(covered_, position)) {
        return kNone;
    }
    int const found = grid_.isComplete() ? guess<N>(position, access) : scan<N>(position, access);
    int const passed = found == kNone ? size_ : backward_ ? size_ - 1 - found : found;
    // A scan that passes its first half without a match makes the next one start from the other end. How many entries
    // it passes follows from what it finds, so a guess turns the direction just as a scan does.
    backward_ = backward_ != (passed > (size_ + 1) / 2);
    if (found != kNone) {
        link(found);
        previous_ = found;
        predicted_ = next_[static_cast<unsigned>(found)];
    }
    return found;
}

template int CacheIndex::search<2>(Position const&, AdtEnums::Access) noexcept;
template int CacheIndex::search<3>(Position const&, AdtEnums::Access) noexcept;
template int CacheIndex::search<4>(Position const&, AdtEnums::Access) noexcept;

bool CacheIndex::isResetBy(Box const& box) const noexcept {
    unsigned const samples = samples_ + sampleCount(box, axes_);
    std::uint64_t const covered = clampedSampleCount(covered_.bounding(box), axes_);
    auto const entries = static_cast<unsigned>(size_);
    return samples > static_cast<unsigned>(limits_.sampleBudget) ||
           (entries >= static_cast<unsigned>(limits_.fullDensityThreshold) && covered > samples) ||
           (entries >= static_cast<unsigned>(limits_.halfDensityThreshold) && covered / 2 >= samples_);
}

void CacheIndex::store(Box const& box, AdtEnums::Access access, bool unusable) noexcept {
    if (isResetBy(box)) {
        reset();
    }
    samples_ += sampleCount(box, axes_);
    covered_ = covered_.bounding(box);
    link(size_);
    previous_ = size_;
    predicted_ = kNone;
    append(unusable || isEmpty(box, axes_) ? kNothing : box, access);
}

void CacheIndex::reset() noexcept {
    samples_ = 0;
    covered_ = {};
    previous_ = predicted_ = kNone;
    size_ = 0;
    groups_.clear();
    next_.clear();
    grid_.clear();
}

void CacheIndex::append(Box const& box, AdtEnums::Access access) noexcept {
    if (lane(size_) == 0) {
        groups_.emplace_back();
    }
    next_.push_back(kNone);
    setEntry(size_++, box, access);
    if (grid_.widen(box) || (grid_.isComplete() && grid_.isFull())) {
        guessAgain();
    } else if (grid_.isComplete()) {
        grid_.add(box);
    }
}

void CacheIndex::reserve(int count) {
    auto const entries = static_cast<std::size_t>(count);
    groups_.reserve((entries + kLanes - 1) / kLanes);
    next_.reserve(entries);
    grid_.reserve(entries);
}

void CacheIndex::moveInto(CacheIndex& larger) noexcept {
    // Assigned, since that fills the memory which is there already.
    larger.groups_ = groups_;
    larger.next_ = next_;
    larger.grid_ = grid_;
    groups_.swap(larger.groups_);
    next_.swap(larger.next_);
    std::swap(grid_, larger.grid_);
}

void CacheIndex::setEntry(int entry, Box const& box, AdtEnums::Access access) noexcept {
    Group& at = group(entry);
    int const in = lane(entry);
    for (int axis = 0; axis < axes_; ++axis) {
        at.min[axis][in] = box.min.data()[axis];
        at.max[axis][in] = box.max.data()[axis];
    }
    at.access[in] = access;
}

void CacheIndex::setUnusable(int entry) noexcept {
    setEntry(entry, kNothing, AdtEnums::NoAccess);
}

CacheIndex::Box CacheIndex::boxOf(int entry) const noexcept {
    Box box;
    for (int axis = 0; axis < axes_; ++axis) {
        box.min.data()[axis] = group(entry).min[axis][lane(entry)];
        box.max.data()[axis] = group(entry).max[axis][lane(entry)];
    }
    return box;
}

void CacheIndex::link(int next) noexcept {
    if (static_cast<unsigned>(previous_) < static_cast<unsigned>(size_)) {
        next_[static_cast<unsigned>(previous_)] = next;
    }
}

void CacheIndex::move(int from, int to) noexcept {
    setEntry(to, boxOf(from), group(from).access[lane(from)]);
    next_[static_cast<unsigned>(to)] = next_[static_cast<unsigned>(from)];
}

void CacheIndex::shrink(int size) noexcept {
    for (int entry = size; entry < size_; ++entry) {
        setEntry(entry, kNothing, AdtEnums::NoAccess);
    }
    size_ = size;
    next_.resize(static_cast<std::size_t>(size));
    groups_.resize((static_cast<std::size_t>(size) + kLanes - 1) / kLanes);
    grid_.clear();
    for (int entry = 0; entry < size_; ++entry) {
        grid_.widen(boxOf(entry));
    }
    guessAgain();
}

void CacheIndex::guessAgain() noexcept {
    grid_.restart(static_cast<std::size_t>(size_));
    for (int entry = 0; entry < size_ && grid_.isComplete(); ++entry) {
        grid_.add(boxOf(entry));
    }
}

}  // namespace Quorvel::Dravik::Adt::BulkView::Filters::Detail

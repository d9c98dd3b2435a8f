// SPDX-License-Identifier: Apache-2.0
// Views with arbitrary numbers in them, the ends of int included: what they map where, alone, inverted and composed;
// extents, boxes and arrays converted through them; and filters and typed views over blocks with any strides. Against
// arithmetic in 128 bits: an error with a text, or the address of the very sample.

#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/array_view_converter.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/filters/subset_filter.h"
#include "dravik/adt/bulkview/views/typed_3d_views.h"
#include "dravik/adt/bulkview/views/view_exceptions.h"
#include "dravik/adt/testing/lending_accessor.h"
#include "dravik/adt/testing/modelled_views.h"

#include "input.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cmath>
#include <exception>
#include <optional>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Fuzz {
namespace {

using namespace BulkDef::View;
using BulkView::AdtEnums;
using BulkView::BufferHandle;
using BulkView::IBufferAccessor;
using Extent = ExtentImpl<int>;
using Index = FixedVector<4, int>;
using ArrayInfo = BufferHandle::ArrayInfo;
using ViewPtr = boost::shared_ptr<BulkDef::ViewDef const>;
__extension__ typedef __int128 Wide;

bool isInt(Wide value) {
    return value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
}

Wide indexAt(Extent const& extent, Wide place) {
    return extent.origin + place * extent.step;
}

/// Whether every index is one, and no two are the same.
bool isProper(Extent const& extent) {
    return extent.count <= 0 ||
           (isInt(indexAt(extent, Wide{extent.count} - 1)) && (extent.step != 0 || extent.count == 1));
}

/// The place of an index, if the extent has it.
std::optional<Wide> placeOf(Extent const& extent, Wide index) {
    Wide const distance = index - extent.origin;
    Wide const step = extent.step == 0 ? 1 : extent.step;
    Wide const place = distance / step;
    bool const isThere = distance % step == 0 && place >= 0 && place < extent.count;
    return isThere ? std::optional(place) : std::nullopt;
}

/// As likely small as large, and inside int more often than not.
Extent anyExtent(Input& input) {
    int const step = input.flag() ? input.between(-3, 3) : input.anyInt();
    switch (input.between(0, 3)) {
    case 0:
        return {input.anyInt(), input.anyInt(), input.anyInt()};
    case 1:
        return {input.between(-9, 9), step, 1};
    default: {
        Wide const room = std::numeric_limits<int>::max() / std::max<Wide>(step < 0 ? -Wide{step} : step, 1);
        int const most = static_cast<int>(room);
        int const count =
            input.flag() ? input.between(0, std::min(most, 9)) : most - input.between(0, std::min(most, 3));
        return {step < 0 ? std::numeric_limits<int>::max() - input.between(0, 9) : input.between(-9, 0), step, count};
    }
    }
}

int atSomePlace(Input& input, int count) {
    int const near = input.between(0, std::min(count - 1, 3));
    return input.flag() ? near : count - 1 - near;
}

void checkMappings(Extent const& seen, Extent const& wanted, Input& input) {
    ArraySubsetDef<1> const view{ExtentK<1, int>(seen)};
    Extent const inTarget = view.viewToTargetAxisExtent({0, wanted}).second;
    Extent const inView = view.targetToViewAxisExtent({0, wanted}).second;
    require(view.viewToTargetAxisExtent({input.between(1, 9), wanted}).second == wanted, "an axis it does not have");
    if (!isProper(seen) || !isProper(wanted)) {
        return;
    }
    require(seen.count > 0 || (inTarget.isEmpty() && inView.isEmpty()), "indices of nothing", seen, inTarget, inView);
    for (int round = 0; round < 4; ++round) {
        if (!inTarget.isEmpty()) {
            // Steps that leave int wrap, and so do the indices that they lead to.
            Wide const target = static_cast<int>(indexAt(inTarget, atSomePlace(input, inTarget.count)));
            auto const place = placeOf(seen, target);
            require(place && placeOf(wanted, *place), "a target index out of nowhere", seen, wanted, inTarget);
        }
        if (!inView.isEmpty()) {
            Wide const at = indexAt(inView, atSomePlace(input, inView.count));
            require(at >= 0 && at < seen.count, "a view index out of nowhere", seen, wanted, inView);
            require(placeOf(wanted, indexAt(seen, at)).has_value(), "a view index not wanted", seen, wanted, inView);
        }
        if (!wanted.isEmpty()) {
            Wide const index = indexAt(wanted, atSomePlace(input, wanted.count));
            bool const isInView = index >= 0 && index < seen.count &&
                                  (inTarget.count < 2 || isInt(indexAt(inTarget, inTarget.count - 1)));
            require(!isInView || placeOf(inTarget, indexAt(seen, index)), "lost in the target", seen, wanted, inTarget);
            auto const place = placeOf(seen, index);
            // Of a common step that leaves int one index is kept.
            require(!place || inView.count == 1 || placeOf(inView, *place), "lost in the view", seen, wanted, inView);
        }
    }
}

void checkComposition(Extent const& inner, Extent const& outer, Input& input) {
    ArraySubsetDef<1> const below{ExtentK<1, int>(inner)};
    ArraySubsetDef<1> const above{ExtentK<1, int>(outer)};
    ViewPtr const both = CompositeViewDef::compose(below, above);
    auto const* const subset = ArraySubsetDef<1>::Cast(both.get());
    require(subset != nullptr, "not one axis", inner, outer);
    if (!isProper(inner) || !isProper(outer) || outer.isEmpty()) {
        return;
    }
    Wide const last = indexAt(outer, outer.count - 1);
    if (std::min<Wide>(outer.origin, last) < 0 || std::max<Wide>(outer.origin, last) >= inner.count) {
        return;
    }
    // Views are composed as far as they show the indices around 0.
    constexpr Wide kFarthest = (1 << 30) - 2;
    Wide const ends[] = {indexAt(inner, outer.origin), indexAt(inner, last)};
    if (std::all_of(std::begin(ends), std::end(ends), [](Wide end) { return -kFarthest <= end && end <= kFarthest; })) {
        Extent const composed = subset->subset()[0];
        int const place = atSomePlace(input, outer.count);
        require(composed.count == outer.count, "another number of indices", inner, outer, composed);
        require(
            indexAt(composed, place) == indexAt(inner, indexAt(outer, place)), "another index", inner, outer, composed);
    }
}

ViewPtr anyView(Input& input, int depth) {
    switch (depth > 0 ? input.between(0, 5) : input.between(0, 3)) {
    case 0:
        return CompleteViewDef::Instance();
    case 1:
        return boost::make_shared<ArraySubsetDef<1> const>(ExtentK<1, int>(anyExtent(input)));
    case 2:
        return boost::make_shared<ArraySubsetDef<2> const>(ExtentK<2, int>(anyExtent(input), anyExtent(input)));
    case 3:
        return boost::make_shared<ArraySubsetDef<4> const>(
            ExtentK<4, int>(anyExtent(input), anyExtent(input), anyExtent(input), anyExtent(input)));
    case 4:
        return CompositeViewDef::inverse(anyView(input, depth - 1));
    default: {
        ViewPtr const inner = anyView(input, depth - 1);
        return CompositeViewDef::compose(*inner, *anyView(input, depth - 1));
    }
    }
}

/// Calls act(); whatever it throws has to say something.
template <class Act>
bool succeeds(Act act) {
    try {
        act();
        return true;
    } catch (std::exception const& error) {
        require(error.what()[0] != '\0', "an error without a text");
        return false;
    }
}

Wide positionIn(OpenEndedRange<2, int> const& range, FixedVector<2, int> const& strides, int offset, Wide i, Wide j) {
    return offset + (i - range.min[0]) * strides[0] + (j - range.min[1]) * strides[1];
}

/// An array over indices of a view of two axes, relabelled to those of its target.
void checkArray(Input& input) {
    ExtentK<2, int> subset;
    OpenEndedRange<2, int> range;
    FixedVector<2, int> strides;
    for (int axis = 0; axis < 2; ++axis) {
        subset[axis] = anyExtent(input);
        subset[axis].step = input.flag() ? (input.flag() ? 1 : -1) : subset[axis].step;
        int const count = std::max(subset[axis].count, 1);
        range.min[axis] = input.flag() ? atSomePlace(input, count) : input.anyInt();
        range.max[axis] = input.flag() ? atSomePlace(input, count) : input.anyInt();
        strides[axis] = input.flag() ? input.between(-9, 9) : input.anyInt();
    }
    int const offset = input.anyInt();
    ArrayViewConverter<2> const toTarget{ArraySubsetDef<2>(subset)};
    ArrayConstRef<2> const array(range, strides, nullptr, offset, typeid(short), 16);
    ArrayConstRef<2> converted;
    bool const isConverted = succeeds([&] { toTarget.convertArray(array, &converted); });
    if (!isConverted || range.isEmpty() || !isProper(subset[0]) || !isProper(subset[1])) {
        return;
    }
    require(converted.range().pointCount() == range.pointCount(), "another size", array, converted);
    for (int round = 0; round < 4; ++round) {
        Wide const i = range.min[0] + (round & 1) * (range.size(0) - 1);
        Wide const j = range.min[1] + (round >> 1) * (range.size(1) - 1);
        Wide const position = positionIn(
            converted.range(), converted.strides(), converted.bufferOffset(), indexAt(subset[0], i),
            indexAt(subset[1], j));
        require(position == positionIn(range, strides, offset, i, j), "another sample", subset, array, converted);
    }
}

/// Anything converted through any view.
void checkConversions(Input& input) {
    ViewPtr const view = anyView(input, 3);
    bool const isInverse = input.flag();
    ArrayViewConverter<2> const converter(view, isInverse);
    require(converter.isIdentity() == (CompleteViewDef::Cast(view.get()) != nullptr), "identity", *view);
    OpenEndedRange<2, int> box;
    ExtentK<2, int> extents;
    for (int axis = 0; axis < 2; ++axis) {
        box.min[axis] = input.anyInt();
        box.max[axis] = input.anyInt();
        extents[axis] = anyExtent(input);
    }
    auto const there = converter.convert(extents);
    require(converter.inverse().inverse().convert(extents) == there, "there and back and there", *view);
    static_cast<void>(converter.inverse().convert(there));
    auto const around = converter.convert(box);
    IndexSet<2, int> set;
    set.add(box);
    require(
        converter.isIdentity() || box.isEmpty() || converter.convert(set).size() == around.pointCount(), "set", box);
    ArrayConstRef<2> const array(box, {input.anyInt(), input.anyInt()}, nullptr, input.anyInt(), typeid(short), 16);
    succeeds([&] { static_cast<void>(converter.convert(array)); });
}

/// Lends one block, whatever is asked for, and insists on being asked for what it has.
std::unique_ptr<IBufferAccessor> lender(Index const& size, ArrayInfo const& block) {
    return std::make_unique<Testing::LendingAccessor>(size, [=](Index position, auto access, BufferHandle& handle) {
        require(OpenEndedRange<4, int>::OfSize(size).contains(position), "asked for what is not there", position, size);
        handle.update(nullptr, block, access);
    });
}

ArrayInfo anyBlock(Input& input, Index const& size) {
    ArrayInfo block;
    for (int axis = 0; axis < 4; ++axis) {
        bool const isInside = input.flag();
        block.range.min[axis] = isInside ? 0 : input.anyInt();
        block.range.max[axis] = isInside ? size[axis] : input.anyInt();
        block.strides[axis] = input.flag() ? input.between(-9, 9) : input.anyInt();
    }
    block.offset = input.flag() ? input.between(0, 9) : input.anyInt();
    return block;
}

Wide positionIn(ArrayInfo const& info, auto const& indexAlong) {
    Wide position = info.offset;
    for (int axis = 0; axis < 4; ++axis) {
        position += (indexAlong(axis) - info.range.min[axis]) * info.strides[axis];
    }
    return position;
}

void checkBlock(IBufferAccessor& filter, ExtentK<4, int> const& subset, ArrayInfo const& block, Input& input) {
    Index asked;
    for (int axis = 0; axis < 4; ++axis) {
        require(filter.getSize()[axis] == subset[axis].count, "size", subset, filter.getSize());
        asked[axis] = atSomePlace(input, subset[axis].count);
    }
    BufferHandle handle;
    if (!succeeds([&] { filter.getBuffer(asked, AdtEnums::Read, handle); }) || !handle.contains(asked)) {
        return;
    }
    ArrayInfo const info = handle.infoSnapshot();
    for (bool const isLast : {false, true}) {
        auto const here = [&](int axis) {
            return isLast ? Wide{info.range.max[axis]} - 1 : Wide{info.range.min[axis]};
        };
        auto const below = [&](int axis) { return indexAt(subset[axis], here(axis)); };
        for (int axis = 0; axis < 4; ++axis) {
            require(here(axis) >= 0 && here(axis) < subset[axis].count, "outside the subset", subset, block, info);
            require(
                block.range.min[axis] <= below(axis) && below(axis) < block.range.max[axis], "outside the block",
                subset, block, info);
        }
        require(positionIn(info, here) == positionIn(block, below), "another sample", subset, block, info);
    }
}

/// Whatever the hints, the blocks and the limits are, a cache shows what its target lends.
void checkCache(Index const& size, ArrayInfo const& block, Input& input) {
    auto const cache =
        BulkView::Filters::CacheFilter::Apply(lender(size, block), input.anyInt(), input.anyInt(), input.anyInt());
    for (int requests = input.between(0, 5); requests > 0; --requests) {
        Index asked;
        for (int axis = 0; axis < 4; ++axis) {
            asked[axis] = atSomePlace(input, size[axis]);
        }
        BufferHandle handle;
        auto const access = static_cast<AdtEnums::Access>(input.anyInt());
        cache->getBuffer(asked, access, handle);
        require(handle.infoSnapshot() == block, "another block", block, handle.infoSnapshot());
        require(handle.isCompatibleAccess(access), "lent for something else", access);
    }
}

/// Reads a view of no memory at any index, and sends it hints about any box.
void checkView(std::unique_ptr<IBufferAccessor> chain, Input& input) {
    Index const size = chain->getSize();
    BulkView::Typed3dRwView<float> view(std::move(chain));
    for (int accesses = input.between(0, 5); accesses > 0; --accesses) {
        FixedVector<3, int> const index(input.anyInt(), input.anyInt(), input.anyInt());
        bool isInside = true;
        for (int axis = 0; axis < 3; ++axis) {
            isInside = isInside && 0 <= index[axis] && index[axis] < size[axis];
        }
        try {
            require(std::isnan(view.get(index)), "a sample out of nowhere", index);
        } catch (BulkView::ViewBoundsException const&) {
            require(!isInside, "refused an index inside", index, size);
        } catch (std::length_error const&) {
            // The block lies too far from its buffer.
        }
        succeeds([&] { view.set(index, 1.0f); });
        view.setPrefetchHint(index, {input.anyInt(), input.anyInt(), input.anyInt()});
    }
}

void checkFilters(Input& input) {
    Index size;
    ExtentK<4, int> subset;
    bool isInside = true;
    for (int axis = 0; axis < 4; ++axis) {
        size[axis] = input.flag() ? input.between(1, 9) : input.anyInt();
        subset[axis] = input.flag() ? Extent{0, 1, std::max(size[axis], 1)} : anyExtent(input);
        Wide const last = indexAt(subset[axis], Wide{subset[axis].count} - 1);
        isInside = isInside && subset[axis].count > 0 && subset[axis].origin >= 0 && subset[axis].origin < size[axis] &&
                   last >= 0 && last < size[axis] && (subset[axis].step != 0 || subset[axis].count == 1);
    }
    ArrayInfo const block = anyBlock(input, size);
    std::unique_ptr<IBufferAccessor> filter;
    bool const isMade =
        succeeds([&] { filter = BulkView::Filters::SubsetFilter::MakeSubset(lender(size, block), subset); });
    require(isMade == isInside, "a subset accepted or refused", subset, size);
    // The whole of a target is shown by the target itself.
    if (isMade && dynamic_cast<BulkView::Filters::SubsetFilter*>(filter.get()) != nullptr) {
        checkBlock(*filter, subset, block, input);
    }
    ViewPtr const view =
        input.between(0, 9) == 0 ? boost::make_shared<Testing::ForeignView const>() : anyView(input, 2);
    if (succeeds([&] { filter = BulkView::Filters::FilterFactory::MakeView(lender(size, block), *view); })) {
        Index asked;
        Index const shown = filter->getSize();
        for (int axis = 0; axis < 4; ++axis) {
            asked[axis] = shown[axis] > 0 ? atSomePlace(input, shown[axis]) : 0;
        }
        BufferHandle handle;
        if (OpenEndedRange<4, int>::OfSize(shown).contains(asked)) {
            succeeds([&] { filter->getBuffer(asked, AdtEnums::Read, handle); });
        }
        if (!OpenEndedRange<4, int>::OfSize(shown).isEmpty()) {
            checkView(std::move(filter), input);
        }
    }
    if (!OpenEndedRange<4, int>::OfSize(size).isEmpty()) {
        checkCache(size, block, input);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace Quorvel::Dravik::Adt::Fuzz;
    Input input(data, size);
    auto const first = anyExtent(input);
    auto const second = anyExtent(input);
    checkMappings(first, second, input);
    checkComposition(first, second, input);
    checkArray(input);
    checkConversions(input);
    checkFilters(input);
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
#include "dravik/command/commands.h"

#include "dravik/adt/bulkview/regions/blocks.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/core/shared_array.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>

namespace Quorvel::Dravik::Command {

namespace {

using Adt::ExtentK;
using Adt::FixedVector;
using Adt::OpenEndedRange;
using Adt::SharedArray;

struct Difference {
    std::int64_t count = 0;
    double largest = -1;
    FixedVector<4, int> where;
    double first = 0, second = 0;
};

// What differs between two numbers; infinite between a number and none.
double apart(double first, double second) {
    if (std::isnan(first) && std::isnan(second)) {
        return 0;
    }
    double const distance = first == second ? 0 : std::abs(first - second);
    return std::isnan(distance) ? HUGE_VAL : distance;
}

// 64-bit integers are compared as they are: a double does not hold all of them.
template <class T>
void compareBox(
    Adt::BulkView::IBufferAccessor& first, Adt::BulkView::IBufferAccessor& second, OpenEndedRange<4, int> const& box,
    Adt::BulkView::TransferOptions const& options, Difference& difference) {
    auto const ours = SharedArray<4>::Make<T>(box), theirs = SharedArray<4>::Make<T>(box);
    Adt::BulkView::readRegion(first, ExtentK<4, int>(box), ours, options);
    Adt::BulkView::readRegion(second, ExtentK<4, int>(box), theirs, options);
    auto const* one = reinterpret_cast<T const*>(ours.data());
    auto const* other = reinterpret_cast<T const*>(theirs.data());
    for (std::int64_t place = 0, count = box.pointCount(); place < count; ++place) {
        T const left = one[place], right = other[place];
        if (left == right) {
            continue;
        }
        double const distance = apart(static_cast<double>(left), static_cast<double>(right));
        if (distance == 0 && left != left) {
            continue;
        }
        ++difference.count;
        if (distance > difference.largest) {
            difference.largest = distance;
            difference.first = static_cast<double>(left);
            difference.second = static_cast<double>(right);
            std::int64_t rest = place;
            for (int axis = 3; axis >= 0; --axis) {
                difference.where[axis] = box.min[axis] + static_cast<int>(rest % box.size(axis));
                rest /= box.size(axis);
            }
        }
    }
}

std::string indexText(FixedVector<4, int> const& index, std::size_t axes) {
    std::string text;
    for (std::size_t axis = 0; axis < axes; ++axis) {
        text.append(text.empty() ? "" : ",").append(std::to_string(index[static_cast<int>(axis)]));
    }
    return "(" + text + ")";
}

}  // namespace

bool compare(std::string const& first, std::string const& second, Session& session) {
    Opened ours = open(inputOf(first, session), session);
    Opened theirs = open(inputOf(second, session), session);
    if (ours.shape != theirs.shape) {
        std::cout << first << " " << second << " differ: shapes " << shapeText(ours.shape) << " and "
                  << shapeText(theirs.shape) << '\n';
        return false;
    }
    auto& a = *ours.data.chain;
    auto& b = *theirs.data.chain;
    auto options = session.transfer("compare");
    auto const progress = std::exchange(options.progress, {});
    options.workers = 1;
    bool const areLong = *ours.sampleType == typeid(std::int64_t) && *theirs.sampleType == typeid(std::int64_t);
    std::int64_t const budget = std::max<std::int64_t>(options.byteBudget / 16, 1);
    Difference difference;
    std::int64_t done = 0;
    for (auto const& box : Adt::BulkView::Blocks(Adt::BulkView::traitsOf(a), ours.box(), budget)) {
        session.throwIfStopped();
        areLong ? compareBox<std::int64_t>(a, b, box, options, difference)
                : compareBox<double>(a, b, box, options, difference);
        progress(done += box.pointCount(), ours.box().pointCount());
    }
    if (difference.count > 0) {
        std::cout << first << " " << second << " differ: " << difference.count << " of " << ours.box().pointCount()
                  << " samples, at most by " << difference.largest << " at "
                  << indexText(difference.where, ours.shape.size()) << ": " << difference.first << " and "
                  << difference.second << '\n';
    }
    return difference.count == 0;
}

}  // namespace Quorvel::Dravik::Command

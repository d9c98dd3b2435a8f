// SPDX-License-Identifier: Apache-2.0
// What holds for every value type of the library: different values print differently, equal ones hash alike. The list
// follows adt.h.

#include "dravik/adt/adt.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Quorvel::Dravik::Adt {
namespace {

template <class T>
concept Hashable = requires(T const& value) {
    { std::hash<T>()(value) } -> std::same_as<std::size_t>;
};

template <class T>
std::string printed(T const& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

/// Values that are pairwise different and, after them, further ones that are equal to the first in another guise.
template <class T>
struct Sample {
    std::vector<T> different;
    std::vector<T> equalToFirst;
};

template <class T>
struct Values;

using Subset = BulkDef::View::ArraySubsetDef<2>;
using Converter = BulkDef::View::ArrayViewConverter<2>;
template <>
struct Values<Converter> {
    static Sample<Converter> get() {
        ExtentImpl<int> const axis{3, 2, 5};
        Subset const view({axis, axis});
        BulkDef::View::CompleteViewDef const all;
        return {{Converter(view), Converter(all)}, {Converter(view.clone())}};  // all subsets hash alike
    }
};

using Info = BulkView::BufferHandle::ArrayInfo;
template <>
struct Values<Info> {
    static Sample<Info> get() { return {{{}, {{{}, {1, 0, 0, 0}}, {}, 0}, {{}, {1, 0, 0, 0}, 0}, {{}, {}, 1}}, {{}}}; }
};

template <>
struct Values<ScaleOffset> {
    static Sample<ScaleOffset> get() { return {{{1, 0}, {2, 0}, {1, 1}}, {{1 + 1e-9, 1e-9}}}; }
};

template <class Byte>
struct Values<BasicArrayRef<2, Byte>> {
    using Array = BasicArrayRef<2, Byte>;
    static Sample<Array> get() {
        auto const array = [](int max, int stride, int offset, std::type_info const& type) {
            return Array({{0, 0}, {3, max}}, {stride, 1}, nullptr, offset, type, 32);
        };
        Array relabelled = array(4, 4, 0, typeid(int));
        relabelled.setStrides({2, 1});
        relabelled.setStrides({4, 1});
        Array elsewhere = relabelled;
        static char memory[1];
        elsewhere.setData(memory);
        Array const moved({{1, 0}, {3, 4}}, {4, 1}, nullptr, 0, typeid(int), 32);
        return {
            {array(4, 4, 0, typeid(int)), array(3, 4, 0, typeid(int)), array(4, 5, 0, typeid(int)),
             array(4, 4, 1, typeid(int)), array(4, 4, 0, typeid(float)), elsewhere, moved, Array()},
            {relabelled}};
    }
};

template <>
struct Values<ExtentImpl<int>> {
    static Sample<ExtentImpl<int>> get() { return {{{5, 1, 1}, {5, 1, 2}, {5, 2, 2}, {6, 1, 1}, {}}, {{5, 9, 1}}}; }
};

template <>
struct Values<ExtentK<2, int>> {
    static Sample<ExtentK<2, int>> get() {
        ExtentImpl<int> const one{5, 1, 1}, sameOne{5, 3, 1}, two{5, 2, 2};
        using Extent = ExtentK<2, int>;
        return {{Extent(one, two), Extent(two, one), Extent(one, one), Extent()}, {Extent(sameOne, two)}};
    }
};

template <class T>
struct Values<FixedVector<2, T>> {
    static Sample<FixedVector<2, T>> get() { return {{{T(0), T(0)}, {T(1), T(0)}, {T(0), T(1)}}, {{-T(0), T(0)}}}; }
};

template <>
struct Values<IndexSet<2, int>> {
    using Set = IndexSet<2, int>;
    static Sample<Set> get() {
        Set pieces(Set::Point(1, 0));
        pieces.add(Set::Point(0, 1));
        pieces.add(Set::Box{{0, 0}, {1, 1}});
        pieces.add(Set::Point(1, 1));
        Set other(Set::Box{{0, 0}, {2, 2}});
        other.remove(Set::Point(1, 1));
        return {{Set::Box{{0, 0}, {2, 2}}, Set(), other, Set::Point(1, 1)}, {pieces}};
    }
};

template <template <int, class> class Range, int N, class T>
struct Values<Range<N, T>> {
    static Sample<Range<N, T>> get() {
        using Corner = FixedVector<N, T>;
        Corner const low = Corner::Filled(T(0)), high = Corner::Filled(T(2));
        return {{{low, high}, {low, low}, {high, high}, {high, low}}, {{Corner::Filled(-T(0)), high}}};
    }
};
template <>
struct Values<ClosedRange<1, double>> {
    static Sample<ClosedRange<1, double>> get() { return {{{0, 2}, {0, 0}, {2, 2}}, {{-0.0, 2}}}; }
};

template <>
struct Values<SharedArray<2>> {
    static Sample<SharedArray<2>> get() {
        auto const array = SharedArray<2>::Make<short>({{0, 0}, {2, 3}});
        return {{array, SharedArray<2>(), SharedArray<2>::Make<int>({{0, 0}, {2, 3}})}, {SharedArray<2>(array, {})}};
    }
};

template <>
struct Values<Histogram> {
    static Sample<Histogram> get() {
        Histogram counted(Histogram::fixed, 0, 10, 5);
        Histogram const untouched = counted;
        counted.add(3);
        Histogram const flexible;
        return {{untouched, counted, flexible}, {Histogram(Histogram::fixed, 10, 0, 5)}};
    }
};

template <class T>
class ValueType : public testing::Test {};

using ValueTypes = testing::Types<
    Converter, Info, ScaleOffset, BasicArrayRef<2, char const>, BasicArrayRef<2, char>, ExtentImpl<int>,
    ExtentK<2, int>, FixedVector<2, int>, FixedVector<2, float>, IndexSet<2, int>, OpenEndedRange<1, int>,
    OpenEndedRange<3, int>, ClosedRange<1, double>, ClosedRange<2, float>, SharedArray<2>, Histogram>;
TYPED_TEST_SUITE(ValueType, ValueTypes);

TYPED_TEST(ValueType, PrintsAndHashesAsItCompares) {
    // Closeness is not transitive, so no hash can respect it.
    static_assert(Hashable<TypeParam> != std::same_as<TypeParam, ScaleOffset>);
    auto const [different, equalToFirst] = Values<TypeParam>::get();
    auto const expectSameHash = [](TypeParam const& left, TypeParam const& right, bool same) {
        if constexpr (Hashable<TypeParam>) {
            std::hash<TypeParam> const hash;
            EXPECT_EQ(hash(left) == hash(right), same) << left << " and " << right;
        }
    };
    for (auto left = different.begin(); left != different.end(); ++left) {
        for (auto right = std::next(left); right != different.end(); ++right) {
            EXPECT_FALSE(*left == *right);
            EXPECT_NE(printed(*left), printed(*right));
            expectSameHash(*left, *right, false);
        }
    }
    for (TypeParam const& other : equalToFirst) {
        EXPECT_EQ(different.front(), other);
        expectSameHash(different.front(), other, true);
    }
}

TEST(ValueTypes, PrintAsTheirHeadersSay) {
    char memory[4];
    ArrayRef<2> const array({{2, 0}, {5, 4}}, {4, 1}, memory, 3, typeid(short), 16);
    IndexSet<2, int> frame(OpenEndedRange<2, int>{{0, 0}, {4, 4}});
    frame.remove(FixedVector<2, int>(1, 1));
    struct Row {
        std::string text;
        char const* expected;
    };
    Row const rows[] = {
        {printed(FixedVector<3, int>(1, -2, 3)), "(1,-2,3)"},
        {printed(ExtentK<2, int>(ExtentImpl<int>{3, 1, 4}, ExtentImpl<int>{5, -2, 6})), "3:1:4 x 5:-2:6"},
        {printed(OpenEndedRange<2, int>{{0, 1}, {4, 3}}), "[0,4)x[1,3)"},
        {printed(ClosedRange<1, float>{-0.5f, 2}), "[-0.5,2]"},
        {printed(ClosedRange<2, int>{{0, 1}, {4, 3}}), "[0,4]x[1,3]"},
        {printed(array), "short[2,5)x[0,4) strides (4,1) offset 3"},
        {printed(ArrayConstRef<1>()), "void[0,0) strides (0) offset 0, no memory"},
        {printed(frame), "{[0,1)x[0,4) [2,4)x[0,4) [1,2)x[0,1) [1,2)x[2,4)}"},
        {printed(IndexSet<2, int>()), "{}"},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(row.text, row.expected);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt

// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/missing_value_converter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

template <class T>
void expectMissingThereAndBack() {
    using testing::ElementsAre;
    T const nan = std::numeric_limits<T>::quiet_NaN(), infinity = std::numeric_limits<T>::infinity();
    T const low = static_cast<T>(-1e34), in[] = {1, low, low * 2, nan, -infinity, 0, std::nextafter(low, T{0})};
    T out[14] = {};
    MissingValueConverter::toNotANumber(typeid(T), -1e34, -1e34)->convertContiguous(in, 0, out, 0, 7);
    auto const isNan = testing::NanSensitiveDoubleEq(nan);
    EXPECT_THAT(std::vector<double>(out, out + 7), ElementsAre(1, isNan, low * 2, isNan, -infinity, 0, in[6]));
    MissingValueConverter::toNotANumber(typeid(T), -infinity, -1e33)->convertStrided(in, 6, -1, out, 0, 2, 7);
    EXPECT_THAT(
        (std::vector<double>{out[0], out[2], out[4], out[6], out[8], out[10], out[12]}),
        ElementsAre(isNan, 0, isNan, isNan, isNan, isNan, 1));
    MissingValueConverter::fromNotANumber(typeid(T), -1e34)->convertStrided(out, 0, 2, out, 0, 2, 7);
    EXPECT_THAT((std::vector<double>{out[0], out[2], out[10], out[12]}), ElementsAre(low, 0, low, 1));
}

TEST(MissingValueConverter, GoesThereAndBack) {
    expectMissingThereAndBack<float>();
    expectMissingThereAndBack<double>();
}

TEST(MissingValueConverter, RefusesWhatCannotBeMissing) {
    using testing::ThrowsMessage;
    EXPECT_THAT(
        [] { MissingValueConverter::toNotANumber(typeid(short), 0, 0); },
        ThrowsMessage<std::invalid_argument>(
            "[MissingValueConverter::toNotANumber] Invalid argument: 'short' has no not-a-number."));
    EXPECT_THAT(
        [] { MissingValueConverter::toNotANumber(typeid(float), 2, 1); },
        ThrowsMessage<std::invalid_argument>(
            "[MissingValueConverter::toNotANumber] Invalid argument: no value lies between 2 and 1."));
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

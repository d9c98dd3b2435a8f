// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/failure_loop.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using Testing::callOut;
using Testing::Fails;
using Testing::isUnchanged;
using Testing::refused;
using Testing::shownAs;

using ConverterPtr = IValueConverter::ConstPtr;
using Converters::CompositeConverter;
using Factory = Converters::ValueConverterFactory;
using Wide = FixedVector<4, int>;  // of 128 bits, so that a chain over it does not fit the stack

// A host's converter between float and Wide, which begins with it. May fail in whatever it is asked.
template <class In, class Out>
struct HostConverter : IValueConverter {
    std::type_info const& getInputType() const override { return callOut("getInputType"), typeid(In); }
    std::type_info const& getOutputType() const override { return callOut("getOutputType"), typeid(Out); }
    void convert(void const* in, void* out) const override { convertStrided(in, 0, 1, out, 0, 1, 1); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        for (int i = 0; i < count; ++i) {
            i % 100 == 0 ? callOut("convert") : void();
            void* const to = static_cast<Out*>(out) + outIndex + i * outStride;
            std::memcpy(to, static_cast<In const*>(in) + inIndex + i * inStride, sizeof(float));
        }
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }
};

struct Conversions {
    Conversions() { std::iota(in.begin(), in.end(), 0.0f); }
    std::string shown() const { return shownAs(out[0], TypeRegister::sizeofTypeInBits(typeid(int))); }

    ConverterPtr widening = boost::make_shared<HostConverter<float, Wide>>();
    ConverterPtr narrowing = boost::make_shared<HostConverter<Wide, float>>();
    ConverterPtr chain = CompositeConverter::getCompositeConverter(widening, narrowing, widening);
    std::vector<float> in = std::vector<float>(2000), out = in;
};

constexpr Testing::FailureScenario<Conversions> kConversions[] = {
    {"choosing converters", Fails::kAllocations,
     [](Conversions&) {
         for (auto const* from : {&typeid(unsigned char), &typeid(char), &typeid(unsigned short), &typeid(short)}) {
             Factory::getTypeConverter(*from, typeid(float), ScaleOffset(2, 0), /*copyIfSame=*/true);
             Factory::getTypeConverter(typeid(float), *from, ScaleOffset(2, 0), /*copyIfSame=*/false);
             auto const plain = Factory::getTypeConverter(*from, typeid(int));
             EXPECT_EQ(Factory::appendTypeConverter(plain, /*withInverse=*/true, *from)->getOutputType(), *from);
         }
     },
     isUnchanged},
    {"putting conversions before and behind a host's", Fails::kBoth,
     [](Conversions& s) {
         EXPECT_EQ(Factory::prependTypeConverter(typeid(short), {2, 1}, s.widening)->getInputType(), typeid(short));
         auto const chain = Factory::appendTypeConverter(s.narrowing, /*withInverse=*/true, typeid(short), {2, 1});
         EXPECT_EQ(chain->getInputType(), typeid(Wide));
     },
     isUnchanged},
    {"refusing conversions", Fails::kBoth,
     [](Conversions& s) {
         refused<Exceptions::NotImplementedException>([] { Factory::getTypeConverter(typeid(float), typeid(int)); });
         refused<Exceptions::NotImplementedException>([] { Factory::getCopyConverter(65); });
         refused<std::invalid_argument>([] { Factory::getCopyConverter(7); });
         refused<std::invalid_argument>(
             [&] { CompositeConverter::getCompositeConverter(s.widening, s.widening, nullptr); });
         refused<std::runtime_error>([] { TypeRegister::sizeofTypeInBits(typeid(Conversions)); });
         refused<std::invalid_argument>([] { TypeRegister::registerPrimitiveType(typeid(int), 33); });
         refused<std::invalid_argument>([] { ScaleOffset::getRangeTransform({1.0, 1.0}, {0.0, 1.0}); });
     },
     isUnchanged},
    {"converting through the heap", Fails::kBoth,
     [](Conversions& s) {
         s.chain->convertContiguous(s.in.data(), 0, s.out.data(), 0, 2000);
         s.chain->convertStrided(s.in.data(), 0, 2, s.out.data(), 0, 2, 1000);
         EXPECT_EQ(s.out, s.in);
     },
     // In chunks of 1024 values: what went before a failure is there, and nothing behind it was touched.
     [](Conversions& s, bool) { EXPECT_TRUE(s.out[1500] == 0.0f || s.out[1000] == s.in[1000]); }},
    {"converting one value", Fails::kCalls, [](Conversions& s) { s.chain->convert(&s.in[7], &s.out[0]); }, isUnchanged},
    {"printing a transform", Fails::kCalls, [](Conversions&) { Testing::HostStream() << ScaleOffset(2, 1); }},
};

TEST(Converters, SurviveEveryFailure) {
    struct Registered {};
    Testing::failUntilMade("the table of types", [] { TypeRegister::isTypeRegisted(typeid(int)); });
    Testing::failUntilMade("registering a type", [] { TypeRegister::registerPrimitiveType(typeid(Registered), 24); });
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(Registered)), 24);
    Testing::failInEach(kConversions);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

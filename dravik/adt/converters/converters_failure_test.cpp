// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/composite_converter.h"
#include "dravik/adt/converters/int1.h"
#include "dravik/adt/converters/scale_offset.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"

#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/testing/failure_loop.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using ConverterPtr = IValueConverter::ConstPtr;
using Factory = ValueConverterFactory;
using Testing::callOut;
using Testing::Fails;
using Testing::refused;

// A type of 128 bits, so that a chain over it does not fit the stack.
using Wide = FixedVector<4, int>;

// A host's converter between float and Wide, which begins with it. May fail in whatever it is asked.
template <class In, class Out>
class HostConverter : public IValueConverter {
  public:
    std::type_info const& getInputType() const override { return callOut("getInputType"), typeid(In); }
    std::type_info const& getOutputType() const override { return callOut("getOutputType"), typeid(Out); }
    void convert(void const* in, void* out) const override { convertStrided(in, 0, 1, out, 0, 1, 1); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        for (int i = 0; i < count; ++i) {
            if (i % 100 == 0) {
                callOut("convert");
            }
            void* const to = static_cast<Out*>(out) + outIndex + i * outStride;
            std::memcpy(to, static_cast<In const*>(in) + inIndex + i * inStride, sizeof(float));
        }
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }
};

struct Scene {
    Scene() {
        std::generate(in.begin(), in.end(), [n = 0.0f]() mutable { return n++; });
    }

    ConverterPtr widening = boost::make_shared<HostConverter<float, Wide>>();
    ConverterPtr narrowing = boost::make_shared<HostConverter<Wide, float>>();
    ConverterPtr chain = CompositeConverter::getCompositeConverter(widening, narrowing, widening);
    std::vector<float> in = std::vector<float>(2000), out = in;
};

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"choosing converters", Fails::kAllocations,
     [](Scene& s) {
         ScaleOffset const twice(2, 0);
         for (auto const* from : {&typeid(unsigned char), &typeid(char), &typeid(unsigned short), &typeid(short)}) {
             auto const scaled = Factory::getTypeConverter(*from, typeid(float), twice, /*copyIfSame=*/true);
             auto const back = Factory::getTypeConverter(typeid(float), *from, twice, /*copyIfSame=*/false);
             auto const plain = Factory::getTypeConverter(*from, typeid(int));
             for (auto const& each : {scaled, back, plain, Factory::getTypeConverter(typeid(float), *from)}) {
                 each->convertStrided(s.in.data(), 0, 2, s.out.data(), 0, 2, 10);
             }
             EXPECT_EQ(Factory::appendTypeConverter(plain, /*withInverse=*/true, *from)->getOutputType(), *from);
         }
     }},
    {"putting conversions before and behind a host's", Fails::kBoth,
     [](Scene& s) {
         EXPECT_EQ(Factory::prependTypeConverter(typeid(short), {2, 1}, s.widening)->getInputType(), typeid(short));
         auto const chain = Factory::appendTypeConverter(s.narrowing, /*withInverse=*/true, typeid(short), {2, 1});
         EXPECT_EQ(chain->getInputType(), typeid(Wide));
     }},
    {"refusing conversions", Fails::kBoth,
     [](Scene& s) {
         refused<Exceptions::NotImplementedException>([] { Factory::getTypeConverter(typeid(float), typeid(double)); });
         refused<Exceptions::NotImplementedException>([] { Factory::getCopyConverter(65); });
         refused<std::invalid_argument>([] { Factory::getCopyConverter(7); });
         refused<std::invalid_argument>(
             [&] { CompositeConverter::getCompositeConverter(s.widening, s.widening, nullptr); });
         refused<std::runtime_error>([] { TypeRegister::sizeofTypeInBits(typeid(Scene)); });
         refused<std::invalid_argument>([] { TypeRegister::registerPrimitiveType(typeid(int), 33); });
         refused<std::invalid_argument>([] { ScaleOffset::getRangeTransform({1.0, 1.0}, {0.0, 1.0}); });
     },
     [](Scene&, bool) { EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(int)), 32); }},
    {"converting through the heap", Fails::kBoth,
     [](Scene& s) {
         s.chain->convertContiguous(s.in.data(), 0, s.out.data(), 0, 2000);
         s.chain->convertStrided(s.in.data(), 0, 2, s.out.data(), 0, 2, 1000);
     },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(!completed || s.out == s.in);
         // In chunks of 1024 values: what went before a failure is there, and nothing behind it was touched.
         EXPECT_TRUE(s.out[1500] == 0.0f || s.out[1000] == s.in[1000]);
     }},
    {"converting one value", Fails::kCalls, [](Scene& s) { s.chain->convert(&s.in[7], &s.out[0]); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.out[0], completed ? 7.0f : 0.0f); }},
    {"printing a transform", Fails::kCalls, [](Scene&) { Testing::HostStream() << ScaleOffset(2, 1); }},
    {"converting on the stack", Fails::kNothing,
     [](Scene& s) {
         for (int const bits : {1, 8, 16, 32, 64}) {
             ConverterPtr const copy = Factory::getCopyConverter(bits);
             EXPECT_EQ(copy.get(), &Factory::getCopyConverterRef(bits));
             copy->convertContiguous(s.in.data(), 0, s.out.data(), 0, 1000);
             copy->convertStrided(s.in.data(), 0, 0, s.out.data(), 0, 1, 1000);
             CompositeConverter::ChainedConverter(copy, copy, copy)
                 .convertContiguous(s.in.data(), 0, s.out.data(), 0, 1000);
         }
         EXPECT_EQ(Factory::getTypeConverter(typeid(float), typeid(float)), nullptr);
         EXPECT_TRUE(TypeRegister::isTypeRegisted(typeid(Int1)) && !TypeRegister::isTypeRegisted(typeid(Scene)));
         EXPECT_EQ(ScaleOffset::getRangeTransform({0.0, 1.0}, {1.0, 3.0}).convertDouble(1), 3);
     }},
};

TEST(Converters, SurviveEveryFailure) {
    struct Registered {};
    Testing::failUntilMade("the table of types", [] { TypeRegister::isTypeRegisted(typeid(int)); });
    Testing::failUntilMade("registering a type", [] { TypeRegister::registerPrimitiveType(typeid(Registered), 24); });
    EXPECT_EQ(TypeRegister::sizeofTypeInBits(typeid(Registered)), 24);
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

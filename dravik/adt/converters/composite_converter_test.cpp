// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/converters/composite_converter.h"

#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Quorvel::Dravik::Adt::Converters {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;
using ConverterPtr = IValueConverter::ConstPtr;
using Factory = ValueConverterFactory;

// The buffers of a call and what converters were asked to do with them.
struct Log {
    char in = 0;
    short out = 0;
    std::string calls;
};

// Writes down how it is called and converts nothing.
class Recorder final : public IValueConverter {
  public:
    Recorder(char const* name, Log& log, std::type_info const& in, std::type_info const& out)
        : name_(name), log_(log), in_(in), out_(out) {}

    std::type_info const& getInputType() const override { return in_; }
    std::type_info const& getOutputType() const override { return out_; }
    void convert(void const* in, void* out) const override { write(in, "", out, ""); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        auto const place = [](int index, int stride) { return std::to_string(index) + "+" + std::to_string(stride); };
        write(in, place(inIndex, inStride), out, place(outIndex, outStride) + " x" + std::to_string(count));
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        write(in, std::to_string(inIndex), out, std::to_string(outIndex) + " x" + std::to_string(count));
    }

  private:
    void write(void const* in, std::string const& from, void const* out, std::string const& to) const {
        auto const nameOf = [this](void const* buffer) {
            return buffer == &log_.in ? "in" : buffer == &log_.out ? "out" : "scratch";
        };
        log_.calls += std::string(name_) + ' ' + nameOf(in) + from + " > " + nameOf(out) + to + '\n';
    }

    char const* name_;
    Log& log_;
    std::type_info const& in_;
    std::type_info const& out_;
};

ConverterPtr recorder(Log& log, char const* name, std::type_info const& in, std::type_info const& out) {
    return boost::make_shared<Recorder>(name, log, in, out);
}

TEST(ChainedConverter, RunsChunkByChunk) {
    struct Row {
        char const* name;
        bool withInverse;
        void (*act)(IValueConverter const& chain, char const* in, short* out);
        char const* calls;
    };
    constexpr Row kRows[] = {
        {"OneValue", true, [](auto& chain, auto in, auto out) { chain.convert(in, out); },
         "inverse out > scratch\nfirst in > scratch\nsecond scratch > out\n"},
        {"Strided", true, [](auto& chain, auto in, auto out) { chain.convertStrided(in, 5000, -2, out, 7, 3, 1500); },
         "inverse out7+3 > scratch0+1 x1024\nfirst in5000+-2 > scratch0+1 x1024\nsecond scratch0+1 > out7+3 x1024\n"
         "inverse out3079+3 > scratch0+1 x476\nfirst in2952+-2 > scratch0+1 x476\n"
         "second scratch0+1 > out3079+3 x476\n"},
        {"Contiguous", false, [](auto& chain, auto in, auto out) { chain.convertContiguous(in, 3, out, 9, 2500); },
         "first in3 > scratch0 x1024\nsecond scratch0 > out9 x1024\nfirst in1027 > scratch0 x1024\n"
         "second scratch0 > out1033 x1024\nfirst in2051 > scratch0 x452\nsecond scratch0 > out2057 x452\n"},
        {"ContiguousInput", true,
         [](auto& chain, auto in, auto out) { chain.convertStrided(in, 3, 1, out, 9, 0, 1024); },
         "inverse out9+0 > scratch0+1 x1024\nfirst in3 > scratch0 x1024\nsecond scratch0+1 > out9+0 x1024\n"},
        {"ContiguousOutput", true,
         [](auto& chain, auto in, auto out) { chain.convertStrided(in, 3, 2, out, 9, 1, 10); },
         "inverse out9 > scratch0 x10\nfirst in3+2 > scratch0+1 x10\nsecond scratch0 > out9 x10\n"},
        {"NothingIsHandedOnOnce", false,
         [](auto& chain, auto in, auto out) { chain.convertContiguous(in, 0, out, 0, 0); },
         "first in0 > scratch0 x0\nsecond scratch0 > out0 x0\n"},
        {"LessThanNothingToo", false,
         [](auto& chain, auto in, auto out) { chain.convertStrided(in, 0, 2, out, 0, 2, -7); },
         "first in0+2 > scratch0+1 x-7\nsecond scratch0+1 > out0+2 x-7\n"},
    };
    for (Row const& row : kRows) {
        Log log;
        auto const chain = CompositeConverter::getCompositeConverter(
            recorder(log, "first", typeid(char), typeid(int)), recorder(log, "second", typeid(int), typeid(short)),
            row.withInverse ? recorder(log, "inverse", typeid(short), typeid(int)) : nullptr);
        row.act(*chain, &log.in, &log.out);
        EXPECT_EQ(log.calls, row.calls) << row.name;
    }
}

TEST(ChainedConverter, RefusesWhatDoesNotMeet) {
    Log log;
    auto const make = [&](auto const& from, auto const& to) { return recorder(log, "", from, to); };
    auto const charToInt = make(typeid(char), typeid(int)), intToShort = make(typeid(int), typeid(short)),
               shortToInt = make(typeid(short), typeid(int)), charToOther = make(typeid(char), typeid(signed char)),
               otherToInt = make(typeid(signed char), typeid(int));
    constexpr char const* kInverse = "[ChainedConverter] inv_conv2 is not compatible with conv2 value types";
    struct Row {
        char const* name;
        ConverterPtr first, second, inverse;
        char const* message;
    };
    Row const rows[] = {
        {"BothNull", nullptr, nullptr, charToInt, "[ChainedConverter] conv1 is null"},
        {"SecondNull", charToInt, nullptr, charToInt, "[ChainedConverter] conv2 is null"},
        {"DoNotMeet", charToInt, shortToInt, charToInt,
         "[ChainedConverter] conv2's input is not compatible with conv1's output"},
        {"InverseReadsAnother", charToInt, intToShort, charToInt, kInverse},
        {"InverseWritesAnother", charToInt, intToShort, make(typeid(short), typeid(char)), kInverse},
        {"InverseBeforeRegister", charToOther, otherToInt, charToInt, kInverse},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] { CompositeConverter::getCompositeConverter(row.first, row.second, row.inverse); },
            ThrowsMessage<std::invalid_argument>(row.message))
            << row.name;
    }
    EXPECT_THAT(
        [&] { CompositeConverter::getCompositeConverter(charToOther, otherToInt, nullptr); },
        ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: signed char"));
    EXPECT_NO_THROW(CompositeConverter::getCompositeConverter(charToInt, intToShort, shortToInt));
    TypeRegister::registerPrimitiveType(typeid(Recorder), 24);
    EXPECT_NO_THROW(CompositeConverter::getCompositeConverter(
        make(typeid(char), typeid(Recorder)), make(typeid(Recorder), typeid(int)), nullptr))
        << "a type that the caller registered";
}

TEST(ValueConverterFactory, ExtendsConvertersWhereNeeded) {
    auto const toInt = Factory::getTypeConverter(typeid(short), typeid(int));
    EXPECT_EQ(Factory::prependTypeConverter(typeid(short), toInt), toInt);
    EXPECT_EQ(Factory::appendTypeConverter(toInt, /*withInverse=*/true, typeid(int)), toInt);
    EXPECT_EQ(
        Factory::appendTypeConverter(toInt, /*withInverse=*/false, typeid(float))->getOutputType(), typeid(float));
    EXPECT_THAT(
        [&] { Factory::appendTypeConverter(toInt, /*withInverse=*/true, typeid(float)); },
        ThrowsMessage<Exceptions::NotImplementedException>(
            "Not implemented: ValueConverterFactory: Missing basic conversion from 'float' to 'int'."));
    EXPECT_THAT(
        [] { Factory::prependTypeConverter(typeid(short), nullptr); },
        ThrowsMessage<std::invalid_argument>("[ValueConverterFactory::prependTypeConverter] null converter argument"));
    EXPECT_THAT(
        [] { Factory::appendTypeConverter(nullptr, /*withInverse=*/true, typeid(int)); },
        ThrowsMessage<std::invalid_argument>("[ValueConverterFactory::appendTypeConverter] null converter argument"));

    auto const chain = Factory::prependTypeConverter(
        typeid(float), ScaleOffset(2, 1), Factory::getTypeConverter(typeid(unsigned char), typeid(int)));
    float const floats[] = {-4, 20, 2000};
    int ints[3] = {};
    chain->convertContiguous(floats, 0, ints, 0, 3);
    EXPECT_THAT(ints, ElementsAre(0, 41, 255));
    EXPECT_EQ(chain->getInputType(), typeid(float));

    // A first converter that leaves its output alone shows what the inverse put there: y = 2x + 1 and back again.
    Log log;
    auto const silent = recorder(log, "", typeid(char), typeid(short));
    ConverterPtr const kept = Factory::appendTypeConverter(silent, true, typeid(unsigned char), ScaleOffset(2, 1));
    unsigned char const in[] = {0, 0};
    unsigned char out[] = {41, 255};
    kept->convertContiguous(in, 0, out, 0, 2);
    EXPECT_THAT(out, ElementsAre(41, 255));
}

TEST(ChainedConverter, ServesSeveralThreadsAtATime) {
    ConverterPtr const chain = Factory::appendTypeConverter(
        Factory::getTypeConverter(typeid(short), typeid(float), ScaleOffset(0.5, 0), false), false, typeid(short),
        ScaleOffset(2, 0));
    auto const work = [&chain](short first, bool& intact) {
        std::vector<short> in(3000), out = in;
        std::iota(in.begin(), in.end(), first);
        for (int round = 0; round < 50 && intact; ++round) {
            chain->convertContiguous(in.data(), 0, out.data(), 0, 3000);
            intact = out == in;
        }
    };
    bool intact[2] = {true, true};
    std::thread other(work, short{-3000}, std::ref(intact[0]));
    work(short{1000}, intact[1]);
    other.join();
    EXPECT_TRUE(intact[0]);
    EXPECT_TRUE(intact[1]);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

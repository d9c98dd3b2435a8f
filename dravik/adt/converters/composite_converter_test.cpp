#include "dravik/adt/converters/composite_converter.h"

#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <sstream>
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

struct Wide {
    unsigned char bytes[32];
};

// Writes down how it is called, names the buffers it knows, and converts nothing.
class Recorder final : public IValueConverter {
  public:
    struct Log {
        void const* in = nullptr;
        void const* out = nullptr;
        std::vector<std::string> calls;
    };

    Recorder(char const* name, Log& log, std::type_info const& in, std::type_info const& out)
        : name_(name), log_(log), in_(in), out_(out) {}

    std::type_info const& getInputType() const override { return in_; }
    std::type_info const& getOutputType() const override { return out_; }
    void convert(void const* in, void* out) const override { write(in, "", out, ""); }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        write(in, place(inIndex, inStride), out, place(outIndex, outStride) + " x" + std::to_string(count));
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        write(in, std::to_string(inIndex), out, std::to_string(outIndex) + " x" + std::to_string(count));
    }

  private:
    static std::string place(int index, int stride) { return std::to_string(index) + "+" + std::to_string(stride); }
    char const* nameOf(void const* buffer) const {
        return buffer == log_.in ? "in" : buffer == log_.out ? "out" : "scratch";
    }
    void write(void const* in, std::string const& from, void const* out, std::string const& to) const {
        std::ostringstream call;
        call << name_ << " " << nameOf(in) << from << " > " << nameOf(out) << to;
        log_.calls.push_back(call.str());
    }

    char const* name_;
    Log& log_;
    std::type_info const& in_;
    std::type_info const& out_;
};

// A chain of recorders, with or without the inverse, from char over int to short.
struct RecordedChain {
    explicit RecordedChain(bool withInverse) {
        auto const make = [&](char const* name, std::type_info const& from, std::type_info const& to) {
            return boost::make_shared<Recorder>(name, log, from, to);
        };
        chain = CompositeConverter::getCompositeConverter(
            make("first", typeid(char), typeid(int)), make("second", typeid(int), typeid(short)),
            withInverse ? make("inverse", typeid(short), typeid(int)) : ConverterPtr());
        log.in = &in;
        log.out = &out;
    }

    char in = 0;
    short out = 0;
    Recorder::Log log;
    ConverterPtr chain;
};

TEST(ChainedConverter, RunsInverseFirstAndSecondPerChunk) {
    RecordedChain one(/*withInverse=*/true);
    one.chain->convert(&one.in, &one.out);
    EXPECT_THAT(one.log.calls, ElementsAre("inverse out > scratch", "first in > scratch", "second scratch > out"));

    RecordedChain strided(/*withInverse=*/true);
    strided.chain->convertStrided(&strided.in, 5000, -2, &strided.out, 7, 3, 1500);
    EXPECT_THAT(
        strided.log.calls, ElementsAre(
                               "inverse out7+3 > scratch0+1 x1024", "first in5000+-2 > scratch0+1 x1024",
                               "second scratch0+1 > out7+3 x1024", "inverse out3079+3 > scratch0+1 x476",
                               "first in2952+-2 > scratch0+1 x476", "second scratch0+1 > out3079+3 x476"));
}

TEST(ChainedConverter, KeepsContiguousSidesContiguousEachForItself) {
    RecordedChain whole(/*withInverse=*/false);
    whole.chain->convertContiguous(&whole.in, 3, &whole.out, 9, 2500);
    EXPECT_THAT(
        whole.log.calls,
        ElementsAre(
            "first in3 > scratch0 x1024", "second scratch0 > out9 x1024", "first in1027 > scratch0 x1024",
            "second scratch0 > out1033 x1024", "first in2051 > scratch0 x452", "second scratch0 > out2057 x452"));

    RecordedChain input(/*withInverse=*/true);
    input.chain->convertStrided(&input.in, 3, 1, &input.out, 9, 0, 1024);
    EXPECT_THAT(
        input.log.calls,
        ElementsAre(
            "inverse out9+0 > scratch0+1 x1024", "first in3 > scratch0 x1024", "second scratch0+1 > out9+0 x1024"));

    RecordedChain output(/*withInverse=*/true);
    output.chain->convertStrided(&output.in, 3, 2, &output.out, 9, 1, 10);
    EXPECT_THAT(
        output.log.calls,
        ElementsAre("inverse out9 > scratch0 x10", "first in3+2 > scratch0+1 x10", "second scratch0 > out9 x10"));
}

TEST(ChainedConverter, HandsOnACountOfNothingOnce) {
    for (int const count : {0, -7}) {
        RecordedChain recorded(/*withInverse=*/false);
        recorded.chain->convertContiguous(&recorded.in, 0, &recorded.out, 0, count);
        recorded.chain->convertStrided(&recorded.in, 0, 2, &recorded.out, 0, 2, count);
        std::string const times = " x" + std::to_string(count);
        EXPECT_THAT(
            recorded.log.calls, ElementsAre(
                                    "first in0 > scratch0" + times, "second scratch0 > out0" + times,
                                    "first in0+2 > scratch0+1" + times, "second scratch0+1 > out0+2" + times));
    }
}

TEST(ChainedConverter, RefusesWhatDoesNotMeetInThisOrder) {
    Recorder::Log log;
    auto const make = [&](std::type_info const& from, std::type_info const& to) {
        return ConverterPtr(boost::make_shared<Recorder>("", log, from, to));
    };
    ConverterPtr const charToInt = make(typeid(char), typeid(int));
    ConverterPtr const intToShort = make(typeid(int), typeid(short));
    ConverterPtr const shortToInt = make(typeid(short), typeid(int));
    ConverterPtr const charToLong = make(typeid(char), typeid(long));
    ConverterPtr const longToInt = make(typeid(long), typeid(int));
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
        {"InverseBeforeRegister", charToLong, longToInt, charToInt, kInverse},
    };
    for (Row const& row : rows) {
        EXPECT_THAT(
            [&] { CompositeConverter::getCompositeConverter(row.first, row.second, row.inverse); },
            ThrowsMessage<std::invalid_argument>(row.message))
            << row.name;
    }
    EXPECT_THAT(
        [&] { CompositeConverter::getCompositeConverter(charToLong, longToInt, nullptr); },
        ThrowsMessage<std::runtime_error>("[Adt::TypeRegister] Unknown type: long"));
    EXPECT_NO_THROW(CompositeConverter::getCompositeConverter(charToInt, intToShort, shortToInt));
}

// Carries a byte in the last of 32: an intermediate type of the caller's own, too large for the stack in full chunks.
template <class S, class D>
class LastByteConverter final : public IValueConverter {
  public:
    std::type_info const& getInputType() const override { return typeid(S); }
    std::type_info const& getOutputType() const override { return typeid(D); }
    void convert(void const* in, void* out) const override {
        static_cast<unsigned char*>(out)[sizeof(D) - 1] = static_cast<unsigned char const*>(in)[sizeof(S) - 1];
    }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        for (int k = 0; k < count; ++k) {
            convert(
                static_cast<S const*>(in) + inIndex + k * inStride, static_cast<D*>(out) + outIndex + k * outStride);
        }
    }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }
};

TEST(ChainedConverter, TakesIntermediateTypesOfTheCaller) {
    TypeRegister::registerPrimitiveType(typeid(Wide), 256);
    auto const chain = CompositeConverter::getCompositeConverter(
        boost::make_shared<LastByteConverter<unsigned char, Wide>>(),
        boost::make_shared<LastByteConverter<Wide, unsigned char>>(), nullptr);
    std::vector<unsigned char> in(2500);
    std::iota(in.begin(), in.end(), static_cast<unsigned char>(0));
    std::vector<unsigned char> out(in.size());
    chain->convertContiguous(in.data(), 0, out.data(), 0, static_cast<int>(in.size()));
    EXPECT_EQ(out, in);
}

TEST(ValueConverterFactory, PrependsAConversionWhereOneIsNeeded) {
    ConverterPtr const toFloat = Factory::getTypeConverter(typeid(unsigned char), typeid(float));
    EXPECT_EQ(Factory::prependTypeConverter(typeid(unsigned char), toFloat), toFloat);
    ConverterPtr const chain = Factory::prependTypeConverter(typeid(short), ScaleOffset(2, 1), toFloat);
    EXPECT_EQ(chain->getInputType(), typeid(short));
    short const in[] = {-4, 20, 2000};
    float out[3] = {};
    chain->convertContiguous(in, 0, out, 0, 3);
    EXPECT_THAT(out, ElementsAre(0.0f, 41.0f, 255.0f));
    EXPECT_THAT(
        [] { Factory::prependTypeConverter(typeid(short), nullptr); },
        ThrowsMessage<std::invalid_argument>("[ValueConverterFactory::prependTypeConverter] null converter argument"));
}

TEST(ValueConverterFactory, AppendsAConversionAndItsInverse) {
    ConverterPtr const toInt = Factory::getTypeConverter(typeid(short), typeid(int));
    EXPECT_EQ(Factory::appendTypeConverter(toInt, /*withInverse=*/true, typeid(int)), toInt);
    EXPECT_THAT(
        [&] { Factory::appendTypeConverter(toInt, /*withInverse=*/true, typeid(float)); },
        ThrowsMessage<Exceptions::NotImplementedException>(
            "Not implemented: ValueConverterFactory: Missing basic conversion from 'float' to 'int'."));
    ConverterPtr const toFloat = Factory::appendTypeConverter(toInt, /*withInverse=*/false, typeid(float));
    EXPECT_EQ(toFloat->getOutputType(), typeid(float));
    EXPECT_THAT(
        [] { Factory::appendTypeConverter(nullptr, /*withInverse=*/true, typeid(int)); },
        ThrowsMessage<std::invalid_argument>("[ValueConverterFactory::appendTypeConverter] null converter argument"));

    // A first converter that leaves its output alone shows what the inverse put there: y = 2x + 1 and back again.
    Recorder::Log log;
    auto const silent = boost::make_shared<Recorder>("", log, typeid(char), typeid(short));
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
        std::vector<short> in(3000);
        std::iota(in.begin(), in.end(), first);
        std::vector<short> out(in.size());
        for (int round = 0; round < 50 && intact; ++round) {
            chain->convertContiguous(in.data(), 0, out.data(), 0, static_cast<int>(in.size()));
            intact = out == in;
        }
    };
    bool intact[2] = {true, true};
    std::thread other(work, short{-3000}, std::ref(intact[0]));
    work(short{1000}, intact[1]);
    other.join();
    EXPECT_TRUE(intact[0] && intact[1]);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Converters

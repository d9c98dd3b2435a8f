// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/testing/brick_accessor.h"
#include "dravik/adt/testing/lending_accessor.h"
#include "dravik/adt/testing/random.h"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <new>
#include <numeric>
#include <optional>
#include <stdexcept>

extern "C" int doubleEverySample(Adt_BulkView_Controller* controller, double* sum);

namespace Quorvel::Dravik::Adt::BulkView::Old {
namespace {

using Index = FixedVector<4, int>;
using Testing::LendingAccessor;
using testing::ThrowsMessage;

static_assert(!std::is_copy_constructible_v<IController>);
static_assert(std::is_same_v<std::underlying_type_t<IController::MemoryModel>, int>);
static_assert(std::is_same_v<std::underlying_type_t<IController::FeatureMask>, int>);

constexpr char const* kSmallOnly = "The controller adapter only supports small datasets, and should be phased out.";

std::unique_ptr<LendingAccessor> lending(Index size, LendingAccessor::Lend lend = {}) {
    return std::make_unique<LendingAccessor>(size, std::move(lend));
}

void* bufferOf(ControllerAdapter& controller, int brick, AdtEnums::Access access) {
    return controller.buffer(0, IController::Addressed, nullptr, brick, access);
}

TEST(ControllerAdapter, OpensSmallDataOnce) {
    struct Row {
        char const* name;
        Index size;
        bool opens;
    };
    constexpr Row kRows[] = {
        {"HalfTheLimit", {1024, 1024, 1024, 1}, true},       {"Largest", {INT_MAX, 1, 1, 99}, true},
        {"OneTooMany", {1 << 16, 1 << 15, 1, 1}, false},     {"ModuloTwoTo32", {2048, 2048, 1024, 1}, false},
        {"ModuloTwoTo64", {1 << 30, 1 << 30, 16, 1}, false}, {"Empty", {0, 20, 30, 1}, true},
    };
    for (Row const& row : kRows) {
        SCOPED_TRACE(row.name);
        ControllerAdapter controller(lending(row.size), 4);
        auto const open = [&] { return controller.open(); };
        if (row.opens) {
            EXPECT_EQ(open(), 0);
        } else {
            EXPECT_THAT(open, ThrowsMessage<Exceptions::PlainException>(kSmallOnly));
        }
        for (int round = 0; round < 3; ++round) {
            EXPECT_THAT(
                open, ThrowsMessage<Exceptions::PlainException>(
                          "[ControllerAdapter::open] ControllerAdapter instances may only be used by a single view."));
            controller.close(0);
        }
        EXPECT_EQ(controller.size(0), row.size[0]) << "also after close";
        EXPECT_EQ(controller.buffer(0, IController::MemoryModel(1), nullptr, -1, AdtEnums::Read), nullptr);
    }
    EXPECT_THAT(
        [] { ControllerAdapter(nullptr, 4); },
        ThrowsMessage<std::invalid_argument>("[ControllerAdapter] Accessor is null."));
}

// Columns of 7 along axis 1 out of a block in memory: the address, and whether the accessor is asked.
TEST(ControllerAdapter, GivesTheAddressOfEverySample) {
    std::vector<double> samples(5 * 16 * 3);
    OpenEndedRange<4, int> block;
    int requests = 0;
    auto lend = [&](Index at, AdtEnums::Access access, BufferHandle& handle) {
        ++requests;
        EXPECT_EQ(at[3], 0);
        int const low = at[1] / 7 * 7;
        block = {{at[0], low, at[2], 0}, {at[0] + 1, std::min(low + 7, 16), at[2] + 1, 1}};
        handle.update(samples.data() + at[0] * 16 + low + at[2] * 80 - 2, {block, {16, 1, 80, 0}, 2}, access);
    };
    ControllerAdapter controller(lending({5, 16, 3, 1}, lend), sizeof(double));
    EXPECT_EQ(controller.features(), 0x177);
    Testing::Random random;
    AdtEnums::Access held = AdtEnums::NoAccess;
    int brick = 0;
    for (int round = 0; round < 2000; ++round) {
        brick = random.chance(70) ? std::clamp(brick + random.between(-6, 6) * 5, 0, 239) : random.between(0, 239);
        auto const access = random.oneOf({AdtEnums::Read, AdtEnums::ReadWrite});
        Index const at(brick % 5, brick / 5 % 16, brick / 80, 0);
        EXPECT_EQ(controller.brick(INT_MIN, at[0], at[1], at[2]), brick);
        int const expected = requests + (block.contains(at) && access == held ? 0 : 1);
        held = access;
        ASSERT_EQ(bufferOf(controller, brick, access), samples.data() + at[0] * 16 + at[1] + at[2] * 80) << brick;
        ASSERT_EQ(requests, expected) << "round " << round;
    }

    char* memory = reinterpret_cast<char*>(std::uintptr_t{1} << 40);
    auto lendFar = [&](Index, AdtEnums::Access access, BufferHandle& handle) {
        handle.update(memory, {{{-1, 0, 0, 0}, {4, 1, 1, 1}}, {1 << 29, 0, 0, 0}, INT_MAX}, access);
    };
    ControllerAdapter far(lending({4, 1, 1, 1}, lendFar), 8);
    EXPECT_EQ(bufferOf(far, 3, AdtEnums::Read), memory + 8 * (INT_MAX + 4 * (std::int64_t{1} << 29)));
    memory = nullptr;
    EXPECT_EQ(bufferOf(far, 3, AdtEnums::ReadWrite), nullptr) << "a block without memory";
}

TEST(ControllerAdapter, GivesTheBlockBackFirst) {
    for (bool const closes : {false, true}) {
        Testing::Journal const journal;
        auto accessor = lending({1, 1, 1, 1}, [&](Index, AdtEnums::Access, BufferHandle& handle) {
            handle.setOwner(new Testing::CallingOwner([&] { journal.note("block back"); }));
        });
        accessor->atEnd = [&] { journal.note("accessor gone"); };
        auto controller = std::make_unique<ControllerAdapter>(std::move(accessor), 1);
        bufferOf(*controller, 0, AdtEnums::Read);
        closes ? controller->close(0) : controller.reset();
        EXPECT_THAT(journal.take(), testing::ElementsAre("block back", "accessor gone"));
    }
}

TEST(ControllerAdapter, AsksAgainForAnInvalidBlock) {
    Testing::PlainArray<float> data({5, 4, 3, 1});
    std::iota(data.samples().begin(), data.samples().end(), 0.0f);
    ControllerAdapter controller(
        std::make_unique<Testing::BrickAccessor<float>>(data, Testing::BrickOptions{.invalidatesEvery = 2}), 4);
    Testing::forEachIndex(data.box(), [&](Index const& p) {
        auto const* const sample =
            static_cast<float*>(bufferOf(controller, controller.brick(0, p[0], p[1], p[2]), AdtEnums::Read));
        EXPECT_EQ(*sample, data.at(p)) << p;
        return !testing::Test::HasFailure();
    });
}

// Shorts for the floats above, while it works.
struct WayBack final : IValueConverter {
    std::type_info const& getInputType() const override { return typeid(float); }
    std::type_info const& getOutputType() const override { return typeid(short); }
    void convert(void const*, void*) const override {}
    void convertStrided(void const*, int, int, void*, int, int, int) const override {}
    void convertContiguous(void const* in, int i, void* out, int o, int count) const override {
        isOpen ? void() : throw std::runtime_error("no way back");
        std::copy_n(static_cast<float const*>(in) + i, count, static_cast<short*>(out) + o);
    }
    bool isOpen = false;
};

TEST(ControllerAdapter, KeepsWrittenSamplesUntilTheyAreBack) {
    auto const stored = SharedArray<3>::Make<short>({{0, 0, 0}, {1, 2, 4}});
    auto const* const samples = reinterpret_cast<short const*>(stored.data());
    auto const back = boost::make_shared<WayBack>();
    ControllerAdapter controller(
        Filters::ValueConvertFilter::Apply(
            std::make_unique<Accessors::MemoryAccessor>(stored), sizeof(float),
            Converters::ValueConverterFactory::getTypeConverter(typeid(short), typeid(float)), back),
        sizeof(float));
    auto const write = [&](float sample) {
        *static_cast<float*>(bufferOf(controller, 0, AdtEnums::ReadWrite)) = sample;
        back->isOpen = false;
    };
    write(7);
    EXPECT_THROW(bufferOf(controller, 1, AdtEnums::Read), std::runtime_error);
    back->isOpen = true;
    bufferOf(controller, 1, AdtEnums::Read);
    EXPECT_EQ(samples[0], 7) << "by the next request";
    write(9);
    EXPECT_THROW(controller.close(0), std::runtime_error);
    back->isOpen = true;
    controller.close(0);
    EXPECT_EQ(samples[0], 9) << "by the next close";
}

TEST(ControllerFunctions, ServeACallerInC) {
    auto const grid = SharedArray<3>::Make<float>({{0, 0, 0}, {3, 4, 5}});
    float* const samples = reinterpret_cast<float*>(grid.data());
    std::iota(samples, samples + 60, 0.0f);
    ControllerAdapter controller(std::make_unique<Accessors::MemoryAccessor>(grid), sizeof(float));
    double sum = 0;
    EXPECT_EQ(doubleEverySample(&controller, &sum), 0);
    EXPECT_EQ(sum, 59 * 60 / 2);
    EXPECT_EQ(samples[59], 118.0f);
}

// Every function, with all integers set to `n` and the place for result number `missing` null.
struct Function {
    std::string name;
    void (*call)(IController*, char** text, int n, int missing);
};

Function const kFunctions[] = {
    {"Open", [](auto* c, char** text, int, int) { Adt_BulkView_Controller_Open(c, text); }},
    {"VtSize", [](auto* c, char** text, int, int) { Adt_BulkView_Controller_VtSize(c, text); }},
    {"Size", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Size(c, text, n); }},
    {"Brick", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Brick(c, text, n, n, n, n); }},
    {"Offset", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Offset(c, text, n, n, n, n); }},
    {"Buffer", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Buffer(c, text, n, 0, nullptr, n, n); }},
    {"BufferAndLinearInfo",
     [](auto* c, char** text, int n, int missing) {
         int info[10] = {};
         void* buffer = info;
         auto const place = [&](int number) { return number == missing ? nullptr : &info[number]; };
         Adt_BulkView_Controller_BufferAndLinearInfo(
             c, text, n, n, nullptr, n, n, n, n, missing == 0 ? nullptr : &buffer, place(1), place(2), place(3),
             place(4), place(5), place(6), place(7), place(8), place(9));
         EXPECT_EQ(buffer == nullptr, c != nullptr && missing < 0);
         EXPECT_THAT(info, testing::Each(0));
     }},
    {"Flush", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Flush(c, text, n, nullptr); }},
    {"Features", [](auto* c, char** text, int, int) { Adt_BulkView_Controller_Features(c, text); }},
    {"SetHint", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_SetHint(c, text, n, n, n, n, n); }},
    {"Close", [](auto* c, char** text, int n, int) { Adt_BulkView_Controller_Close(c, text, n); }},
};

// The error text of a call, none where it succeeds; with and without a place for it.
std::optional<std::string> textOf(Function const& function, IController* controller, int n, int missing = -1) {
    char untouched = 0;
    char* text = &untouched;
    function.call(controller, &text, n, missing);
    EXPECT_NE(text, &untouched);
    std::optional<std::string> copy = text == nullptr ? std::nullopt : std::optional<std::string>(text);
    std::free(text);
    function.call(controller, nullptr, n, missing);
    return copy;
}

TEST(ControllerFunctions, StandEveryPointerIntegerAndSize) {
    for (Index const& size :
         {Index(3, 4, 5, 1), Index(3, 0, 5, 1), Index(-3, -4, 5, 1), Index(INT_MAX, INT_MAX, INT_MAX, INT_MAX)}) {
        for (int const n : {INT_MIN, -1, 0, 1, 2, 3, 59, 60, INT_MAX}) {
            auto lend = [&](Index at, AdtEnums::Access, BufferHandle&) {
                EXPECT_TRUE((OpenEndedRange<4, int>::OfSize(size).contains(at))) << at;
            };
            ControllerAdapter controller(lending(size, lend), INT_MAX);
            for (auto const& function : kFunctions) {
                bool const isBrick = n >= 0 && (size[0] == INT_MAX || (size[1] == 4 && n < 60));
                std::string const prefix = "[Adt_BulkView_Controller_" + function.name + "] Invalid argument: ";
                std::optional<std::string> expected;
                if (function.name == "Open" && size[0] == INT_MAX) {
                    expected = kSmallOnly;
                } else if (function.name == "Size" && (n < 0 || n > 2)) {
                    expected =
                        "[Adt::FixedVector] Index out of bounds. Index " + std::to_string(n) + " of 3 components.";
                } else if (function.name == "Buffer" && !isBrick) {
                    expected = "[ControllerAdapter::buffer] Invalid argument: brick number is out of bounds.";
                }
                EXPECT_EQ(textOf(function, &controller, n), expected) << function.name << " " << n << " of " << size;
                EXPECT_EQ(textOf(function, nullptr, n), prefix + "controller is null.");
                for (int missing = 0; function.name == "BufferAndLinearInfo" && missing <= 9; ++missing) {
                    EXPECT_EQ(
                        textOf(function, &controller, n, missing),
                        prefix + (missing == 0 ? "buffer" : "info") + " is null.");
                }
            }
        }
    }
}

TEST(ControllerFunctions, TranslateTheWriteFlagAndTheFailure) {
    struct Row {
        char const* text;
        void (*fail)();
    };
    constexpr Row kRows[] = {
        {"std::exception", [] { throw std::exception(); }},
        {"std::bad_alloc", [] { throw std::bad_alloc(); }},
        {"argument", [] { throw std::invalid_argument("argument"); }},
        {"run time", [] { throw std::runtime_error("run time"); }},
        {"plain", [] { throw Exceptions::PlainException("plain"); }},
        {"Not implemented: yet", [] { throw Exceptions::NotImplementedException("yet"); }},
        {"", [] { throw std::length_error(""); }},
    };
    void (*fail)() = [] {};
    AdtEnums::Access asked = AdtEnums::NoAccess;
    auto lend = [&](Index, AdtEnums::Access access, BufferHandle&) { asked = access, fail(); };
    ControllerAdapter controller(lending({1, 1, 1, 1}, lend), 1);
    Function const buffer{"", [](auto* c, char** text, int flag, int) {
                              void* const block = Adt_BulkView_Controller_Buffer(c, text, 0, 0, nullptr, 0, flag);
                              EXPECT_EQ(block, nullptr);
                          }};
    for (int const flag : {INT_MIN, 0, 1, 2, 3, INT_MAX}) {
        EXPECT_EQ(textOf(buffer, &controller, flag), std::nullopt);
        EXPECT_EQ(asked, flag == 1 ? AdtEnums::ReadWrite : AdtEnums::Read) << flag;
    }
    for (Row const& row : kRows) {
        fail = row.fail;
        EXPECT_EQ(textOf(buffer, &controller, 1), row.text);
    }
    fail = [] { throw 5; };
    EXPECT_THROW(buffer.call(&controller, nullptr, 1, -1), int) << "not of the standard tree";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Old

#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/lending_accessor.h"
#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <new>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int doubleEverySample(Adt_BulkView_Controller* controller, double* sum);

namespace Quorvel::Dravik::Adt::BulkView::Old {
namespace {

using testing::ElementsAre;
using Testing::LendingAccessor;
using testing::ThrowsMessage;
using Info = BufferHandle::ArrayInfo;

static_assert(!std::is_copy_constructible_v<IController>);
static_assert(std::is_same_v<std::underlying_type_t<IController::MemoryModel>, int>);
static_assert(std::is_same_v<std::underlying_type_t<IController::FeatureMask>, int>);

constexpr char const* kSingleView =
    "[ControllerAdapter::open] ControllerAdapter instances may only be used by a single view.";
constexpr char const* kSmallOnly = "The controller adapter only supports small datasets, and should be phased out.";
constexpr char const* kNoBrick = "[ControllerAdapter::buffer] Invalid argument: brick number is out of bounds.";

std::unique_ptr<LendingAccessor> lending(FixedVector<4, int> size, LendingAccessor::Lend lend = {}) {
    return std::make_unique<LendingAccessor>(size, std::move(lend));
}

// The error text of a call, which is freed here.
template <class Call>
std::optional<std::string> textOf(Call call) {
    char untouched = 0;
    char* text = &untouched;
    call(&text);
    EXPECT_NE(text, &untouched);
    std::optional<std::string> copy = text == nullptr ? std::nullopt : std::optional<std::string>(text);
    std::free(text);
    return copy;
}

TEST(ControllerAdapter, OpensSmallDataOnce) {
    struct Row {
        char const* name;
        FixedVector<4, int> size;
        char const* failure;
    };
    Row const rows[] = {
        {"Small", {10, 20, 30, 1}, ""},
        {"HalfTheLimit", {1024, 1024, 1024, 1}, ""},
        {"Largest", {INT_MAX, 1, 1, 99}, ""},
        {"OneTooMany", {1 << 16, 1 << 15, 1, 1}, kSmallOnly},
        {"ModuloTwoTo32", {2048, 2048, 1024, 1}, kSmallOnly},
        {"ModuloTwoTo64", {1 << 30, 1 << 30, 16, 1}, kSmallOnly},
        {"Empty", {0, 20, 30, 1}, ""},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        ControllerAdapter controller(lending(row.size), 4);
        std::string failure;
        try {
            EXPECT_EQ(controller.open(), 0);
        } catch (Exceptions::PlainException const& error) {
            failure = error.what();
        }
        EXPECT_EQ(failure, row.failure);
        EXPECT_THAT([&] { controller.open(); }, ThrowsMessage<Exceptions::PlainException>(kSingleView));
        controller.close(0);
        controller.close(0);
        EXPECT_THAT([&] { controller.open(); }, ThrowsMessage<Exceptions::PlainException>(kSingleView));
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
    Info block;
    int requests = 0;
    auto lend = [&](FixedVector<4, int> at, AdtEnums::Access access, BufferHandle& handle) {
        ++requests;
        EXPECT_EQ(at[3], 0);
        int const low = at[1] / 7 * 7;
        block = {{{at[0], low, at[2], 0}, {at[0] + 1, std::min(low + 7, 16), at[2] + 1, 1}}, {16, 1, 80, 0}, 2};
        handle.update(samples.data() + at[0] * 16 + low + at[2] * 80 - 2, block, access);
    };
    ControllerAdapter controller(lending({5, 16, 3, 1}, lend), sizeof(double));
    EXPECT_EQ(controller.features(), 0x177);
    Testing::Random random;
    AdtEnums::Access held = AdtEnums::NoAccess;
    int brick = 0;
    for (int round = 0; round < 2000; ++round) {
        brick = random.chance(70) ? std::clamp(brick + random.between(-6, 6) * 5, 0, 239) : random.between(0, 239);
        auto const access = random.oneOf({AdtEnums::Read, AdtEnums::ReadWrite});
        FixedVector<4, int> const at(brick % 5, brick / 5 % 16, brick / 80, 0);
        EXPECT_EQ(controller.brick(INT_MIN, at[0], at[1], at[2]), brick);
        int const expected = requests + (block.range.contains(at) && access == held ? 0 : 1);
        held = access;
        void* const address = controller.buffer(0, IController::Addressed, nullptr, brick, access);
        ASSERT_EQ(address, samples.data() + at[0] * 16 + at[1] + at[2] * 80) << "brick " << brick;
        ASSERT_EQ(requests, expected) << "round " << round;
    }
}

TEST(ControllerAdapter, AddressesBeyondTwoGibibytesAndNothingWithoutMemory) {
    char* memory = reinterpret_cast<char*>(std::uintptr_t{1} << 40);
    auto lend = [&](FixedVector<4, int>, AdtEnums::Access access, BufferHandle& handle) {
        handle.update(memory, {{{-1, 0, 0, 0}, {4, 1, 1, 1}}, {1 << 29, 0, 0, 0}, INT_MAX}, access);
    };
    ControllerAdapter controller(lending({4, 1, 1, 1}, lend), 8);
    auto const sample = [&](AdtEnums::Access access) {
        return controller.buffer(0, IController::Addressed, nullptr, 3, access);
    };
    EXPECT_EQ(sample(AdtEnums::Read), memory + 8 * (INT_MAX + 4 * (std::int64_t{1} << 29)));
    memory = nullptr;
    EXPECT_EQ(sample(AdtEnums::ReadWrite), nullptr);
}

TEST(ControllerAdapter, GivesTheBlockBackBeforeTheAccessorGoes) {
    for (bool const closes : {false, true}) {
        Testing::Journal const journal;
        auto accessor = lending({1, 1, 1, 1}, [&](FixedVector<4, int>, AdtEnums::Access, BufferHandle& handle) {
            handle.setOwner(new Testing::CallingOwner([&] { journal.note("block back"); }));
        });
        accessor->atEnd = [&] { journal.note("accessor gone"); };
        auto controller = std::make_unique<ControllerAdapter>(std::move(accessor), 1);
        controller->buffer(0, IController::Addressed, nullptr, 0, AdtEnums::Read);
        closes ? controller->close(0) : controller.reset();
        EXPECT_THAT(journal.take(), ElementsAre("block back", "accessor gone"));
    }
}

TEST(ControllerFunctions, ServeACallerInC) {
    auto const grid = SharedArray<3>::Make<float>({{0, 0, 0}, {3, 4, 5}});
    float* const samples = reinterpret_cast<float*>(grid.data());
    std::iota(samples, samples + 60, 0.0f);
    ControllerAdapter controller(std::make_unique<Accessors::MemoryAccessor>(grid), sizeof(float));
    double sum = 0;
    EXPECT_EQ(doubleEverySample(&controller, &sum), 0) << "the line in the C file";
    EXPECT_EQ(sum, 59 * 60 / 2);
    EXPECT_EQ(samples[59], 118.0f);
}

// Every function, with all integers set to `n` and the place for result number `missing` null.
struct Function {
    std::string name;
    std::function<void(IController*, char** text, int n, int missing)> call;
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

TEST(ControllerFunctions, StandEveryPointerMissing) {
    ControllerAdapter controller(lending({1, 1, 1, 1}), 1);
    for (Function const& function : kFunctions) {
        EXPECT_EQ(
            textOf([&](char** text) { function.call(nullptr, text, 0, -1); }),
            "[Adt_BulkView_Controller_" + function.name + "] Invalid argument: controller is null.");
        function.call(nullptr, nullptr, 0, -1);
        for (int missing = 0; function.name == "BufferAndLinearInfo" && missing <= 9; ++missing) {
            EXPECT_EQ(
                textOf([&](char** text) { function.call(&controller, text, 0, missing); }),
                "[Adt_BulkView_Controller_BufferAndLinearInfo] Invalid argument: " +
                    std::string(missing == 0 ? "buffer" : "info") + " is null.");
        }
    }
}

TEST(ControllerFunctions, StandEveryIntegerAndEverySize) {
    for (FixedVector<4, int> const& size :
         {FixedVector<4, int>(3, 4, 5, 1), FixedVector<4, int>(3, 0, 5, 1),
          FixedVector<4, int>(INT_MAX, INT_MAX, INT_MAX, INT_MAX)}) {
        for (int const n : {INT_MIN, -1, 0, 1, 2, 3, 59, 60, INT_MAX}) {
            auto lend = [&](FixedVector<4, int> at, AdtEnums::Access, BufferHandle&) {
                EXPECT_TRUE((OpenEndedRange<4, int>::OfSize(size).contains(at))) << at;
            };
            ControllerAdapter controller(lending(size, lend), INT_MAX);
            for (Function const& function : kFunctions) {
                bool const isBrick = n >= 0 && (size[0] == INT_MAX || (size[1] == 4 && n < 60));
                std::optional<std::string> expected;
                if (function.name == "Open" && size[0] == INT_MAX) {
                    expected = kSmallOnly;
                } else if (function.name == "Size" && (n < 0 || n > 2)) {
                    expected = "[Adt::FixedVector] Index out of bounds.";
                } else if (function.name == "Buffer" && !isBrick) {
                    expected = kNoBrick;
                }
                EXPECT_EQ(textOf([&](char** text) { function.call(&controller, text, n, -1); }), expected)
                    << function.name << " " << n << " of " << size;
                function.call(&controller, nullptr, n, -1);
            }
        }
    }
}

TEST(ControllerFunctions, TranslateTheWriteFlagAndTheFailure) {
    std::function<void()> fail = [] {};
    AdtEnums::Access asked = AdtEnums::NoAccess;
    auto lend = [&](FixedVector<4, int>, AdtEnums::Access access, BufferHandle&) {
        asked = access;
        fail();
    };
    ControllerAdapter controller(lending({1, 1, 1, 1}, lend), 1);
    auto const buffer = [&](char** text, int flag) {
        return Adt_BulkView_Controller_Buffer(&controller, text, 0, 0, nullptr, 0, flag);
    };
    for (int const flag : {INT_MIN, 0, 1, 2, 3, INT_MAX}) {
        EXPECT_EQ(textOf([&](char** text) { buffer(text, flag); }), std::nullopt);
        EXPECT_EQ(asked, flag == 1 ? AdtEnums::ReadWrite : AdtEnums::Read) << flag;
    }
    struct Row {
        char const* text;
        std::function<void()> fail;
    };
    Row const rows[] = {
        {"std::exception", [] { throw std::exception(); }},
        {"std::bad_alloc", [] { throw std::bad_alloc(); }},
        {"argument", [] { throw std::invalid_argument("argument"); }},
        {"run time", [] { throw std::runtime_error("run time"); }},
        {"plain", [] { throw Exceptions::PlainException("plain"); }},
        {"Not implemented: yet", [] { throw Exceptions::NotImplementedException("yet"); }},
        {"", [] { throw std::length_error(""); }},
    };
    for (Row const& row : rows) {
        fail = row.fail;
        EXPECT_EQ(textOf([&](char** text) { EXPECT_EQ(buffer(text, 1), nullptr); }), row.text);
    }
    fail = [] { throw 5; };
    EXPECT_THROW(buffer(nullptr, 1), int) << "not of the standard tree";
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Old

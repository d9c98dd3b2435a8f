#include "dravik/adt/bulkview/accessors/memory_accessor.h"
#include "dravik/adt/bulkview/old/controller_adapter.h"
#include "dravik/adt/bulkview/old/controller_functions.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/random.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int doubleEverySample(Adt_BulkView_Controller* controller, double* sum);

namespace Quorvel::Dravik::Adt::BulkView::Old {
namespace {

using testing::ElementsAre;
using testing::ThrowsMessage;
using Info = BufferHandle::ArrayInfo;

static_assert(!std::is_copy_constructible_v<IController>);
static_assert(std::is_same_v<std::underlying_type_t<IController::MemoryModel>, int>);
static_assert(std::is_same_v<std::underlying_type_t<IController::FeatureMask>, int>);

constexpr char const* kSingleView =
    "[ControllerAdapter::open] ControllerAdapter instances may only be used by a single view.";
constexpr char const* kSmallOnly = "The controller adapter only supports small datasets, and should be phased out.";
constexpr char const* kNoBrick = "[ControllerAdapter::buffer] Invalid argument: brick number is out of bounds.";

// Lends whatever `lend` says and writes down who goes when.
class ScriptedAccessor : public IBufferAccessor {
  public:
    using Lend = std::function<void(FixedVector<4, int>, AdtEnums::Access, BufferHandle&)>;

    ScriptedAccessor(FixedVector<4, int> size, Lend lend, std::vector<std::string>* log = nullptr)
        : size_(size), lend_(std::move(lend)), log_(log) {}
    ~ScriptedAccessor() override {
        if (log_ != nullptr) {
            log_->push_back("accessor gone");
        }
    }
    FixedVector<4, int> getSize() override { return size_; }
    void setClient(IClient*) override { ADD_FAILURE() << "the adapter registers nothing"; }
    void setHint(HintType, OpenEndedRange<4, int> const&, float) override {}
    void getBuffer(FixedVector<4, int> position, AdtEnums::Access access, BufferHandle& handle) override {
        lend_(position, access, handle);
    }
    std::unique_ptr<IBufferAccessor> createClone() const override { return nullptr; }
    void dispose(bool) override {}

  private:
    FixedVector<4, int> size_;
    Lend lend_;
    std::vector<std::string>* log_;
};

std::unique_ptr<ScriptedAccessor> lending(FixedVector<4, int> size, ScriptedAccessor::Lend lend = {}) {
    return std::make_unique<ScriptedAccessor>(size, std::move(lend));
}

// The error text of a call, which is freed here.
template <class Call>
std::optional<std::string> textOf(Call call) {
    char untouched = 0;
    char* text = &untouched;
    call(&text);
    EXPECT_NE(text, &untouched);
    std::optional<std::string> const copy = text == nullptr ? std::nullopt : std::optional<std::string>(text);
    std::free(text);
    return copy;
}

TEST(ControllerAdapter, NeedsAnAccessor) {
    EXPECT_THAT(
        [] { ControllerAdapter(nullptr, 4); },
        ThrowsMessage<std::invalid_argument>("[ControllerAdapter] Accessor is null."));
}

TEST(ControllerAdapter, OpensSmallDataOnce) {
    struct Row {
        char const* name;
        FixedVector<4, int> size;
        char const* failure;
    };
    Row const rows[] = {
        {"Small", {10, 20, 30, 1}, nullptr},
        {"HalfTheLimit", {1024, 1024, 1024, 1}, nullptr},
        {"Largest", {INT_MAX, 1, 1, 99}, nullptr},
        {"OneTooMany", {1 << 16, 1 << 15, 1, 1}, kSmallOnly},
        {"ModuloTwoTo32", {2048, 2048, 1024, 1}, kSmallOnly},
        {"ModuloTwoTo64", {1 << 30, 1 << 30, 16, 1}, kSmallOnly},
        {"Empty", {0, 20, 30, 1}, nullptr},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        ControllerAdapter controller(lending(row.size), 4);
        std::string failure;
        int result = -1;
        try {
            result = controller.open();
        } catch (Exceptions::PlainException const& error) {
            failure = error.what();
        }
        EXPECT_EQ(failure, row.failure == nullptr ? "" : row.failure);
        EXPECT_EQ(result, row.failure == nullptr ? 0 : -1);
        EXPECT_THAT([&] { controller.open(); }, ThrowsMessage<Exceptions::PlainException>(kSingleView));
        controller.close(0);
        controller.close(0);
        EXPECT_THAT([&] { controller.open(); }, ThrowsMessage<Exceptions::PlainException>(kSingleView));
        EXPECT_EQ(controller.size(0), row.size[0]) << "also after close";
        EXPECT_EQ(controller.buffer(0, IController::MemoryModel(1), nullptr, -1, AdtEnums::Read), nullptr);
    }
}

TEST(ControllerAdapter, NumbersSamplesFromAxis0Upwards) {
    ControllerAdapter controller(lending({10, 20, 30, 1}), 4);
    EXPECT_EQ(controller.brick(INT_MIN, 3, 2, 1), 223);
    EXPECT_EQ(controller.offset(INT_MIN, 3, 2, 1), 0);
    EXPECT_EQ(controller.features(), 0x177);
}

// Columns of 7 along axis 1 out of a block in memory: the address, and whether the accessor is asked.
TEST(ControllerAdapter, GivesTheAddressOfEverySample) {
    FixedVector<4, int> const size(5, 16, 3, 1);
    FixedVector<4, int> const strides(16, 1, 80, 0);
    std::vector<double> samples(5 * 16 * 3);
    Info block;
    int requests = 0;
    auto lend = [&](FixedVector<4, int> at, AdtEnums::Access access, BufferHandle& handle) {
        ++requests;
        EXPECT_EQ(at[3], 0);
        int const low = at[1] / 7 * 7;
        block = {{{at[0], low, at[2], 0}, {at[0] + 1, std::min(low + 7, 16), at[2] + 1, 1}}, strides, 2};
        handle.update(samples.data() + at[0] * 16 + low + at[2] * 80 - 2, block, access);
    };
    ControllerAdapter controller(lending(size, lend), sizeof(double));
    Testing::Random random;
    AdtEnums::Access held = AdtEnums::NoAccess;
    int brick = 0;
    for (int round = 0; round < 2000; ++round) {
        brick = random.chance(70) ? std::clamp(brick + random.between(-6, 6) * 5, 0, 239) : random.between(0, 239);
        auto const access = random.oneOf({AdtEnums::Read, AdtEnums::ReadWrite});
        FixedVector<4, int> const at(brick % 5, brick / 5 % 16, brick / 80, 0);
        int const expected = requests + (block.range.contains(at) && access == held ? 0 : 1);
        held = access;
        void* const address = controller.buffer(0, IController::Addressed, nullptr, brick, access);
        ASSERT_EQ(address, samples.data() + at[0] * 16 + at[1] + at[2] * 80) << "brick " << brick;
        ASSERT_EQ(requests, expected) << "round " << round;
    }
}

TEST(ControllerAdapter, AddressesBeyondTwoGibibytes) {
    char* const memory = reinterpret_cast<char*>(std::uintptr_t{1} << 40);
    auto lend = [&](FixedVector<4, int>, AdtEnums::Access access, BufferHandle& handle) {
        handle.update(memory, {{{-1, 0, 0, 0}, {4, 1, 1, 1}}, {1 << 29, 0, 0, 0}, INT_MAX}, access);
    };
    ControllerAdapter controller(lending({4, 1, 1, 1}, lend), 8);
    EXPECT_EQ(
        controller.buffer(0, IController::Addressed, nullptr, 3, AdtEnums::Read),
        memory + 8 * (INT_MAX + 4 * (std::int64_t{1} << 29)));
}

TEST(ControllerAdapter, HasNoAddressWithoutMemory) {
    auto lend = [](FixedVector<4, int>, AdtEnums::Access access, BufferHandle& handle) {
        handle.update(nullptr, {{{0, 0, 0, 0}, {4, 1, 1, 1}}, {1, 0, 0, 0}, 0}, access);
    };
    ControllerAdapter controller(lending({4, 1, 1, 1}, lend), 8);
    EXPECT_EQ(controller.buffer(0, IController::Addressed, nullptr, 3, AdtEnums::Read), nullptr);
}

TEST(ControllerAdapter, GivesTheBlockBackBeforeTheAccessorGoes) {
    struct LoggingOwner : BufferHandle::Owner {
        explicit LoggingOwner(std::vector<std::string>& log) : log_(log) {}
        ~LoggingOwner() override { log_.push_back("block back"); }
        void lock() override {}
        void unlock() override {}
        std::vector<std::string>& log_;
    };
    for (bool const closes : {false, true}) {
        std::vector<std::string> log;
        auto lend = [&](FixedVector<4, int>, AdtEnums::Access, BufferHandle& handle) {
            handle.setOwner(new LoggingOwner(log));
        };
        {
            ControllerAdapter controller(
                std::make_unique<ScriptedAccessor>(FixedVector<4, int>(1, 1, 1, 1), lend, &log), 1);
            controller.buffer(0, IController::Addressed, nullptr, 0, AdtEnums::Read);
            EXPECT_TRUE(log.empty());
            if (closes) {
                controller.close(0);
                EXPECT_EQ(log.size(), 2u);
            }
        }
        EXPECT_THAT(log, ElementsAre("block back", "accessor gone"));
    }
}

TEST(ControllerFunctions, ServeACallerInC) {
    auto const grid = SharedArray<3>::Make<float>({{0, 0, 0}, {3, 4, 5}});
    float* const samples = reinterpret_cast<float*>(grid.data());
    for (int i = 0; i < 60; ++i) {
        samples[i] = static_cast<float>(i);
    }
    ControllerAdapter controller(std::make_unique<Accessors::MemoryAccessor>(grid), sizeof(float));
    double sum = 0;
    EXPECT_EQ(doubleEverySample(&controller, &sum), 0) << "the line in the C file";
    EXPECT_EQ(sum, 59 * 60 / 2);
    EXPECT_EQ(samples[59], 118.0f);
}

// Every function with its integers set to `n` and every other pointer valid.
struct Function {
    char const* name;
    std::function<void(IController*, char**, int n)> call;
};

std::vector<Function> everyFunction() {
    static void* buffer;
    static int info[9];
    return {
        {"Open", [](auto* c, char** e, int) { Adt_BulkView_Controller_Open(c, e); }},
        {"VtSize", [](auto* c, char** e, int) { Adt_BulkView_Controller_VtSize(c, e); }},
        {"Size", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Size(c, e, n); }},
        {"Brick", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Brick(c, e, n, n, n, n); }},
        {"Offset", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Offset(c, e, n, n, n, n); }},
        {"Buffer", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Buffer(c, e, n, 0, nullptr, n, n); }},
        {"BufferAndLinearInfo",
         [](auto* c, char** e, int n) {
             Adt_BulkView_Controller_BufferAndLinearInfo(
                 c, e, n, n, nullptr, n, n, n, n, &buffer, info, info + 1, info + 2, info + 3, info + 4, info + 5,
                 info + 6, info + 7, info + 8);
         }},
        {"Flush", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Flush(c, e, n, nullptr); }},
        {"Features", [](auto* c, char** e, int) { Adt_BulkView_Controller_Features(c, e); }},
        {"SetHint", [](auto* c, char** e, int n) { Adt_BulkView_Controller_SetHint(c, e, n, n, n, n, n); }},
        {"Close", [](auto* c, char** e, int n) { Adt_BulkView_Controller_Close(c, e, n); }},
    };
}

TEST(ControllerFunctions, SayWhichControllerIsMissing) {
    for (Function const& function : everyFunction()) {
        EXPECT_EQ(
            textOf([&](char** text) { function.call(nullptr, text, 0); }),
            "[Adt_BulkView_Controller_" + std::string(function.name) + "] Invalid argument: controller is null.");
        function.call(nullptr, nullptr, 0);
    }
}

TEST(ControllerFunctions, StandEveryIntegerAndNoPlaceForATextAndNoData) {
    for (FixedVector<4, int> const& size :
         {FixedVector<4, int>(3, 4, 5, 1), FixedVector<4, int>(3, 0, 5, 1),
          FixedVector<4, int>(INT_MAX, INT_MAX, INT_MAX, INT_MAX)}) {
        for (int const n : {INT_MIN, -1, 0, 1, 2, 3, 59, 60, INT_MAX}) {
            auto lend = [&](FixedVector<4, int> at, AdtEnums::Access, BufferHandle&) {
                EXPECT_TRUE((OpenEndedRange<4, int>::OfSize(size).contains(at))) << at;
            };
            ControllerAdapter controller(lending(size, lend), INT_MAX);
            for (Function const& function : everyFunction()) {
                std::string const name(function.name);
                bool const inside = size[0] == INT_MAX || (size[1] == 4 && n < 60);
                std::optional<std::string> expected;
                if (name == "Open" && size[0] == INT_MAX) {
                    expected = kSmallOnly;
                } else if (name == "Size" && (n < 0 || n > 2)) {
                    expected = "[Adt::FixedVector] Index out of bounds.";
                } else if (name == "Buffer" && (n < 0 || !inside)) {
                    expected = kNoBrick;
                }
                EXPECT_EQ(textOf([&](char** text) { function.call(&controller, text, n); }), expected)
                    << name << " " << n << " of " << size;
                function.call(&controller, nullptr, n);
            }
        }
    }
}

TEST(ControllerFunctions, NeedEveryPlaceForAResult) {
    ControllerAdapter controller(lending({1, 1, 1, 1}), 1);
    for (int missing = 0; missing <= 10; ++missing) {
        void* buffer = &controller;
        int info[9] = {7, 7, 7, 7, 7, 7, 7, 7, 7};
        auto const place = [&](int number) { return number == missing ? nullptr : info + number - 1; };
        auto const text = textOf([&](char** error) {
            Adt_BulkView_Controller_BufferAndLinearInfo(
                &controller, error, 0, 0, nullptr, 0, 0, 0, 0, missing == 0 ? nullptr : &buffer, place(1), place(2),
                place(3), place(4), place(5), place(6), place(7), place(8), place(9));
        });
        EXPECT_EQ(text.has_value(), missing < 10) << missing;
        EXPECT_EQ(buffer, missing < 10 ? &controller : nullptr);
        EXPECT_THAT(info, testing::Each(7));
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
    char* text = nullptr;
    EXPECT_THROW(buffer(&text, 1), int) << "not of the standard tree";
    EXPECT_EQ(text, nullptr);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Old

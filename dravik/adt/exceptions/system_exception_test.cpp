#include "dravik/adt/exceptions/system_exception.h"

#include "dravik/adt/exceptions/access_violation_exception.h"
#include "dravik/adt/exceptions/cloned_std_exception.h"
#include "dravik/adt/exceptions/not_supported_exception.h"
#include "dravik/adt/exceptions/system_error.h"
#include "dravik/adt/testing/fault_situations.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cinttypes>
#include <map>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;
using ConstPtr = ICloneableException::ConstPtr;

static_assert(std::is_copy_assignable_v<SystemException> && std::is_copy_assignable_v<AccessViolationException>);
static_assert(std::is_copy_assignable_v<SystemError>);

/// The dynamic type.
std::type_info const& typeOf(ICloneableException const& exception) {
    return typeid(exception);
}

EXCEPTION_RECORD record(
    std::uint32_t code, std::uintptr_t address = 0x1000, std::uintptr_t access = 0, std::uintptr_t accessed = 0) {
    EXCEPTION_RECORD result;
    result.code = code;
    result.address = reinterpret_cast<void const*>(address);
    result.parameterCount = 2;
    result.parameters[0] = access;
    result.parameters[1] = accessed;
    return result;
}

std::string upper(std::uintptr_t address) {
    char text[17];
    std::snprintf(text, sizeof text, "%08" PRIXPTR, address);
    return text;
}

TEST(SystemException, NamesTheFaultInItsFirstLine) {
    struct Row {
        std::uint32_t code;
        char const* message;
        char const* firstLine;
    };
    constexpr Row kRows[] = {
        {0xC0000005, "", "Serious exception: Access violation"},
        {0xC000001D, "", "Serious exception: Illegal instruction"},
        {0xC000008E, "", "Serious exception: Floating-point division by zero"},
        {0xC0000094, "", "Serious exception: Integer division by zero"},
        {0xC00000FD, "", "Serious exception: Stack overflow"},
        {0xC0000096, "", "Serious Windows exception 0xc0000096"},
        {0x0000002A, "", "Serious Windows exception 0x2a"},
        {0xC0000005, "Own words", "Own words"},
    };
    for (Row const& row : kRows) {
        SystemException const exception(record(row.code), row.message);
        EXPECT_EQ(
            exception.msg(),
            std::string(row.firstLine) + "\nException occurred at process address 0x00001000 (unknown module)");
        EXPECT_EQ(exception.getExceptionCode(), row.code);
    }
    EXPECT_EQ(
        SystemException::getExceptionCodeMsg(static_cast<unsigned long>(static_cast<int>(0xC0000005))),
        "Access violation")
        << "a code whose sign was extended";
}

TEST(SystemException, NamesThePlaceInItsSecondLine) {
    Dl_info library = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&std::atoi), &library), 0);
    auto const base = reinterpret_cast<std::uintptr_t>(library.dli_fbase);
    auto const message = [](std::uintptr_t address) { return SystemException(record(0xC00000FD, address), "").msg(); };
    std::string const name = std::string(library.dli_fname).substr(std::string(library.dli_fname).rfind('/') + 1);

    EXPECT_THAT(
        message(base + 0x1A2B), EndsWith(
                                    "\nException occurred at offset 0x1a2b in module " + name + " (process address 0x" +
                                    upper(base + 0x1A2B) + ")"));
    EXPECT_THAT(
        message(base), EndsWith("\nException occurred in module " + name + " (process address 0x" + upper(base) + ")"));
    EXPECT_THAT(
        message(reinterpret_cast<std::uintptr_t>(&record)),
        MatchesRegex(".* at offset 0x[0-9a-f]+ in module system_exception_test \\(process address 0x.*"));
    EXPECT_THAT(message(0xFEDCBA9876543210), EndsWith(" at process address 0xFEDCBA9876543210 (unknown module)"));
}

TEST(SystemException, CopiesTheRecordAndFollowsNoPointerInIt) {
    EXCEPTION_RECORD source = record(0xC00000FD);
    source.nested = reinterpret_cast<EXCEPTION_RECORD*>(0x10);
    source.parameters[14] = 7;
    SystemException exception(source, "");
    source.parameters[14] = 8;
    exception = SystemException(exception);
    EXPECT_EQ(exception.getWin32ExceptionRecord().nested, reinterpret_cast<EXCEPTION_RECORD*>(0x10));
    EXPECT_EQ(exception.getWin32ExceptionRecord().parameters[14], 7u);
    EXPECT_EQ(exception.getExceptionAddress(), reinterpret_cast<void*>(0x1000));
}

TEST(AccessViolationException, PutsDirectionAndAddressInItsFirstLine) {
    struct Row {
        EXCEPTION_RECORD record;
        char const* firstLine;
        bool isWrite;
    };
    Row const rows[] = {
        {record(0xC0000005), "Serious exception: Access violation reading from address 0x00000000\n", false},
        {record(0xC0000005, 0x1000, 1, 0xAB), "Serious exception: Access violation writing to address 0x000000AB\n",
         true},
        {record(0xC0000005, 0x1000, 8, 0x123456789A),
         "Serious exception: Access violation writing to address 0x123456789A\n", true},
        {record(0xC00000FD, 0x1000, 1, 1), "Serious exception: Stack overflow\n", true},
    };
    for (Row const& row : rows) {
        AccessViolationException const exception(row.record);
        EXPECT_THAT(exception.msg(), StartsWith(row.firstLine));
        EXPECT_EQ(exception.isWriteAccess(), row.isWrite);
        EXPECT_EQ(exception.getAddress(), reinterpret_cast<void*>(row.record.parameters[1]));
        EXPECT_THROW(exception.clone()->throwClone(), AccessViolationException);
    }
}

TEST(SystemException, FilterTakesErrorsByTheCodeItIsGiven) {
    struct Row {
        char const* name;
        unsigned long code;
        std::type_info const* type;
    };
    Row const rows[] = {
        {"AccessViolation", 0xC0000005, &typeid(AccessViolationException)},
        {"SignExtended", static_cast<unsigned long>(static_cast<int>(0xC0000005)), &typeid(AccessViolationException)},
        {"StackOverflow", 0xC00000FD, &typeid(SystemException)},
        {"LastOfItsClass", 0xCFFFFFFF, &typeid(SystemException)},
        {"Breakpoint", 0x80000003, nullptr},
        {"Language", 0xE06D7363, nullptr},
        {"BesideTheClass", 0xD0000005, nullptr},
        {"BelowTheClass", 0xB0000005, nullptr},
    };
    EXCEPTION_RECORD const unrelated = record(0xC000001D);
    EXCEPTION_POINTERS info{&unrelated};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        ConstPtr out = NotSupportedException("from before").clone();
        EXPECT_EQ(SystemException::sehFilterException(row.code, &info, &out), row.type != nullptr ? 1u : 0u);
        ASSERT_EQ(out != nullptr, row.type != nullptr);
        if (out) {
            EXPECT_TRUE(typeOf(*out) == *row.type);
            EXPECT_THAT(out->msg(), StartsWith("Serious exception: Illegal instruction\n")) << "the record's own code";
        }
    }
}

TEST(SystemError, CarriesTheFirstLineOfTheSystemsText) {
    struct Row {
        unsigned long code;
        char const* message;
        unsigned long stored;
    };
    constexpr Row kRows[] = {
        {ENOENT, "[SystemError] No such file or directory", ENOENT},
        {ENOENT + (1UL << 32), "[SystemError] No such file or directory", ENOENT},
        {999999, "[SystemError] Failed to format Windows error message.", 999999},
        {static_cast<unsigned long>(-1), "[SystemError] Failed to format Windows error message.", 0xFFFFFFFF},
    };
    for (Row const& row : kRows) {
        SystemError const error(row.code);
        EXPECT_EQ(error.msg(), row.message);
        EXPECT_EQ(error.getErrorCode(), row.stored);
        EXPECT_THROW(error.clone()->throwClone(), SystemError);
    }
}

// The guarded call.

int run(int (*fn)(void*), ConstPtr& out, void* arg = nullptr) {
    return ClonedException::runAndCatchException(fn, arg, &out);
}

TEST(RunAndCatchException, ReturnsTheResultAndLeavesTheClone) {
    ConstPtr const before = NotSupportedException("from before").clone();
    ConstPtr out = before;
    int argument = 41;
    EXPECT_EQ(run([](void* number) { return *static_cast<int*>(number) + 1; }, out, &argument), 42);
    EXPECT_EQ(run([](void*) { return 0; }, out), 0);
    EXPECT_EQ(out, before);
}

TEST(RunAndCatchException, ClonesWhateverIsThrown) {
    ConstPtr out;
    EXPECT_EQ(run([](void*) -> int { throw NotSupportedException("W", "T"); }, out), 0);
    EXPECT_EQ(out->msg(), "[W] Unsupported: T");
    EXPECT_EQ(run([](void*) -> int { throw std::runtime_error("T"); }, out), 0);
    EXPECT_EQ(out->msg(), "std::runtime_error: T");
    EXPECT_EQ(run([](void*) -> int { throw 42; }, out), 0);
    EXPECT_EQ(out->msg(), "Caught exception of unknown type.");
}

TEST(RunAndCatchException, TurnsEveryKindOfFaultIntoItsCode) {
    constexpr std::uintptr_t kUnknown = UINTPTR_MAX;
    struct Expected {
        std::uint32_t code;
        std::uintptr_t direction;
        std::uintptr_t address;
    };
    std::map<std::string, Expected> rows = {
        {"ReadNearNull", {0xC0000005, 0, 8}},       {"WriteNearNull", {0xC0000005, 1, 8}},
        {"CallNull", {0xC0000005, 8, 0}},           {"NonCanonical", {0xC0000005, 0, kUnknown}},
        {"IntegerDivision", {0xC0000094, 0, 0}},    {"FloatDivision", {0xC000008E, 0, 0}},
        {"FloatInexact", {0xC000008F, 0, 0}},       {"FloatInvalid", {0xC0000090, 0, 0}},
        {"FloatOverflow", {0xC0000091, 0, 0}},      {"FloatUnderflow", {0xC0000093, 0, 0}},
        {"IllegalInstruction", {0xC000001D, 0, 0}}, {"StackOverflow", {0xC00000FD, 0, 0}},
    };
    for (Testing::FaultSituation const& situation : Testing::faultSituations()) {
        auto const row = rows.extract(situation.name);
        if (row.empty()) {
            continue;
        }
        SCOPED_TRACE(situation.name);
        ConstPtr out;
        auto const fn = [](void* body) { return (reinterpret_cast<void (*)()>(body)(), 1); };
        EXPECT_EQ(run(fn, out, reinterpret_cast<void*>(situation.run)), 0);
        auto const* const fault = dynamic_cast<SystemException const*>(out.get());
        ASSERT_TRUE(fault);
        EXPECT_EQ(fault->getExceptionCode(), row.mapped().code);
        EXPECT_EQ(fault->getWin32ExceptionRecord().parameters[0], row.mapped().direction);
        EXPECT_EQ(fault->getWin32ExceptionRecord().parameters[1], row.mapped().address);
        EXPECT_EQ(dynamic_cast<AccessViolationException const*>(fault) != nullptr, row.mapped().code == 0xC0000005);
    }
    EXPECT_TRUE(rows.empty()) << rows.begin()->first << " is no situation";
}

TEST(RunAndCatchException, SaysWhatHappenedAndWhere) {
    ConstPtr out;
    run([](void*) { return (Testing::readNull(), 1); }, out);
    EXPECT_THAT(
        out->msg(), MatchesRegex("Serious exception: Access violation reading from address 0x00000000\n"
                                 "Exception occurred at offset 0x[0-9a-f]+ in module system_exception_test "
                                 "\\(process address 0x[0-9A-F]+\\)"));
}

TEST(RunAndCatchException, LetsThreadCancellationPass) {
    ConstPtr const before = NotSupportedException("from before").clone();
    ConstPtr out = before;
    pthread_t thread;
    auto const body = [](void* result) -> void* {
        run([](void*) -> int { pthread_exit(PTHREAD_CANCELED); }, *static_cast<ConstPtr*>(result));
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, body, &out), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(out, before);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions

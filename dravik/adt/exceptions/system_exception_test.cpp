// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/exceptions/system_exception.h"

#include "dravik/adt/exceptions/access_violation_exception.h"
#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/exceptions/system_error.h"
#include "dravik/adt/testing/fault_situations.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using Testing::FaultSituation;
using testing::MatchesRegex;
using testing::StartsWith;
using ConstPtr = ICloneableException::ConstPtr;

static_assert(std::is_copy_assignable_v<SystemException> && std::is_copy_assignable_v<AccessViolationException>);
static_assert(std::is_copy_assignable_v<SystemError>);

constexpr unsigned long kSignExtended = 0xFFFF'FFFF'C000'0005;

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

TEST(SystemException, SaysWhatAndWhere) {
    Dl_info library = {};
    // A function of the C library that no sanitizer puts its own in place of.
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&gnu_get_libc_version), &library), 0);
    auto const base = reinterpret_cast<std::uintptr_t>(library.dli_fbase);
    std::string const nowhere = " at process address 0x00001000 (unknown module)";
    std::string const inLibrary = " in module libc.so.6 (process address 0x";
    struct Row {
        EXCEPTION_RECORD record;
        char const* message;
        char const* what;
        std::string where;
    };
    Row const rows[] = {
        {record(0xC0000005), "", "Serious exception: Access violation", nowhere},
        {record(0xC000001D), "", "Serious exception: Illegal instruction", nowhere},
        {record(0xC000008E), "", "Serious exception: Floating-point division by zero", nowhere},
        {record(0xC0000094), "", "Serious exception: Integer division by zero", nowhere},
        {record(0xC00000FD), "", "Serious exception: Stack overflow", nowhere},
        {record(0xC0000096), "", "Serious Windows exception 0xc0000096", nowhere},
        {record(0xC0000005), "Own words", "Own words", nowhere},
        {record(42, base + 0x1A2B), "", "Serious Windows exception 0x2a",
         " at offset 0x1a2b" + inLibrary + upper(base + 0x1A2B) + ")"},
        {record(42, base), "", "Serious Windows exception 0x2a", inLibrary + upper(base) + ")"},
        {record(42, 0xFEDCBA9876543210), "", "Serious Windows exception 0x2a",
         " at process address 0xFEDCBA9876543210 (unknown module)"},
    };
    for (Row const& row : rows) {
        SystemException const exception(row.record, row.message);
        EXPECT_EQ(exception.msg(), std::string(row.what) + "\nException occurred" + row.where);
        EXPECT_EQ(exception.getExceptionCode(), row.record.code);
    }
    EXPECT_EQ(SystemException::getExceptionCodeMsg(kSignExtended), "Access violation");
}

TEST(SystemException, CopiesTheRecordAndNothingElse) {
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

TEST(AccessViolationException, PutsDirectionAndAddressFirst) {
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

TEST(SystemException, FilterTakesErrorsByTheirCode) {
    struct Row {
        char const* name;
        unsigned long code;
        std::type_info const* type;
    };
    Row const rows[] = {
        {"AccessViolation", 0xC0000005, &typeid(AccessViolationException)},
        {"SignExtended", kSignExtended, &typeid(AccessViolationException)},
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
        if (ICloneableException const* const clone = out.get()) {
            EXPECT_TRUE(typeid(*clone) == *row.type);
            EXPECT_THAT(out->msg(), StartsWith("Serious exception: Illegal instruction\n")) << "the record's own code";
        }
    }
}

TEST(SystemError, CarriesTheSystemsFirstLine) {
    SystemError const known(ENOENT + (1UL << 32));
    EXPECT_EQ(known.msg(), "[SystemError] No such file or directory");
    EXPECT_EQ(known.getErrorCode(), static_cast<unsigned long>(ENOENT));
    EXPECT_EQ(SystemError(999999).msg(), "[SystemError] Failed to format Windows error message.");
    EXPECT_EQ(SystemError(kSignExtended).msg(), "[SystemError] Failed to format Windows error message.");
}

// The guarded call.

int run(int (*fn)(void*), ConstPtr& out, void* arg = nullptr) {
    return ClonedException::runAndCatchException(fn, arg, &out);
}

TEST(RunAndCatchException, ReturnsTheResultOrLeavesAClone) {
    ConstPtr const before = NotSupportedException("from before").clone();
    ConstPtr out = before;
    int argument = 41;
    EXPECT_EQ(run([](void* number) { return *static_cast<int*>(number) + 1; }, out, &argument), 42);
    EXPECT_EQ(run([](void*) { return 0; }, out), 0);
    EXPECT_EQ(out, before);
    EXPECT_EQ(run([](void*) -> int { throw NotSupportedException("W", "T"); }, out), 0);
    EXPECT_EQ(out->msg(), "[W] Unsupported: T");
    EXPECT_EQ(run([](void*) -> int { throw 42; }, out), 0);
    EXPECT_EQ(out->msg(), "Caught exception of unknown type.");
}

TEST(RunAndCatchException, TurnsEveryFaultIntoItsCode) {
    constexpr std::uint32_t kCodes[] = {0xC0000005, 0xC00000FD, 0xC000001D, 0xC0000094, 0xC000008E,
                                        0xC0000090, 0xC0000091, 0xC0000093, 0xC000008F};
    constexpr std::uintptr_t kDirections[] = {0, 1, 8};
    for (FaultSituation const& situation : Testing::faultSituations()) {
        SCOPED_TRACE(situation.name);
        auto const fn = [](void* body) { return (reinterpret_cast<void (*)()>(body)(), 1); };
        ConstPtr out;
        EXPECT_EQ(run(fn, out, reinterpret_cast<void*>(situation.run)), 0);
        auto const* const fault = dynamic_cast<SystemException const*>(out.get());
        ASSERT_TRUE(fault);
        EXPECT_EQ(fault->getExceptionCode(), kCodes[static_cast<int>(situation.kind)]);
        if (auto const* const violation = dynamic_cast<AccessViolationException const*>(fault)) {
            auto const& parameters = violation->getWin32ExceptionRecord().parameters;
            EXPECT_EQ(violation->getWin32ExceptionRecord().parameterCount, 2u);
            EXPECT_EQ(parameters[0], kDirections[static_cast<int>(situation.access)]);
            EXPECT_TRUE(situation.address == FaultSituation::kAnyAddress || parameters[1] == situation.address);
        }
    }
}

TEST(RunAndCatchException, SaysWhatHappenedAndWhere) {
    std::filesystem::path const program = std::filesystem::read_symlink("/proc/self/exe");
    std::filesystem::path const copy = testing::TempDir() + "gone_program";
    if (program == copy) {
        std::filesystem::remove(copy);  // the name stays
    } else {
        std::filesystem::copy_file(program, copy, std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(std::system((copy.string() + " --gtest_filter=*SaysWhatHappenedAndWhere").c_str()), 0);
    }
    ConstPtr out;
    run([](void*) { return (Testing::readNull(), 1); }, out);
    EXPECT_THAT(
        out->msg(), MatchesRegex(
                        "Serious exception: Access violation reading from address 0x00000000\n"
                        "Exception occurred at offset 0x[0-9a-f]+ in module " +
                        program.filename().string() + " \\(process address 0x[0-9A-F]+\\)"));
}

TEST(RunAndCatchException, LetsThreadCancellationPass) {
    ConstPtr out;
    bool hasReturned = false;
    std::thread([&] {
        run([](void*) -> int { pthread_exit(nullptr); }, out);
        hasReturned = true;
    }).join();
    EXPECT_FALSE(out);
    EXPECT_FALSE(hasReturned);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions

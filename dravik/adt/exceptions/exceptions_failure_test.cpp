#include "dravik/adt/exceptions/access_violation_exception.h"
#include "dravik/adt/exceptions/cloned_exception.h"
#include "dravik/adt/exceptions/cloned_str_exception.h"
#include "dravik/adt/exceptions/memory_exception.h"
#include "dravik/adt/exceptions/nested_exception.h"
#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/exceptions/not_supported_exception.h"
#include "dravik/adt/exceptions/object_disposed_exception.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/exceptions/system_error.h"
#include "dravik/adt/exceptions/unknown_exception.h"

#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/fault_situations.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Adt::Exceptions {
namespace {

using ConstPtr = ICloneableException::ConstPtr;
using Testing::Fails;

// Too long to fit into a string without memory.
constexpr char const* kText = "a text of more than fifteen characters";

struct Nested : NestedException {
    template <class... Arguments>
    explicit Nested(Arguments const&... arguments) : NestedException(arguments...) {}
    Nested(Nested const&) = default;
    Nested& operator=(Nested const&) = default;
    ConstPtr clone() const override { return boost::make_shared<Nested>(*this); }
    [[noreturn]] void throwClone() const override { throw Nested(*this); }
};

struct Scene {
    std::exception_ptr const thrown[5] = {
        std::make_exception_ptr(NotSupportedException(kText)), std::make_exception_ptr(kText),
        std::make_exception_ptr(std::bad_alloc()), std::make_exception_ptr(std::runtime_error(kText)),
        std::make_exception_ptr(42)};
    std::vector<ConstPtr> kept;
    Nested nested{kText, std::runtime_error(kText)};
};

void capture(Scene& scene) {
    scene.kept.clear();
    for (std::exception_ptr const& each : scene.thrown) {
        try {
            std::rethrow_exception(each);
        } catch (...) {
            scene.kept.push_back(ClonedException::catchException());
        }
    }
}

EXCEPTION_RECORD record(std::uint32_t code) {
    return {.code = code, .address = reinterpret_cast<void const*>(&record), .parameterCount = 2};
}

// One of each kind, built by every constructor.
std::vector<ConstPtr> oneOfEach() {
    std::vector<ConstPtr> all;
    auto const keep = [&](ICloneableException const& exception) { all.push_back(exception.clone()); };
    keep(NotImplementedException(kText));
    keep(NotSupportedException(kText));
    keep(NotSupportedException(kText, kText));
    keep(ObjectDisposedException(kText));
    keep(ClonedStdException(std::runtime_error(kText)));
    keep(ClonedStrException(kText));
    keep(UnknownException());
    keep(MemoryException(std::bad_alloc()));
    keep(MemoryException(std::bad_alloc(), kText, 4711));
    keep(SystemError(2));
    keep(SystemException(record(0xC0000094), kText));
    keep(AccessViolationException(record(0xC0000005)));
    keep(Nested());
    keep(Nested(kText));
    keep(Nested(kText, all.back()));
    for (std::uint32_t const code : {0xC0000005, 0xC00000FD, 0x80000001}) {
        EXCEPTION_RECORD const fault = record(code);
        EXCEPTION_POINTERS pointers{&fault};
        ConstPtr clone;
        EXPECT_EQ(SystemException::sehFilterException(code, &pointers, &clone), code < 0xC0000000 ? 0u : 1u);
        all.push_back(clone);
    }
    return all;
}

/// Runs what returns 1.
void run(int (*fn)(void*), Scene& scene) {
    ConstPtr failure;
    int const result = ClonedException::runAndCatchException(fn, nullptr, &failure);
    EXPECT_NE(result == 1, failure != nullptr);
    scene.kept = {failure};
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"capturing each kind", Fails::kBoth, capture,
     [](Scene& s, bool completed) { EXPECT_EQ(s.kept.size() == std::size(s.thrown), completed); }},
    {"capturing what becomes of a call", Fails::kBoth,
     [](Scene& s) { run([](void*) { return Testing::callOut("fn"), int(std::vector<char>(1).size()); }, s); }},
    {"capturing a fault", Fails::kAllocations, [](Scene& s) { run([](void*) { return Testing::readNull(), 1; }, s); }},
    {"building and cloning each kind", Fails::kAllocations, [](Scene&) { oneOfEach(); }},
    {"throwing clones of each kind", Fails::kAllocations,
     [](Scene&) {
         static std::vector<ConstPtr> const all = oneOfEach();
         for (ConstPtr const& each : all) {
             if (each != nullptr) {
                 Testing::refused<ICloneableException>([&] { each->throwClone(); });
             }
         }
     }},
    {"keeping a plain text", Fails::kAllocations,
     [](Scene&) {
         PlainException const exception(kText);
         EXPECT_STREQ(PlainException(exception).what(), kText);
     }},
    {"asking exceptions", Fails::kNothing,
     [](Scene& s) {
         auto const& fault = dynamic_cast<AccessViolationException const&>(*s.kept[0]);
         EXPECT_TRUE(fault.getAddress() == nullptr && !fault.isWriteAccess() && fault.what() == fault.msg().c_str());
         EXPECT_EQ(fault.getExceptionCode(), fault.getWin32ExceptionRecord().code);
         EXPECT_EQ(fault.getExceptionAddress(), fault.getWin32ExceptionRecord().address);
     },
     [](Scene&, bool) {}, [](Scene& s) { s.kept = {AccessViolationException(record(0xC0000005)).clone()}; }},
    {"changing a nested exception", Fails::kAllocations,
     [](Scene& s) {
         s.nested.setOuterMsg("another text of more than fifteen characters");
         s.nested.setInnerException(std::logic_error(kText));
         s.nested = Nested(std::string(100, 'x'), s.nested);
     },
     [](Scene& s, bool) { EXPECT_EQ(s.nested.msg(), s.nested.outerMsg() + ": " + s.nested.innerException()->msg()); }},
};

TEST(Exceptions, SurviveEveryFailure) {
    Testing::failUntilMade("registering a handler", [] {
        ClonedException::registerExceptionHandler([] {
            Testing::callOut("handler");
            return ConstPtr();
        });
    });
    ClonedException::registerExceptionHandler([] { return UnknownException().clone(); });
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::Exceptions

// SPDX-License-Identifier: Apache-2.0
// Lets a fuzzer's bytes drive the laws of a test program: the tests that DRAVIK_ADT_FUZZED_LAWS names, each from the
// first byte on. What fails ends the program.

#include "dravik/adt/testing/random.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string_view>

using Quorvel::Dravik::Adt::Testing::FuzzedBytes;

namespace {

std::span<std::uint8_t const> input;

class Judge : public testing::EmptyTestEventListener {
    void OnTestStart(testing::TestInfo const&) override { FuzzedBytes::left = input; }
    void OnTestPartResult(testing::TestPartResult const& result) override {
        // A law whose bytes are used up ends like this; every other test would have failed with a type.
        bool const isEnd = std::string_view(result.message()).starts_with("Unknown C++ exception");
        if (result.failed() && !isEnd) {
            std::cerr << result << std::endl;
            std::abort();
        }
    }
};

bool initialize() {
    int count = 2;
    char name[] = "fuzz";
    char filter[] = "--gtest_filter=" DRAVIK_ADT_FUZZED_LAWS;
    char* arguments[] = {name, filter, nullptr};
    testing::InitGoogleTest(&count, arguments);
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Judge);
    return FuzzedBytes::inUse = true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    [[maybe_unused]] static bool const isReady = initialize();
    input = {data, size};
    [[maybe_unused]] int const isOver = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::cerr << "no such law: " DRAVIK_ADT_FUZZED_LAWS << std::endl;
        std::abort();
    }
    return 0;
}

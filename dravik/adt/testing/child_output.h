// SPDX-License-Identifier: Apache-2.0
#pragma once

// Runs a piece of code in a process of its own, to see what it prints until its very end.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace Quorvel::Dravik::Adt::Testing {

/// What a child process prints on standard output while it runs `body` and then ends as programs do, destructors of
/// statics included. A child that does not end well fails the calling test.
inline std::string outputOfChild(std::function<void()> const& body) {
    std::fflush(nullptr);
    std::FILE* const file = std::tmpfile();
    if (fork() == 0) {
        dup2(fileno(file), STDOUT_FILENO);
        body();
        std::exit(0);
    }
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0) << "the child ended badly";
    std::string output(static_cast<std::size_t>(std::ftell(file)), '\0');
    std::rewind(file);
    output.resize(std::fread(output.data(), 1, output.size(), file));
    std::fclose(file);
    return output;
}

}  // namespace Quorvel::Dravik::Adt::Testing

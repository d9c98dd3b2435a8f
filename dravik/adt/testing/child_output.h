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
    int ends[2];
    if (pipe(ends) != 0) {
        ADD_FAILURE() << "no pipe";
        return {};
    }
    pid_t const child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        body();
        std::exit(0);
    }
    close(ends[1]);
    std::string output;
    char piece[4096];
    for (ssize_t length; (length = read(ends[0], piece, sizeof piece)) > 0;) {
        output.append(piece, static_cast<std::size_t>(length));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "the child ended badly";
    return output;
}

}  // namespace Quorvel::Dravik::Adt::Testing

// SPDX-License-Identifier: Apache-2.0
// Calls into code that nobody trusts: whatever goes wrong comes back as an exception object, and the program goes on.

#include <dravik/adt/exceptions/access_violation_exception.h>
#include <dravik/adt/exceptions/cloned_exception.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

using namespace Quorvel::Dravik::Adt;

namespace {

// What a plug-in might export: adds 1 to the number that `argument` points to.
int increment(void* argument) {
    int& number = *static_cast<int*>(argument);
    if (number < 0) {
        throw std::out_of_range("negative number");
    }
    return number + 1;
}

// The first line says what happened, the second one where.
std::string firstLine(std::string const& message) {
    return message.substr(0, message.find('\n'));
}

}  // namespace

int main() {
    //! [guard]
    int good = 41;
    int bad = -1;
    for (int* const argument : {&good, &bad, static_cast<int*>(nullptr)}) {
        ICloneableException::ConstPtr failure;
        int const result = Exceptions::ClonedException::runAndCatchException(increment, argument, &failure);
        if (failure == nullptr) {
            std::cout << "result " << result << '\n';
        } else {
            std::cout << "failed: " << firstLine(failure->msg()) << '\n';
        }
    }
    //! [guard]

    //! [elsewhere]
    // What was caught can be thrown again as what it is, on any thread.
    ICloneableException::ConstPtr failure;
    std::thread([&failure] { Exceptions::ClonedException::runAndCatchException(increment, nullptr, &failure); }).join();
    try {
        failure->throwClone();
    } catch (Exceptions::AccessViolationException const& fault) {
        std::cout << "a worker's fault at address " << fault.getAddress() << '\n';
    }
    //! [elsewhere]
}

// SPDX-License-Identifier: Apache-2.0
// Runs every input of the files given through a harness, without a fuzzer. A file has one input a line, as hexadecimal
// digits; lines that begin with # say what it found.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) {
    int count = 0;
    for (int argument = 1; argument < argc; ++argument) {
        std::ifstream file(argv[argument]);
        for (std::string line; std::getline(file, line);) {
            std::vector<std::uint8_t> bytes;
            for (std::size_t at = 0; line[0] != '#' && at + 1 < line.size(); at += 2) {
                bytes.push_back(static_cast<std::uint8_t>(std::stoi(line.substr(at, 2), nullptr, 16)));
            }
            count += !bytes.empty();
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        }
    }
    std::cout << count << " inputs replayed\n";
    return count > 0 ? 0 : 1;
}

// SPDX-License-Identifier: Apache-2.0
// Runs every file of the folders given through a harness, without a fuzzer. A folder without files is a mistake.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv) {
    int count = 0;
    for (int argument = 1; argument < argc; ++argument) {
        for (auto const& entry : std::filesystem::directory_iterator(argv[argument])) {
            std::ifstream file(entry.path(), std::ios::binary);
            std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::cout << count << " inputs replayed\n";
    return count > 0 ? 0 : 1;
}

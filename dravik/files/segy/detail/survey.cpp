// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/segy/detail/survey.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstring>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

struct FormatRow {
    int code;
    std::type_info const* type;
    int bytes;
};

FormatRow const kFormats[] = {
    {1, &typeid(float), 4},          {2, &typeid(int), 4},
    {3, &typeid(short), 2},          {5, &typeid(float), 4},
    {6, &typeid(double), 8},         {8, &typeid(char), 1},
    {10, &typeid(unsigned int), 4},  {11, &typeid(unsigned short), 2},
    {16, &typeid(unsigned char), 1},
};

FormatRow const* formatOf(int code) {
    for (FormatRow const& row : kFormats) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

// A whole number of a header in either byte order.
template <class T>
T numberAt(char const* bytes, bool isLittleEndian) {
    std::make_unsigned_t<T> value = 0;
    for (std::size_t k = 0; k < sizeof(T); ++k) {
        std::size_t const byte = isLittleEndian ? sizeof(T) - 1 - k : k;
        value = static_cast<std::make_unsigned_t<T>>(value << 8 | static_cast<unsigned char>(bytes[byte]));
    }
    return static_cast<T>(value);
}

[[noreturn]] void refuse(MappedFile const& file, std::string const& why) {
    throw std::runtime_error(file.path().string() + ": is no SEG-Y file that can be opened: " + why);
}

// What every trace of the file has in common, of bytes that are there.
void readBinaryHeader(MappedFile const& file, Survey& survey, std::int64_t& firstTrace) {
    char const* const header = file.data() + kTextBytes;
    int code = numberAt<std::int16_t>(header + kFormat, false);
    survey.isLittleEndian = formatOf(code) == nullptr;
    if (survey.isLittleEndian) {
        code = numberAt<std::int16_t>(header + kFormat, true);
    }
    FormatRow const* const format = formatOf(code);
    if (format == nullptr) {
        refuse(file, "its sample format is " + std::to_string(numberAt<std::int16_t>(header + kFormat, false)));
    }
    survey.formatCode = code;
    survey.sampleType = format->type;
    survey.sampleBytes = format->bytes;
    bool const little = survey.isLittleEndian;
    survey.sampleCount = numberAt<std::uint16_t>(header + kSampleCount, little);
    survey.interval = numberAt<std::uint16_t>(header + kInterval, little) / 1000.0;
    int const extensions = numberAt<std::int16_t>(header + kExtensions, little);
    if (survey.sampleCount == 0) {
        refuse(file, "its traces have no samples");
    }
    if (extensions < 0 || extensions > 1000) {
        refuse(file, "it has " + std::to_string(extensions) + " extended headers");
    }
    firstTrace = kTextBytes + kBinaryBytes + extensions * kTextBytes;
}

// Numbers of lines that some traces have, as regular as their differences allow.
LineNumbers regular(MappedFile const& file, std::vector<int> numbers, char const* what) {
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    std::int64_t step = 0;
    for (std::size_t k = 1; k < numbers.size(); ++k) {
        step = std::gcd(step, std::int64_t{numbers[k]} - numbers[k - 1]);
    }
    step = std::max<std::int64_t>(step, 1);
    if (step > INT_MAX) {
        refuse(file, std::string("its ") + what + " numbers are " + std::to_string(step) + " apart");
    }
    std::int64_t const count = (std::int64_t{numbers.back()} - numbers.front()) / step + 1;
    if (count > 64 * static_cast<std::int64_t>(numbers.size()) + 1024) {
        refuse(file, std::string("its ") + what + " numbers are scattered over " + std::to_string(count));
    }
    return {numbers.front(), static_cast<int>(step), static_cast<int>(count)};
}

struct TraceNumbers {
    std::vector<int> inlines, crosslines;
};

TraceNumbers readTraceHeaders(MappedFile const& file, Survey& survey, std::int64_t first, std::int64_t count) {
    TraceNumbers numbers;
    std::int64_t const bytes = kTraceHeaderBytes + std::int64_t{survey.sampleCount} * survey.sampleBytes;
    bool const little = survey.isLittleEndian;
    numbers.inlines.resize(static_cast<std::size_t>(count));
    numbers.crosslines.resize(static_cast<std::size_t>(count));
    std::int64_t wrong = -1;
    file.access([&] {
        for (std::int64_t trace = 0; trace < count && wrong < 0; ++trace) {
            char const* const header = file.data() + first + trace * bytes;
            auto const n = static_cast<std::size_t>(trace);
            numbers.inlines[n] = numberAt<std::int32_t>(header + kInlineNumber, little);
            numbers.crosslines[n] = numberAt<std::int32_t>(header + kCrosslineNumber, little);
            int const samples = numberAt<std::uint16_t>(header + kTraceSamples, little);
            wrong = samples != 0 && samples != survey.sampleCount ? trace : -1;
        }
        survey.delay = numberAt<std::int16_t>(file.data() + first + kDelay, little);
    });
    if (wrong >= 0) {
        refuse(file, "trace " + std::to_string(wrong) + " has another number of samples than the file tells");
    }
    return numbers;
}

bool areAllDifferent(std::vector<int> numbers) {
    std::sort(numbers.begin(), numbers.end());
    return std::adjacent_find(numbers.begin(), numbers.end()) == numbers.end();
}

}  // namespace

Survey Survey::read(MappedFile const& file) {
    Survey survey;
    std::int64_t first = 0;
    if (file.byteSize() < kTextBytes + kBinaryBytes + kTraceHeaderBytes) {
        refuse(file, "it has " + std::to_string(file.byteSize()) + " bytes");
    }
    file.access([&] { readBinaryHeader(file, survey, first); });
    std::int64_t const bytes = kTraceHeaderBytes + std::int64_t{survey.sampleCount} * survey.sampleBytes;
    std::int64_t const count = (file.byteSize() - first) / bytes;
    if (count < 1 || (file.byteSize() - first) % bytes != 0) {
        refuse(file, "its size is not that of whole traces of " + std::to_string(bytes) + " bytes");
    }
    auto const numbers = readTraceHeaders(file, survey, first, count);
    auto const sampleAt = [&](std::int64_t trace) { return first + trace * bytes + kTraceHeaderBytes; };
    survey.isLine = std::adjacent_find(numbers.inlines.begin(), numbers.inlines.end(), std::not_equal_to<>()) ==
                    numbers.inlines.end();
    if (survey.isLine) {
        bool const isNumbered = areAllDifferent(numbers.crosslines);
        for (std::int64_t trace = 0; trace < count; ++trace) {
            survey.traces.push_back(sampleAt(trace));
            survey.traceNumbers.push_back(
                isNumbered ? numbers.crosslines[static_cast<std::size_t>(trace)] : static_cast<double>(trace + 1));
        }
        return survey;
    }
    survey.inlines = regular(file, numbers.inlines, "inline");
    survey.crosslines = regular(file, numbers.crosslines, "crossline");
    std::int64_t const places = std::int64_t{survey.inlines.count} * survey.crosslines.count;
    if (places > 64 * count + 1024) {
        refuse(file, std::to_string(count) + " traces are scattered over " + std::to_string(places) + " places");
    }
    survey.traces.assign(static_cast<std::size_t>(places), kNoTrace);
    for (std::int64_t trace = 0; trace < count; ++trace) {
        auto const n = static_cast<std::size_t>(trace);
        std::int64_t const i = (std::int64_t{numbers.inlines[n]} - survey.inlines.first) / survey.inlines.step;
        std::int64_t const j = (std::int64_t{numbers.crosslines[n]} - survey.crosslines.first) / survey.crosslines.step;
        auto& place = survey.traces[static_cast<std::size_t>(i * survey.crosslines.count + j)];
        if (place != kNoTrace) {
            refuse(
                file, "it has several traces at inline " + std::to_string(numbers.inlines[n]) + ", crossline " +
                          std::to_string(numbers.crosslines[n]));
        }
        place = sampleAt(trace);
    }
    survey.isCrosslineSorted = count > 1 && numbers.inlines[0] != numbers.inlines[1];
    return survey;
}

bool Survey::looksLike(MappedFile const& file) {
    if (file.byteSize() < kTextBytes + kBinaryBytes + kTraceHeaderBytes) {
        return false;
    }
    bool looks = false;
    file.access([&] {
        // The text begins with a C, in either of two alphabets.
        bool const hasText = file.data()[0] == 'C' || file.data()[0] == '\xC3';
        char const* const format = file.data() + kTextBytes + kFormat;
        looks = hasText && (formatOf(numberAt<std::int16_t>(format, false)) != nullptr ||
                            formatOf(numberAt<std::int16_t>(format, true)) != nullptr);
    });
    return looks;
}

}  // namespace Quorvel::Dravik::Files::Detail

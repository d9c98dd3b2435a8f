// SPDX-License-Identifier: Apache-2.0
#pragma once

// Survey: what the headers of a SEG-Y file say, and where its traces lie. Threads: any.

#include "dravik/files/shared/mapped_file.h"

#include <cstdint>
#include <typeinfo>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// Places in headers, in bytes from 0.
inline constexpr std::int64_t kTextBytes = 3200, kBinaryBytes = 400, kTraceHeaderBytes = 240;
inline constexpr std::int64_t kInterval = 16, kSampleCount = 20, kFormat = 24, kExtensions = 304;  // in the binary one
inline constexpr std::int64_t kInlineNumber = 188, kCrosslineNumber = 192, kTraceSamples = 114, kDelay = 108;

/// Numbers first, first + step, …
struct LineNumbers {
    int first = 0, step = 1, count = 1;
};

struct Survey {
    static constexpr std::int64_t kNoTrace = -1;

    int formatCode = 0;
    std::type_info const* sampleType = &typeid(void);
    int sampleBytes = 0;
    bool isLittleEndian = false;
    bool isLine = false;  ///< the traces have one inline number, and are counted along axis 0
    bool isCrosslineSorted = false;
    int sampleCount = 0;  ///< per trace
    double interval = 0;  ///< milliseconds
    double delay = 0;     ///< milliseconds, of the first trace
    LineNumbers inlines, crosslines;
    std::vector<double> traceNumbers;  ///< of a line
    /// The first sample of each trace in bytes from the start of the file, inline by inline; kNoTrace where there is
    /// none.
    std::vector<std::int64_t> traces;

    /// @throws std::runtime_error that says what does not fit
    static Survey read(MappedFile const& file);
    /// Whether a file begins like one.
    static bool looksLike(MappedFile const& file);
};

}  // namespace Quorvel::Dravik::Files::Detail

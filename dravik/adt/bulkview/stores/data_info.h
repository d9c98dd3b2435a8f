// SPDX-License-Identifier: Apache-2.0
#pragma once

// DataInfo: what a picture or a table of a data set needs beside its samples. A plain record. Threads: as `int`.

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

/// One axis of a data set.
struct DataAxis {
    std::string name = {};  ///< "latitude", "inline"; empty where unknown
    std::string unit = {};  ///< "degrees_north", "ms"; empty where unknown
    /// One per index: degrees, line numbers, times; empty where unknown.
    std::vector<double> coordinates = {};

    friend bool operator==(DataAxis const&, DataAxis const&) = default;
};

/// Names, units and coordinates of a data set. Axis k of a file's variable is axis k of its accessor; trailing axes
/// that the variable does not have are 1 long there, and the last axis of the variable varies fastest.
struct DataInfo {
    int axisCount = 4;  ///< axes that the data set has, 1 to 4
    std::array<DataAxis, 4> axes = {};
    std::string valueName = {};  ///< what a sample is; empty where unknown
    std::string valueUnit = {};
    std::optional<double> missingValue = {};  ///< the sample that means "missing"; not-a-number always does
    /// Whatever else the source tells: names and texts, in its order.
    std::vector<std::pair<std::string, std::string>> attributes = {};

    friend bool operator==(DataInfo const&, DataInfo const&) = default;
};

}  // namespace Quorvel::Dravik::Adt::BulkView

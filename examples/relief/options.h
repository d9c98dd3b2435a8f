// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the demo is asked to do.

#include <dravik/adt/core/extent.h>

#include <optional>
#include <string>
#include <vector>

namespace Relief {

/// Rows and columns of a brick, in samples.
struct BrickShape {
    int rows = 256;
    int columns = 256;
};

struct Options {
    /// A netCDF file, or "generated", alone or with a size as in "generated:541x1080".
    std::string input = "/usr/share/ferret-vis/data/etopo5.cdf";
    bool inputGiven = false;  ///< whether the user named the input, rather than taking what there is
    std::string variable;     ///< empty: the largest grid of the file
    BrickShape brick;
    /// None, the rows, or the rows and the columns to look at, counted with north at the top.
    std::vector<Quorvel::Dravik::Adt::ExtentImpl<int>> subset;
    int bits = 32;     ///< of a sample in the view: 32 for float, 8 for unsigned char
    std::string swap;  ///< the grid of the lower half, in the form of `input`; empty: the same
    std::string output = "relief.png";

    /// Beside the output: "relief-histogram.png" for "relief.png".
    std::string histogramOutput() const;
};

/// Reads the command line into `options`.
///
/// Nothing, when there is work to do; the exit status, when the help was shown (0) or the command line makes no sense
/// (2, with a line on standard error).
std::optional<int> parseCommandLine(int argc, char const* const* argv, Options& options);

/// Reads "256x512", or "256" for both. Nothing unless both are whole numbers of at least 1.
std::optional<BrickShape> parseShape(std::string const& text);

/// Reads "2160:-2:1080". Nothing unless all three are whole numbers, the step is not 0 and the count at least 1.
std::optional<Quorvel::Dravik::Adt::ExtentImpl<int>> parseExtent(std::string const& text);

}  // namespace Relief

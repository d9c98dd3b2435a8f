#pragma once

// What the demo is asked to do.

#include <optional>
#include <string>

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
    std::string output = "relief.png";
};

/// Reads the command line into `options`.
///
/// Nothing, when there is work to do; the exit status, when the help was shown (0) or the command line makes no sense
/// (2, with a line on standard error).
std::optional<int> parseCommandLine(int argc, char const* const* argv, Options& options);

/// Reads "256x512", or "256" for both. Nothing unless both are whole numbers of at least 1.
std::optional<BrickShape> parseShape(std::string const& text);

}  // namespace Relief

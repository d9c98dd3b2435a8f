// SPDX-License-Identifier: Apache-2.0
#pragma once

// MappedArray: the samples of an array where they lie in a mapped file. Threads: any, to write boxes apart.

#include "dravik/adt/converters/byte_swap_converter.h"
#include "dravik/adt/core/extent.h"
#include "dravik/adt/core/fixed_vector.h"
#include "dravik/adt/core/range.h"
#include "dravik/adt/export.h"
#include "dravik/files/shared/mapped_file.h"

#include <bit>
#include <cstdint>
#include <optional>
#include <typeinfo>

namespace Quorvel::Dravik::Files {

/// An array whose last axis varies fastest, in either byte order, from any byte of a file on. Refers to the file.
///
/// Samples pass dense and in this machine's byte order. Boxes lie inside [0, size).
/// @throws each operation what MappedFile::access throws
class DRAVIK_ADT_EXPORT MappedArray {
  public:
    using Box = Adt::OpenEndedRange<4, int>;

    /// @pre `type` is a number of whole bytes, and the file has all of the array's bytes
    MappedArray(
        MappedFile const& file, std::int64_t firstByte, Adt::FixedVector<4, int> const& size,
        std::type_info const& type, std::endian order);

    void read(Box const& box, void* samples) const;
    /// Reads the indices of `region`, whose steps are positive.
    void readSteps(Adt::ExtentK<4, int> const& region, void* samples) const;
    /// @pre the file can be written
    void write(Box const& box, void const* samples) const;

  private:
    char* at(std::int64_t position) const { return file_.data() + firstByte_ + position * sampleBytes_; }
    void move(char const* from, char* to, std::int64_t count) const;
    void readRow(char const* from, std::int64_t stride, char* to, int count) const;

    MappedFile const& file_;
    std::int64_t firstByte_;
    Adt::FixedVector<4, int> size_;
    std::int64_t sampleBytes_;
    std::optional<Adt::Converters::ByteSwapConverter> swap_;  // where the file has the other byte order
};

}  // namespace Quorvel::Dravik::Files

// SPDX-License-Identifier: Apache-2.0
#pragma once

// TiffHandle: one open file of libtiff. Threads: one at a time.

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Files::Detail {

/// Owns a `TIFF*`. What the library tells of errors is kept here: nothing is printed, and the handlers of a host for
/// the whole process stay as they are.
class TiffHandle {
  public:
    /// A mapped file is read without a copy, and faults where somebody has made it shorter: call it inside `guard`.
    enum class Mode { Read, ReadMapped, Update, Make };

    /// @throws std::system_error for what the operating system refuses, std::runtime_error for what is no TIFF
    TiffHandle(std::filesystem::path path, Mode mode);
    TiffHandle(TiffHandle const&) = delete;
    TiffHandle& operator=(TiffHandle const&) = delete;
    ~TiffHandle();

    TIFF* get() const noexcept { return tiff_; }

    /// Calls act.
    /// @throws std::runtime_error for a fault in it; what it throws
    static void guard(std::filesystem::path const& path, std::function<void()> const& act);

    /// @throws std::runtime_error with what the library told, or else `what`, unless `isDone`
    void require(bool isDone, char const* what);

    /// Makes the image whose directory is at `place` of the file the current one, in bytes.
    void select(std::uint64_t place);
    /// Makes the next image the current one; false where it cannot be read.
    bool next();
    /// Makes what was written lasting.
    void flush();

    /// The doubles or shorts of a tag, an empty vector where it is not there or of another type.
    std::vector<double> doubles(std::uint32_t tag);
    /// The text of a tag.
    std::string text(std::uint32_t tag);

    std::vector<std::byte> scratch;  ///< for whoever uses the handle

  private:
    static int keepError(TIFF* tiff, void* self, char const* module, char const* format, va_list arguments);
    static int dropWarning(TIFF* tiff, void* self, char const* module, char const* format, va_list arguments);
    void open(int file, Mode mode);
    void configureCodec();

    std::filesystem::path path_;
    TIFF* tiff_ = nullptr;
    std::uint64_t place_ = 0;
    char error_[256] = {};
};

}  // namespace Quorvel::Dravik::Files::Detail

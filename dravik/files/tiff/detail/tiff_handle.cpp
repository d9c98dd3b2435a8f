// SPDX-License-Identifier: Apache-2.0
#include "dravik/files/tiff/detail/tiff_handle.h"

#include "dravik/adt/exceptions/cloned_exception.h"

#include <xtiffio.h>

#include <cxxabi.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Quorvel::Dravik::Files::Detail {

namespace {

constexpr tmsize_t kMostAllocated = tmsize_t{1} << 31;  // bytes in one piece, whatever a header tells

// Tags of georeference are known to each handle that is opened afterwards; those that others know stay known.
void knowGeoTags() {
    [[maybe_unused]] static bool const kAreKnown = (XTIFFInitialize(), true);
}

}  // namespace

TiffHandle::TiffHandle(std::filesystem::path path, Mode mode) : path_(std::move(path)) {
    knowGeoTags();
    int const flags = mode == Mode::Make ? O_RDWR | O_CREAT | O_EXCL : mode == Mode::Update ? O_RDWR : O_RDONLY;
    int const file = ::open(path_.c_str(), flags | O_CLOEXEC, 0666);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), path_.string());
    }
    open(file, mode);
    if (tiff_ == nullptr) {
        ::close(file);
        require(false, "is no TIFF");
    }
}

TiffHandle::~TiffHandle() {
    if (tiff_ != nullptr) {
        TIFFClose(tiff_);
    }
}

void TiffHandle::open(int file, Mode mode) {
    std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> const options(
        TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
    if (options == nullptr) {
        throw std::bad_alloc();
    }
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostAllocated);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keepError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), dropWarning, this);
    // "m" for no mapping, "O" for tables of tiles that are read as far as they are asked for.
    char const* const how = mode == Mode::Read         ? "rmO"
                            : mode == Mode::ReadMapped ? "rO"
                            : mode == Mode::Update     ? "r+m"
                                                       : "w8m";
    tiff_ = TIFFFdOpenExt(file, path_.c_str(), how, options.get());
    if (tiff_ != nullptr && mode != Mode::Make) {
        place_ = TIFFCurrentDirOffset(tiff_);
        configureCodec();
    }
}

void TiffHandle::guard(std::filesystem::path const& path, std::function<void()> const& act) {
    std::exception_ptr thrown;
    auto call = [&] {
        try {
            act();
        } catch (abi::__forced_unwind const&) {
            throw;
        } catch (...) {
            thrown = std::current_exception();
        }
    };
    Adt::ICloneableException::ConstPtr fault;
    Adt::Exceptions::ClonedException::runAndCatchException(
        [](void* function) { return (*static_cast<decltype(call)*>(function))(), 0; }, &call, &fault);
    if (fault != nullptr) {
        throw std::runtime_error(path.string() + ": has become shorter than it was, or its disk has failed");
    }
    if (thrown != nullptr) {
        std::rethrow_exception(thrown);
    }
}

int TiffHandle::keepError(TIFF* /*tiff*/, void* self, char const* /*module*/, char const* format, va_list arguments) {
    auto& error = static_cast<TiffHandle*>(self)->error_;
    if (error[0] == '\0') {
        // The first one is the cause.
        std::vsnprintf(error, sizeof error, format, arguments);
        std::replace_if(
            std::begin(error), std::find(std::begin(error), std::end(error), '\0'),
            [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, ' ');
    }
    return 1;
}

int TiffHandle::dropWarning(
    TIFF* /*tiff*/, void* /*self*/, char const* /*module*/, char const* /*format*/, va_list /*arguments*/) {
    return 1;
}

void TiffHandle::require(bool isDone, char const* what) {
    std::string told = error_;
    error_[0] = '\0';
    if (!isDone) {
        throw std::runtime_error(path_.string() + ": " + (told.empty() ? what : told));
    }
}

// The decoder's own ways to tell colours and numbers, which are forgotten with each change of the image.
void TiffHandle::configureCodec() {
    std::uint16_t compression = 0, photometric = 0, planar = 0;
    TIFFGetFieldDefaulted(tiff_, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(tiff_, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(tiff_, TIFFTAG_PLANARCONFIG, &planar);
    if (compression == COMPRESSION_JPEG && photometric == PHOTOMETRIC_YCBCR && planar == PLANARCONFIG_CONTIG) {
        TIFFSetField(tiff_, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }
    if (compression == COMPRESSION_SGILOG || compression == COMPRESSION_SGILOG24) {
        TIFFSetField(tiff_, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
    }
}

void TiffHandle::select(std::uint64_t place) {
    if (place == place_) {
        return;
    }
    require(TIFFFlush(tiff_) != 0, "cannot be written");
    place_ = 0;
    require(TIFFSetSubDirectory(tiff_, place) != 0, "has an image that cannot be read");
    place_ = place;
    configureCodec();
}

bool TiffHandle::next() {
    place_ = 0;
    if (TIFFReadDirectory(tiff_) == 0) {
        return false;
    }
    place_ = TIFFCurrentDirOffset(tiff_);
    configureCodec();
    return true;
}

void TiffHandle::flush() {
    require(TIFFFlush(tiff_) != 0, "cannot be written");
    if (::fsync(TIFFFileno(tiff_)) != 0) {
        throw std::system_error(errno, std::generic_category(), path_.string());
    }
}

std::vector<double> TiffHandle::doubles(std::uint32_t tag) {
    TIFFField const* const field = TIFFFindField(tiff_, tag, TIFF_ANY);
    if (field == nullptr || TIFFFieldDataType(field) != TIFF_DOUBLE || TIFFFieldPassCount(field) == 0) {
        return {};
    }
    std::uint16_t few = 0;
    std::uint32_t many = 0;
    double const* values = nullptr;
    bool const isWide = TIFFFieldReadCount(field) == TIFF_VARIABLE2;
    int const found = isWide ? TIFFGetField(tiff_, tag, &many, &values) : TIFFGetField(tiff_, tag, &few, &values);
    return found == 0 || values == nullptr ? std::vector<double>()
                                           : std::vector<double>(values, values + (isWide ? many : few));
}

std::string TiffHandle::text(std::uint32_t tag) {
    TIFFField const* const field = TIFFFindField(tiff_, tag, TIFF_ANY);
    if (field == nullptr || TIFFFieldDataType(field) != TIFF_ASCII) {
        return {};
    }
    std::uint16_t few = 0;
    std::uint32_t many = 0;
    char const* text = nullptr;
    bool const isCounted = TIFFFieldPassCount(field) != 0;
    int const found = !isCounted                                    ? TIFFGetField(tiff_, tag, &text)
                      : TIFFFieldReadCount(field) == TIFF_VARIABLE2 ? TIFFGetField(tiff_, tag, &many, &text)
                                                                    : TIFFGetField(tiff_, tag, &few, &text);
    return found == 0 || text == nullptr ? std::string() : std::string(text);
}

}  // namespace Quorvel::Dravik::Files::Detail
